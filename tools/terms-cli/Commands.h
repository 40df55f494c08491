// terms-cli: one function per subcommand.
#ifndef TERMS_CLI_COMMANDS_H
#define TERMS_CLI_COMMANDS_H

#include "Cli.h"

namespace termscli {

// The bus name the library talks to; named in messages.
extern const char kServiceName[];

// The outcome of a command whose service did not answer "is service available".
Outcome Unreachable();

Outcome RunList(const Invocation& invocation);
Outcome RunShow(const Invocation& invocation);
Outcome RunRevised(const Invocation& invocation);
Outcome RunAgree(const Invocation& invocation);
Outcome RunDisagree(const Invocation& invocation);
Outcome RunAgreement(const Invocation& invocation);
Outcome RunExists(const Invocation& invocation);
Outcome RunTitle(const Invocation& invocation);
Outcome RunTitles(const Invocation& invocation);
Outcome RunLanguage(const Invocation& invocation);
Outcome RunCountrySet(const Invocation& invocation);
Outcome RunCountryList(const Invocation& invocation);
Outcome RunUpdate(const Invocation& invocation);
Outcome RunUpdateApi(const Invocation& invocation);
Outcome RunDisclaimerId(const Invocation& invocation);
Outcome RunHeader(const Invocation& invocation);
Outcome RunCheck(const Invocation& invocation);
Outcome RunCloneToUsb(const Invocation& invocation);
Outcome RunCloneToTv(const Invocation& invocation);
Outcome RunReset(const Invocation& invocation);
Outcome RunStoreGet(const Invocation& invocation);
Outcome RunStoreSet(const Invocation& invocation);
Outcome RunStoreUnset(const Invocation& invocation);

}  // namespace termscli

#endif  // TERMS_CLI_COMMANDS_H
