// Misbehaviour on request, per method, from --fail "<method>=<mode>":
//   refuse       answer "result" false without doing anything
//   delay:<ms>   do the request, answer after <ms> milliseconds
//   silent       do nothing and never answer (see docs/simulator.md)
// The method "*" stands for every method without a mode of its own.
#ifndef TERMS_SIM_FAILURE_PLAN_H
#define TERMS_SIM_FAILURE_PLAN_H

#include <map>
#include <string>

namespace termssim {

struct FailureMode {
    enum class Kind { None, Refuse, Delay, Silent };
    Kind kind = Kind::None;
    unsigned delayMs = 0;
};

class FailurePlan {
public:
    // Adds one "<method>=<mode>" rule; false with a reason when the method is
    // not one the service answers or the mode is malformed. A later rule for
    // the same method replaces the earlier one.
    bool Add(const std::string& rule, std::string& error);
    FailureMode For(const std::string& method) const;
    bool Empty() const { return m_Modes.empty(); }

private:
    std::map<std::string, FailureMode> m_Modes;
};

}  // namespace termssim

#endif
