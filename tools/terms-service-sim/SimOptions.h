// Command line of terms-service-sim.
#ifndef TERMS_SIM_OPTIONS_H
#define TERMS_SIM_OPTIONS_H

#include <string>
#include <vector>

#include "FailurePlan.h"

namespace termssim {

extern const char kDefaultBusName[];

struct SimOptions {
    std::string cataloguePath;  // the installed sample when not given
    std::string storeRoot;      // empty: VCONF_ROOT or the store's default
    std::string setDir;
    std::string usbDir;
    std::string busName = kDefaultBusName;
    bool replace = false;  // take the bus name over from a running owner
    FailurePlan failures;
};

enum class ParseOutcome { Run, Help, Version, BadUsage };

// Reads the arguments after the program name. On BadUsage `error` is one
// sentence naming the problem.
ParseOutcome ParseOptions(const std::vector<std::string>& args, SimOptions& options, std::string& error);

const char* UsageText();

}  // namespace termssim

#endif
