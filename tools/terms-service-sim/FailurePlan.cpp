#include "FailurePlan.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "TermsServiceSim.h"

namespace termssim {
namespace {

const char kAnyMethod[] = "*";
const unsigned long kMaxDelayMs = 24UL * 60 * 60 * 1000;

bool ParseDelay(const std::string& text, unsigned& delayMs) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), nullptr, 10);
    if (errno != 0 || value > kMaxDelayMs) return false;
    delayMs = static_cast<unsigned>(value);
    return true;
}

bool ParseMode(const std::string& text, FailureMode& mode) {
    const std::string delayPrefix = "delay:";
    if (text == "refuse") {
        mode.kind = FailureMode::Kind::Refuse;
    } else if (text == "silent") {
        mode.kind = FailureMode::Kind::Silent;
    } else if (text.compare(0, delayPrefix.size(), delayPrefix) == 0) {
        mode.kind = FailureMode::Kind::Delay;
        return ParseDelay(text.substr(delayPrefix.size()), mode.delayMs);
    } else {
        return false;
    }
    return true;
}

}  // namespace

bool FailurePlan::Add(const std::string& rule, std::string& error) {
    const size_t equals = rule.rfind('=');
    if (equals == std::string::npos) {
        error = "\"" + rule + "\" is not <method>=<mode>";
        return false;
    }
    const std::string method = rule.substr(0, equals);
    const std::vector<std::string>& known = TermsServiceSim::KnownRequests();
    if (method != kAnyMethod && std::find(known.begin(), known.end(), method) == known.end()) {
        error = "\"" + method + "\" is not a request the service answers";
        return false;
    }
    FailureMode mode;
    if (!ParseMode(rule.substr(equals + 1), mode)) {
        error = "\"" + rule.substr(equals + 1) + "\" is not a failure mode (refuse, delay:<ms> or silent)";
        return false;
    }
    m_Modes[method] = mode;
    return true;
}

FailureMode FailurePlan::For(const std::string& method) const {
    auto found = m_Modes.find(method);
    if (found == m_Modes.end()) found = m_Modes.find(kAnyMethod);
    return found == m_Modes.end() ? FailureMode() : found->second;
}

}  // namespace termssim
