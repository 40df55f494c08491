#include "Arguments.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <sstream>

namespace termscli {
namespace {

const char kProgram[] = "terms-cli";

const std::vector<OptionSpec> kGlobalOptions = {
    {"--json", ValueKind::Flag, nullptr, "Print one JSON document on standard output instead of text."},
    {"--verbose", ValueKind::Flag, nullptr,
     "Let the library's log lines through to standard error (DLOG_OUTPUT decides where they go)."},
    {"--help", ValueKind::Flag, nullptr, "Show help for the program, a group or a command (also -h)."},
};

const char kExitStatus[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the service said no (or the store holds no such key)\n"
    "  2  bad usage\n"
    "  3  the terms-client service could not be reached\n";

bool IsOption(const std::string& arg) {
    return arg.size() > 1 && arg[0] == '-' && !(arg[1] >= '0' && arg[1] <= '9');
}

bool ParseWholeNumber(const std::string& text, long& value) {
    if (text.empty() || !(text[0] == '-' || (text[0] >= '0' && text[0] <= '9'))) return false;
    errno = 0;
    char* end = nullptr;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= INT_MIN && value <= INT_MAX;
}

std::string HelpHint(const Invocation& invocation) {
    std::string level = kProgram;
    if (invocation.command) {
        level += std::string(" ") + invocation.command->name;
    } else if (!invocation.group.empty()) {
        level += " " + invocation.group;
    }
    return " (see " + level + " --help)";
}

[[noreturn]] void Fail(const Invocation& invocation, const std::string& sentence) {
    throw UsageError(sentence + HelpHint(invocation));
}

const OptionSpec* FindOption(const std::vector<OptionSpec>& options, const std::string& name) {
    for (const OptionSpec& option : options) {
        if (name == option.name) return &option;
    }
    return nullptr;
}

std::string GroupOf(const CommandSpec& command) {
    const std::string name = command.name;
    const size_t blank = name.find(' ');
    return blank == std::string::npos ? std::string() : name.substr(0, blank);
}

bool IsGroup(const std::string& word, const std::vector<CommandSpec>& commands) {
    for (const CommandSpec& command : commands) {
        if (GroupOf(command) == word) return true;
    }
    return false;
}

const CommandSpec* FindCommand(const std::string& name, const std::vector<CommandSpec>& commands) {
    for (const CommandSpec& command : commands) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

// Reads the command's name (one word, or a group and a member); returns the
// index of the first argument after it.
size_t TakeCommandName(const std::vector<std::string>& args, size_t i, const std::vector<CommandSpec>& commands,
                       Invocation& invocation) {
    const std::string& word = args[i];
    if ((invocation.command = FindCommand(word, commands))) return i + 1;
    if (!IsGroup(word, commands)) Fail(invocation, "unknown command \"" + word + "\"");
    invocation.group = word;
    if (i + 1 == args.size() || IsOption(args[i + 1])) return i + 1;
    const std::string name = word + " " + args[i + 1];
    if (!(invocation.command = FindCommand(name, commands))) Fail(invocation, "unknown command \"" + name + "\"");
    return i + 2;
}

void CheckValue(const Invocation& invocation, const OptionSpec& option, const std::string& value) {
    Json::Value object;
    if (option.kind == ValueKind::Object && !ParseJsonObject(value, object)) {
        Fail(invocation, std::string(option.name) + " needs a JSON object, not \"" + value + "\"");
    }
    if (option.kind != ValueKind::Integer) return;
    long number = 0;
    if (!ParseWholeNumber(value, number) || number < option.min || number > option.max) {
        const std::string range = option.max == INT_MAX ? " up" : " to " + std::to_string(option.max);
        Fail(invocation, std::string(option.name) + " must be a whole number from " + std::to_string(option.min) +
                             range + ", not \"" + value + "\"");
    }
}

// Takes the option at args[i] (with its value); returns the index of its last argument.
size_t TakeOption(const std::vector<std::string>& args, size_t i, Invocation& invocation) {
    std::string name = args[i] == "-h" ? "--help" : args[i];
    std::string value;
    const size_t equals = name.find('=');
    const bool inlineValue = equals != std::string::npos;
    if (inlineValue) {
        value = name.substr(equals + 1);
        name.erase(equals);
    }
    const OptionSpec* option = invocation.command ? FindOption(invocation.command->options, name) : nullptr;
    const bool global = !option && (option = FindOption(kGlobalOptions, name)) != nullptr;
    if (!option) Fail(invocation, "unknown option " + name);
    if (option->kind == ValueKind::Flag) {
        if (inlineValue) Fail(invocation, name + " takes no value");
    } else if (!inlineValue) {
        if (i + 1 == args.size()) Fail(invocation, name + " needs a value (" + option->valueName + ")");
        value = args[++i];
    }
    if (global) {
        invocation.json = invocation.json || name == "--json";
        invocation.verbose = invocation.verbose || name == "--verbose";
        invocation.help = invocation.help || name == "--help";
        return i;
    }
    if (invocation.Has(name)) Fail(invocation, name + " is given twice");
    CheckValue(invocation, *option, value);
    invocation.options[name] = value;
    return i;
}

std::string OptionSynopsis(const OptionSpec& option) {
    return option.valueName ? std::string(option.name) + " " + option.valueName : std::string(option.name);
}

std::string OperandsSynopsis(const CommandSpec& command) {
    std::string synopsis = command.operands;
    for (const OptionSpec& option : command.options) {
        if (option.replacesOperands) synopsis += (synopsis.empty() ? "" : " | ") + OptionSynopsis(option);
    }
    return synopsis;
}

void CheckOperandCount(const Invocation& invocation) {
    const CommandSpec& command = *invocation.command;
    const int count = static_cast<int>(invocation.operands.size());
    std::vector<std::string> replacing;
    for (const OptionSpec& option : command.options) {
        if (option.replacesOperands && invocation.Has(option.name)) replacing.emplace_back(option.name);
    }
    if (replacing.size() > 1) Fail(invocation, replacing[0] + " and " + replacing[1] + " cannot be combined");
    if (replacing.size() == 1) {
        if (count > 0) Fail(invocation, replacing[0] + " takes the place of the operands; give one or the other");
        return;
    }
    if (count < command.minOperands)
        Fail(invocation, std::string(command.name) + " needs " + OperandsSynopsis(command));
    if (command.maxOperands >= 0 && count > command.maxOperands) {
        Fail(invocation, std::string(command.name) + " takes at most " + std::to_string(command.maxOperands) +
                             " operand" + (command.maxOperands == 1 ? "" : "s") + ", not " + std::to_string(count));
    }
}

void CheckOperands(const Invocation& invocation) {
    CheckOperandCount(invocation);
    for (const OptionSpec& option : invocation.command->options) {
        if (option.needs && invocation.Has(option.name) && !invocation.Has(option.needs)) {
            Fail(invocation, std::string(option.name) + " only goes with " + option.needs);
        }
    }
    if (!invocation.command->integerOperands) return;
    for (const std::string& operand : invocation.operands) {
        long number = 0;
        if (!ParseWholeNumber(operand, number) || number < 0) {
            Fail(invocation, "\"" + operand + "\" is not a whole number from 0 up");
        }
    }
}

// Two columns, the first padded to a common width.
std::string Columns(const std::vector<std::pair<std::string, std::string>>& rows) {
    size_t width = 0;
    for (const auto& row : rows) width = std::max(width, row.first.size());
    std::string text;
    for (const auto& row : rows)
        text += "  " + row.first + std::string(width - row.first.size() + 2, ' ') + row.second + "\n";
    return text;
}

std::string OptionsBlock(const std::vector<OptionSpec>& options) {
    std::vector<std::pair<std::string, std::string>> rows;
    rows.reserve(options.size());
    for (const OptionSpec& option : options) rows.emplace_back(OptionSynopsis(option), option.help);
    return Columns(rows);
}

std::string CommandList(const std::vector<CommandSpec>& commands, const std::string& group) {
    std::vector<std::pair<std::string, std::string>> rows;
    for (const CommandSpec& command : commands) {
        if (group.empty() || GroupOf(command) == group) {
            const std::string operands = OperandsSynopsis(command);
            rows.emplace_back(std::string(command.name) + (operands.empty() ? "" : " " + operands), command.summary);
        }
    }
    return Columns(rows);
}

// One usage line per form of the command: with its operands, and with each
// option that takes their place.
std::string UsageLines(const CommandSpec& command) {
    auto optional = [&command](const char* form) {
        std::string text;
        for (const OptionSpec& option : command.options) {
            const bool belongs =
                form ? option.needs && std::string(form) == option.needs : !option.needs && !option.replacesOperands;
            if (belongs) text += " [" + OptionSynopsis(option) + "]";
        }
        return text;
    };
    std::string prefix = "Usage: ";
    std::string lines;
    auto add = [&](const std::string& line) {
        lines += prefix + kProgram + " " + command.name + line + "\n";
        prefix = "       ";
    };
    add((*command.operands ? std::string(" ") + command.operands : std::string()) + optional(nullptr));
    for (const OptionSpec& option : command.options) {
        if (option.replacesOperands) add(" " + OptionSynopsis(option) + optional(option.name) + optional(nullptr));
    }
    return lines;
}

std::string GlobalHelp(const std::vector<CommandSpec>& commands) {
    std::ostringstream text;
    text << "Usage: " << kProgram << " [--json] [--verbose] <command> [options] [operands]\n"
         << "       " << kProgram << " [<command>] --help\n\n"
         << "Asks the terms-client service (com.velmora.tv.termsclient) through the terms client\n"
         << "library, and reads the configuration store that the service keeps.\n\n"
         << "Commands:\n"
         << CommandList(commands, "") << "\nGlobal options:\n"
         << OptionsBlock(kGlobalOptions) << "\n"
         << kExitStatus << "\n"
         << "Environment:\n"
         << "  DBUS_SYSTEM_BUS_ADDRESS  the bus the service is on (default: the system bus)\n"
         << "  VCONF_ROOT               the configuration store's root directory\n"
         << "  DLOG_OUTPUT              where the library's log lines go; terms-cli sets it to none\n"
         << "                           unless it is set already or --verbose is given\n";
    return text.str();
}

std::string GroupHelp(const std::string& group, const std::vector<CommandSpec>& commands) {
    return "Usage: " + std::string(kProgram) + " " + group + " <subcommand> [operands]\n\nSubcommands:\n" +
           CommandList(commands, group) + "\nSee " + kProgram + " " + group + " <subcommand> --help.\n";
}

std::string CommandHelp(const CommandSpec& command) {
    std::string text = UsageLines(command) + "\n" + command.summary + "\n";
    if (*command.description) text += "\n" + std::string(command.description) + "\n";
    if (!command.options.empty()) text += "\nOptions:\n" + OptionsBlock(command.options);
    text += "\nGlobal options:\n" + OptionsBlock(kGlobalOptions);
    if (command.needsService) {
        text += "\nThe command first asks whether the service is available and exits with 3 when it is not.\n";
    }
    return text + "\n" + kExitStatus;
}

}  // namespace

std::string Invocation::Text(const std::string& option, const std::string& fallback) const {
    auto found = options.find(option);
    return found == options.end() ? fallback : found->second;
}

int Invocation::Integer(const std::string& option, int fallback) const {
    auto found = options.find(option);
    return found == options.end() ? fallback : std::atoi(found->second.c_str());
}

int Invocation::IntegerOperand(size_t i) const {
    return std::atoi(operands.at(i).c_str());
}

Json::Value Invocation::Object(const std::string& option) const {
    Json::Value object;
    ParseJsonObject(Text(option, ""), object);
    return object;
}

bool ParseJsonObject(const std::string& text, Json::Value& object) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), &object, &errors) && object.isObject();
}

