// A toolkit server in its own process, for the tests on the other side.
//   ToolkitPeer <bus name> <label> [silent]
// Answers with EchoCallback (the label as "from") on a GLib main loop and
// prints "ready" once created, then "acquired" and "lost" as the name moves.
// With "silent" it never runs its loop, so calls to it are never answered.
#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "EchoCallback.h"

namespace {

void Say(void* line) {
    std::printf("%s\n", static_cast<const char*>(line));
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <bus name> <label> [silent]\n", argv[0]);
        return 2;
    }
    const char* handle = "peer";
    InitiateTermsDbusServer(handle);
    RegisterTermsDbusCallback(handle, TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(toolkit_test::EchoCallback),
                              argv[2]);
    RegisterTermsDbusCallback(handle, TERMS_DBUS_CALLBACK_NAME_ACQUIRED, reinterpret_cast<void*>(Say),
                              const_cast<char*>("acquired"));
    RegisterTermsDbusCallback(handle, TERMS_DBUS_CALLBACK_NAME_LOST, reinterpret_cast<void*>(Say),
                              const_cast<char*>("lost"));
    if (!CreateTermsDbusServer(argv[1])) return 1;
    Say(const_cast<char*>("ready"));
    if (argc > 3 && std::strcmp(argv[3], "silent") == 0) {
        for (;;) pause();
    }
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_main_loop_run(loop);
    return 0;
}
