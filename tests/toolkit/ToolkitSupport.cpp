#include "ToolkitSupport.h"

#include <gio/gio.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "TermsDbusUtil.h"

namespace toolkit_test {
namespace {

std::vector<char*> Argv(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    return argv;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    auto dieWithTheTest = [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); };
    if (!g_spawn_async_with_pipes(nullptr, Argv(argv).data(), nullptr, G_SPAWN_DO_NOT_REAP_CHILD, dieWithTheTest,
                                  nullptr, &m_Pid, nullptr, &m_Output, nullptr, nullptr))
        throw std::runtime_error("cannot start " + argv[0]);
}

ChildProcess::~ChildProcess() {
    kill(m_Pid, SIGTERM);
    waitpid(m_Pid, nullptr, 0);
    close(m_Output);
}

bool ChildProcess::WaitForLine(const std::string& wanted) {
    for (;;) {
        for (size_t end; (end = m_Pending.find('\n')) != std::string::npos;) {
            const bool found = m_Pending.compare(0, end, wanted) == 0;
            m_Pending.erase(0, end + 1);
            if (found) return true;
        }
        pollfd output{m_Output, POLLIN, 0};
        char chunk[512];
        ssize_t got = 0;
        if (poll(&output, 1, 10000) <= 0 || (got = read(m_Output, chunk, sizeof(chunk))) <= 0) return false;
        m_Pending.append(chunk, static_cast<size_t>(got));
    }
}

std::string OutputOf(const std::vector<std::string>& argv) {
    gchar* output = nullptr;
    g_spawn_sync(nullptr, Argv(argv).data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &output, nullptr, nullptr,
                 nullptr);
    const std::string text = output ? output : "";
    g_free(output);
    return text;
}

uint32_t LargestPayloadThatFits(const char* type) {
    std::vector<unsigned char> one(1, 1);
    std::string method;
    GVariant* body = g_variant_ref_sink(TermsDbusUtil::MakeMsgInputToParams(method, MakeRequest(type, &one)));
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    const size_t size = TermsDbusUtil::GetWireSize(
        body, {kPeerPath, kPeer, method.c_str(), kPeer, g_dbus_connection_get_unique_name(bus)});
    g_object_unref(bus);
    g_variant_unref(body);
    // Each further byte is a "(y)" struct, aligned to 8 bytes on the wire.
    return static_cast<uint32_t>((TermsDbusUtil::kMaxBusMessageSize - size) / 8 + 1);
}

}  // namespace toolkit_test