Invocation ParseArguments(int argc, char** argv, const std::vector<CommandSpec>& commands) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    Invocation invocation;
    size_t i = 0;
    for (; i < args.size() && IsOption(args[i]); ++i) i = TakeOption(args, i, invocation);
    if (i == args.size()) {
        if (!invocation.help) Fail(invocation, "no command given");
        return invocation;
    }
    for (i = TakeCommandName(args, i, commands, invocation); i < args.size(); ++i) {
        if (args[i] == "--") {
            invocation.operands.insert(invocation.operands.end(), args.begin() + static_cast<std::ptrdiff_t>(i + 1),
                                       args.end());
            break;
        }
        if (IsOption(args[i])) {
            i = TakeOption(args, i, invocation);
        } else if (invocation.command) {
            invocation.operands.push_back(args[i]);
        } else {
            Fail(invocation, "unknown command \"" + invocation.group + " " + args[i] + "\"");
        }
    }
    if (invocation.help) return invocation;
    if (!invocation.command) Fail(invocation, invocation.group + " needs a subcommand");
    CheckOperands(invocation);
    return invocation;
}

std::string HelpText(const Invocation& invocation, const std::vector<CommandSpec>& commands) {
    if (invocation.command) return CommandHelp(*invocation.command);
    if (!invocation.group.empty()) return GroupHelp(invocation.group, commands);
    return GlobalHelp(commands);
}

}  // namespace termscli
