// terms-cli: the terms client library from the shell.
//
// main reads the command line against the table below, keeps the library's
// log lines off the terminal unless asked, and runs one subcommand.
#include <VerantiAPI.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>
#include <thread>

#include "Arguments.h"
#include "Commands.h"
#include "ConsentCommands.h"
#include "Format.h"

namespace termscli {
namespace {

const OptionSpec kProductType{"--product-type", ValueKind::Text, "T",
                              "Product type sent to the service (default TV, the set itself)."};
const OptionSpec kRequester{
    "--requester", ValueKind::Integer, "N", "Who asks: 0 to 3, or 4 for any other requester (default 0).", 0, 4};

const char kDisagreeForms[] =
    "Several ids are sent one request each; the exit status is 1 when the service refuses any of them.\n"
    "--all sends one request for every disclaimer.";

// One entry per subcommand: name, operands, their number (least, most; -1 no limit), whether
// they are whole numbers, options, summary, description, whether the service must be up, function,
// and (optional, last) whether it runs until stopped, beyond --timeout. Help, the manual page and
// the bash completion all read this table.
// clang-format off
const std::vector<CommandSpec> kCommands = {
    {"status", "", 0, 0, false, {kRequester}, "Tell whether the user must be asked now, and what to show.",
     "The overall value is required, not required, or obtained; the disclaimers to show are listed in order.\n"
     "Exits with 0 when the service answered and with 3 when it is not available (status unknown).", false,
     RunConsentStatus},
    {"watch", "", 0, 0, false,
     {{"--count", ValueKind::Integer, "N", "Stop after N events (default: run until interrupted).", 1, INT_MAX}},
     "Print agreement changes as they happen.",
     "One line per changed id (\"id: before -> after\"), or with --json one JSON object per event.", false,
     RunWatch},
    {"list", "", 0, 0, false, {kRequester, kProductType}, "List the disclaimers of a requester as a table.",
     "Asks for the number of disclaimers, then for each one by position.", true, RunList},
    {"show", "<id>", 1, 1, false,
     {{"--index", ValueKind::Integer, "N", "Show the disclaimer at this position (from 0) instead of by id.", 0,
       INT_MAX, true},
      {"--requester", ValueKind::Integer, "N", "Whose list --index counts in: 0 to 4 (default 0).", 0, 4, false,
       "--index"},
      kProductType},
     "Show one disclaimer with all its members and its sections.", "", true, RunShow},
    {"revised", "", 0, 0, false,
     {kProductType, {"--terms", ValueKind::Text, "T", "Terms selector passed to the service (default empty)."}},
     "Show the disclaimers that the service reports as revised.", "", true, RunRevised},
    {"agree", "<id>...", 1, -1, false,
     {{"--all", ValueKind::Flag, nullptr, "Agree to every disclaimer of the requester.", 0, 0, true},
      {"--none", ValueKind::Flag, nullptr, "Withdraw every disclaimer of the requester.", 0, 0, true},
      {"--json", ValueKind::Object, "OBJECT",
       "Send this JSON object of agreements as it is, e.g. '{\"privacy\":\"true\"}'.", 0, 0, true},
      kRequester, kProductType},
     "Agree to disclaimers.",
     "Several ids are sent one request each; the exit status is 1 when the service refuses any of them.\n"
     "--all and --none go through the requester's disclaimers in dependency order (dependencies first when\n"
     "agreeing, dependants first when withdrawing), one request each; --json sends the object as the agreements.\n"
     "After \"agree\", --json takes the agreements object; to get JSON output as well, write the global\n"
     "--json before the command: terms-cli --json agree --json '{...}'.",
     true, RunConsentAgree},
    {"disagree", "<id>...", 1, -1, false,
     {{"--all", ValueKind::Flag, nullptr, "Disagree to every disclaimer.", 0, 0, true}, kProductType},
     "Withdraw the agreement to disclaimers.", kDisagreeForms, true, RunDisagree},
    {"agreement", "<id>", 1, 1, false, {}, "Tell whether the user agreed to a disclaimer.",
     "Read from the agreement cache in the configuration store (db/veranti/disclaimeragrees); exits with 0\n"
     "whatever the answer.",
     false, RunAgreement},
    {"exists", "<id>", 1, 1, false, {}, "Tell whether the agreement cache knows a disclaimer.",
     "Read from the configuration store; exits with 0 whatever the answer.", false, RunExists},
    {"title", "<index>", 1, 1, true, {}, "Print the menu title at a position (from 0).",
     "Read from the configuration store (db/veranti/terms_title); exits with 1 when there is none.", false,
     RunTitle},
    {"titles", "", 0, 0, false, {}, "List every menu title.", "Read from the configuration store.", false,
     RunTitles},
    {"language", "", 0, 0, false, {}, "Print the language of the terms screens.", "", false, RunLanguage},
    {"country set", "<code>", 1, 1, false, {}, "Set the country code.", "", true, RunCountrySet},
    {"country list", "", 0, 0, false, {}, "Ask the service for its country code list.",
     "The library reports only whether the service accepted the request.", true, RunCountryList},
    {"update", "", 0, 0, false, {kProductType}, "Ask the service to update the disclaimers.", "", true, RunUpdate},
    {"update-api", "<request_from> <terms>", 2, 2, false, {},
     "Ask the service to fetch the disclaimers from its server.", "", true, RunUpdateApi},
    {"disclaimer-id", "", 0, 0, false,
     {kProductType, {"--other-page", ValueKind::Flag, nullptr, "Ask for another page than the setup wizard."}},
     "Ask the service to request the disclaimer ids.", "", true, RunDisclaimerId},
    {"header", "", 0, 0, false,
     {{"--web-view", ValueKind::Flag, nullptr, "The header data for the web view screen."}},
     "Print the header data of the disclaimer screens.", "", true, RunHeader},
    {"check", "", 0, 0, false,
     {{"--info", ValueKind::Flag, nullptr, "Ask for the error information, with its message."}},
     "Run the service's own check and print its error code and reason.",
     "Exits with 1 when the check fails; the error code and reason are printed either way.", true, RunCheck},
    {"clone to-usb", "<src> <dest>", 2, 2, false, {}, "Copy clone data from the set to a USB device.", "", true,
     RunCloneToUsb},
    {"clone to-tv", "<src> <dest>", 2, 2, false, {}, "Copy clone data from a USB device to the set.", "", true,
     RunCloneToTv},
    {"reset", "", 0, 0, false, {}, "Ask the service to reset the content service.", "", true, RunReset},
    {"store get", "<key>", 1, 1, false, {}, "Print a key of the configuration store.",
     "Exits with 1 when the key is not set.", false, RunStoreGet},
    {"store set", "<key> <value>", 2, 2, false, {}, "Set a key of the configuration store.", "", false,
     RunStoreSet},
    {"store unset", "<key>", 1, 1, false, {}, "Remove a key from the configuration store.", "", false,
     RunStoreUnset},
};
// clang-format on

Outcome Execute(const Invocation& invocation) {
    try {
        if (invocation.command->needsService && !CVerantiAPI::GetInstance()->IsServiceAvailable()) {
            return Unreachable();
        }
        return invocation.command->run(invocation);
    } catch (const UsageError&) {
        throw;
    } catch (const std::exception& e) {
        Outcome outcome;
        outcome.status = kExitRefused;
        outcome.error = std::string("the service's reply could not be read (") + e.what() + ")";
        return outcome;
    }
}

// Output that cannot be written is a failure, also of a command that did
// what was asked (as with the core utilities: `terms-cli list >/dev/full`).
int FinishOutput(int status) {
    const int reason = OutputFailure();
    if (reason == 0) return status;
    PrintError(std::string("cannot write to standard output: ") + std::strerror(reason));
    return kExitRefused;
}

// The library waits for the service as long as the service takes. The
// command runs on a thread of its own so that terms-cli can stop waiting:
// when the time is up it says so and leaves at once, the call still pending.
Outcome ExecuteWithin(const Invocation& invocation) {
    if (invocation.timeoutSeconds == 0 || invocation.command->unbounded) return Execute(invocation);
    std::promise<Outcome> promise;
    std::future<Outcome> outcome = promise.get_future();
    std::thread([&invocation, promise = std::move(promise)]() mutable {
        try {
            promise.set_value(Execute(invocation));
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    }).detach();
    if (outcome.wait_for(std::chrono::seconds(invocation.timeoutSeconds)) == std::future_status::ready) {
        return outcome.get();
    }
    const int seconds = invocation.timeoutSeconds;
    PrintError(std::string("the terms-client service (") + kServiceName + ") did not answer within " +
               std::to_string(seconds) + (seconds == 1 ? " second" : " seconds") + " (--timeout)");
    std::fflush(stdout);
    std::_Exit(kExitTimedOut);
}

}  // namespace
}  // namespace termscli

int main(int argc, char** argv) {
    using namespace termscli;
    Invocation invocation;
    try {
        invocation = ParseArguments(argc, argv, kCommands);
        if (invocation.version && !invocation.help) {
            std::cout << "terms-cli " << TERMS_CLI_VERSION << "\n";
            return FinishOutput(kExitDone);
        }
        if (invocation.help) {
            std::cout << HelpText(invocation, kCommands);
            return FinishOutput(kExitDone);
        }
        // Before the library writes its first line; a DLOG_OUTPUT of the user's own wins.
        if (!invocation.verbose) setenv("DLOG_OUTPUT", "none", 0);
        const Outcome outcome = ExecuteWithin(invocation);
        PrintOutcome(outcome, invocation.json);
        CVerantiAPI::Destroy();
        return FinishOutput(outcome.status);
    } catch (const UsageError& e) {
        PrintError(e.what());
        return kExitUsage;
    }
}
