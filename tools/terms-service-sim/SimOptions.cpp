#include "SimOptions.h"

#include <gio/gio.h>

#include <map>

namespace termssim {

const char kDefaultBusName[] = "com.velmora.tv.termsclient";

namespace {

// Options that take a value, and where the value goes ("--fail" is handled apart).
std::map<std::string, std::string SimOptions::*> ValueOptions() {
    return {{"--catalogue", &SimOptions::cataloguePath},
            {"--store-root", &SimOptions::storeRoot},
            {"--set-dir", &SimOptions::setDir},
            {"--usb-dir", &SimOptions::usbDir},
            {"--bus-name", &SimOptions::busName}};
}

bool Store(SimOptions& options, const std::string& name, const std::string& value, std::string& error) {
    if (name == "--fail") return options.failures.Add(value, error);
    if (value.empty()) {
        error = name + " needs a non-empty value";
        return false;
    }
    if (name == "--bus-name" && (!g_dbus_is_name(value.c_str()) || g_dbus_is_unique_name(value.c_str()))) {
        error = "--bus-name \"" + value + "\" is not a bus name a service can own (dot-separated elements of " +
                "letters, digits, _ and -, not starting with a digit or with \":\")";
        return false;
    }
    options.*ValueOptions().at(name) = value;
    return true;
}

}  // namespace

ParseOutcome ParseOptions(const std::vector<std::string>& args, SimOptions& options, std::string& error) {
    const auto valueOptions = ValueOptions();
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") return ParseOutcome::Help;
        if (arg == "--version") return ParseOutcome::Version;
        if (arg == "--replace") {
            options.replace = true;
            continue;
        }
        const size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        if (name != "--fail" && valueOptions.count(name) == 0) {
            error = "unknown option \"" + arg + "\" (see --help)";
            return ParseOutcome::BadUsage;
        }
        if (equals == std::string::npos && i + 1 == args.size()) {
            error = name + " needs a value";
            return ParseOutcome::BadUsage;
        }
        const std::string value = equals == std::string::npos ? args[++i] : arg.substr(equals + 1);
        if (!Store(options, name, value, error)) return ParseOutcome::BadUsage;
    }
    if (options.setDir.empty() != options.usbDir.empty()) {
        error = "--set-dir and --usb-dir go together";
        return ParseOutcome::BadUsage;
    }
    return ParseOutcome::Run;
}

const char* UsageText() {
    return "Usage: terms-service-sim [OPTION]...\n"
           "A simulated terms-client service: owns a bus name on the system bus (or the bus\n"
           "DBUS_SYSTEM_BUS_ADDRESS names) and answers the terms library's requests from a catalogue.\n"
           "\n"
           "  --catalogue FILE         the catalogue (default: the installed sample catalogue)\n"
           "  --store-root DIR         root of the configuration store (sets VCONF_ROOT)\n"
           "  --set-dir DIR            the set's side of the clone-data requests\n"
           "  --usb-dir DIR            the USB side of the clone-data requests (with --set-dir)\n"
           "  --bus-name NAME          the bus name to own (default com.velmora.tv.termsclient)\n"
           "  --replace                take the bus name over from the process that owns it\n"
           "                           (without it, start refuses when the name has an owner)\n"
           "  --fail METHOD=MODE       misbehave for one request method, or \"*\" for all; MODE is\n"
           "                           refuse (result false), delay:MS (answer MS milliseconds late)\n"
           "                           or silent (never answer); may be given several times\n"
           "  -h, --help               show this help\n"
           "      --version            show the version\n"
           "\n"
           "Example: terms-service-sim --catalogue data/catalogue.json --store-root /tmp/store \\\n"
           "             --fail \"set one agreement=refuse\" --fail \"get disclaimer number=delay:2000\"\n"
           "\n"
           "Exit status: 0 stopped by SIGINT or SIGTERM; 1 could not start (catalogue, store, bus,\n"
           "or the name has an owner); 2 bad usage; 3 another process took the bus name; 4 the bus\n"
           "went away (the bus daemon stopped or restarted).\n";
}

}  // namespace termssim
