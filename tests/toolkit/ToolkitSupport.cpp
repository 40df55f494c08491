#include "ToolkitSupport.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "EchoCallback.h"
#include "TermsDbusServer.h"

namespace toolkit_test {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);

int MillisecondsLeft(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

GDBusConnection* SharedBus() {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (!bus) throw std::runtime_error("no system bus");
    return bus;
}

}  // namespace

TermsDbusMessage MakeRequest(const char* from, uint32_t code, const char* type, const char* message,
                             std::vector<unsigned char>* payload) {
    TermsDbusMessage msg{};
    InitiateTermsDbusMessage(&msg, const_cast<char*>(from), code, const_cast<char*>(type), const_cast<char*>(message),
                             payload ? payload->data() : nullptr,
                             payload ? static_cast<uint32_t>(payload->size()) : 0);
    return msg;
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    const pid_t parent = getpid();
    m_Pid = fork();
    if (m_Pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        dup2(fds[1], STDOUT_FILENO);
        std::vector<char*> args;
        for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    close(fds[1]);
    m_Output = fds[0];
}

ChildProcess::~ChildProcess() {
    if (m_Pid > 0) {
        kill(m_Pid, SIGTERM);
        while (waitpid(m_Pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    if (m_Output >= 0) close(m_Output);
}

bool ChildProcess::ReadLine(std::string& line) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        const size_t end = m_Pending.find('\n');
        if (end != std::string::npos) {
            line = m_Pending.substr(0, end);
            m_Pending.erase(0, end + 1);
            m_Lines.push_back(line);
            return true;
        }
        pollfd output{m_Output, POLLIN, 0};
        if (poll(&output, 1, MillisecondsLeft(deadline)) <= 0) return false;
        char chunk[512];
        const ssize_t got = read(m_Output, chunk, sizeof(chunk));
        if (got <= 0) return false;
        m_Pending.append(chunk, static_cast<size_t>(got));
    }
}

bool ChildProcess::WaitForLine(const std::string& wanted) {
    std::string line;
    while (ReadLine(line)) {
        if (line == wanted) return true;
    }
    return false;
}

CommandResult RunWhileServing(const std::vector<std::string>& argv) {
    std::vector<const char*> args;
    for (const std::string& arg : argv) args.push_back(arg.c_str());
    args.push_back(nullptr);
    GError* error = nullptr;
    GSubprocess* process = g_subprocess_newv(args.data(), G_SUBPROCESS_FLAGS_STDOUT_PIPE, &error);
    if (!process) {
        CommandResult failed{-1, error->message};
        g_error_free(error);
        return failed;
    }
    struct Outcome {
        bool done = false;
        gchar* output = nullptr;
    } outcome;
    g_subprocess_communicate_utf8_async(
        process, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
            auto* finished = static_cast<Outcome*>(data);
            g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &finished->output, nullptr, nullptr);
            finished->done = true;
        },
        &outcome);
    IterateUntil([&] { return outcome.done; });
    g_subprocess_wait(process, nullptr, nullptr);
    CommandResult result{g_subprocess_get_if_exited(process) ? g_subprocess_get_exit_status(process) : -1,
                         outcome.output ? outcome.output : ""};
    g_free(outcome.output);
    g_object_unref(process);
    return result;
}

bool IterateUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done()) {
        if (MillisecondsLeft(deadline) == 0) return false;
        g_main_context_iteration(nullptr, FALSE);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool WaitForBusName(const std::string& name) {
    GDBusConnection* bus = SharedBus();
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    gboolean owned = FALSE;
    while (!owned && MillisecondsLeft(deadline) > 0) {
        GVariant* reply = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                      "org.freedesktop.DBus", "NameHasOwner",
                                                      g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(b)"),
                                                      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        if (reply) {
            g_variant_get(reply, "(b)", &owned);
            g_variant_unref(reply);
        }
        if (!owned) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    g_object_unref(bus);
    return owned != FALSE;
}

std::string OwnUniqueName() {
    GDBusConnection* bus = SharedBus();
    const std::string name = g_dbus_connection_get_unique_name(bus);
    g_object_unref(bus);
    return name;
}

InProcessServer::InProcessServer(const char* busName) {
    InitiateTermsDbusServer(kHandle);
    RegisterTermsDbusCallback(kHandle, TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(EchoCallback),
                              const_cast<char*>(kLabel));
    RegisterTermsDbusCallback(kHandle, TERMS_DBUS_CALLBACK_NAME_ACQUIRED,
                              reinterpret_cast<void*>(+[](void* acquired) { *static_cast<bool*>(acquired) = true; }),
                              &m_Acquired);
    m_Up = CreateTermsDbusServer(busName) && IterateUntil([this] { return m_Acquired; });
}

InProcessServer::~InProcessServer() {
    if (g_DbusServer) CloseTermsDbusServer(kHandle);
}

}  // namespace toolkit_test
