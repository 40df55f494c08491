// terms-cli: the shapes shared by the argument parser, the subcommands and
// the output.
#ifndef TERMS_CLI_CLI_H
#define TERMS_CLI_CLI_H

#include <json/json.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace termscli {

// Exit codes of the program.
enum ExitCode {
    kExitDone = 0,         // the command did what was asked
    kExitRefused = 1,      // the service (or the store) said no
    kExitUsage = 2,        // bad usage: unknown command or option, wrong operands
    kExitUnreachable = 3,  // the terms-client service could not be reached
    kExitTimedOut = 4,     // the service did not answer within --timeout
};

// How long terms-cli waits for the service by default, as busctl does.
constexpr int kDefaultTimeoutSeconds = 25;

// Bad usage, found while reading the command line; the text is one sentence
// without the program name.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Invocation;

// What a subcommand hands back: the exit code, a human-readable text, the
// same result as JSON for --json, and on failure one sentence for stderr.
struct Outcome {
    int status = kExitDone;
    std::string text;
    Json::Value data = Json::Value(Json::objectValue);
    std::string error;
};

using Handler = Outcome (*)(const Invocation&);

enum class ValueKind {
    Flag,     // no value
    Text,     // any text
    Integer,  // a whole number within [min, max]
    Object,   // the text of a JSON object
};

struct OptionSpec {
    const char* name;  // "--requester"
    ValueKind kind;
    const char* valueName;  // "N" in the help; null for flags
    const char* help;
    int min = 0;
    int max = 0;
    // Stands in for the operands: given alone, without operands.
    bool replacesOperands = false;
    // Only valid together with this other option.
    const char* needs = nullptr;
};

struct CommandSpec {
    const char* name;      // "show", or "country set" for a subcommand of a group
    const char* operands;  // operand synopsis for the usage line, "" for none
    int minOperands;
    int maxOperands;       // -1: no limit
    bool integerOperands;  // operands are whole numbers >= 0
    std::vector<OptionSpec> options;
    const char* summary;      // one line for the command list
    const char* description;  // the rest of the command's help
    bool needsService;        // ask "is service available" first (exit 3 when not)
    Handler run;
    // Runs until stopped (a command that follows changes): --timeout does not apply.
    bool unbounded = false;
};

// One parsed command line.
struct Invocation {
    const CommandSpec* command = nullptr;  // null: the global level
    std::string group;                     // "country" when only the group was named
    std::vector<std::string> operands;
    std::map<std::string, std::string> options;  // given options; flags map to ""
    bool json = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
    int timeoutSeconds = kDefaultTimeoutSeconds;  // 0: wait forever

    bool Has(const std::string& option) const { return options.count(option) != 0; }
    std::string Text(const std::string& option, const std::string& fallback) const;
    // The value of an Integer option (already checked by the parser).
    int Integer(const std::string& option, int fallback) const;
    // Operand i of a command with integerOperands (already checked).
    int IntegerOperand(size_t i) const;
    // The value of an Object option (already checked).
    Json::Value Object(const std::string& option) const;
};

// The JSON object that `text` holds; false when it is not JSON or not an object.
bool ParseJsonObject(const std::string& text, Json::Value& object);

}  // namespace termscli

#endif  // TERMS_CLI_CLI_H
