// terms-cli: the subcommands built on the consent library (status, watch,
// agree --all and --none).
#ifndef TERMS_CLI_CONSENT_COMMANDS_H
#define TERMS_CLI_CONSENT_COMMANDS_H

#include "Cli.h"

namespace termscli {

// Whether the user must be asked now, and which disclaimers to show.
Outcome RunConsentStatus(const Invocation& invocation);
// Prints agreement changes as they happen, until interrupted or --count events.
Outcome RunWatch(const Invocation& invocation);
// agree: --all and --none go through the requester's list in dependency
// order; every other form is the plain agree command.
Outcome RunConsentAgree(const Invocation& invocation);

}  // namespace termscli

#endif  // TERMS_CLI_CONSENT_COMMANDS_H
