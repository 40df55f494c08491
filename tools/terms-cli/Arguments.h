// terms-cli: reading the command line and the help texts.
#ifndef TERMS_CLI_ARGUMENTS_H
#define TERMS_CLI_ARGUMENTS_H

#include <string>
#include <vector>

#include "Cli.h"

namespace termscli {

// Reads argv against the command table. Global options (--json, --verbose,
// --help) may stand before or after the command; a command's own option of
// the same name wins after the command. Throws UsageError.
Invocation ParseArguments(int argc, char** argv, const std::vector<CommandSpec>& commands);

// The help text that --help asks for at the level the invocation reached.
std::string HelpText(const Invocation& invocation, const std::vector<CommandSpec>& commands);

}  // namespace termscli

#endif  // TERMS_CLI_ARGUMENTS_H
