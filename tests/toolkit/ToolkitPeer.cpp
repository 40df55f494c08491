// A toolkit server in its own process: ToolkitPeer <bus name> <label>. Prints "acquired"
// and "lost" as its name moves. The request's type picks the answer: "fail", "stall",
// texts left null ("empty") or not UTF-8 ("badtext"), a payload too large ("oversize"),
// the payload's size and byte sum ("measure"), else an echo: label, code + 1, the rest.
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <string>

#include "TermsDbusAPI.h"

namespace {

int Answer(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void* label) {
    const std::string type = request->type;
    if (type == "stall") pause();
    if (type == "fail") return 0;
    if (type == "badtext") {
        reply->from = CopyTermsDbusString("\xff\xfe");
        reply->message = CopyTermsDbusString("ok\xc3");
    } else if (type == "oversize") {
        reply->buffer_size = 4200000;
        reply->buffer = AllocateTermsDbusBuffer(reply->buffer_size);
    } else if (type == "measure") {
        reply->code = request->buffer_size;
        const auto sum = std::accumulate(request->buffer, request->buffer + request->buffer_size, 0ul);
        reply->message = CopyTermsDbusString(std::to_string(sum).c_str());
    } else if (type != "empty") {
        reply->from = CopyTermsDbusString(static_cast<const char*>(label));
        reply->code = request->code + 1;
        reply->type = CopyTermsDbusString(request->type);
        reply->message = CopyTermsDbusString(request->message);
        reply->buffer = AllocateTermsDbusBuffer(request->buffer_size);
        std::copy_n(request->buffer, request->buffer_size, reply->buffer);
        reply->buffer_size = request->buffer_size;
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    void* say = reinterpret_cast<void*>(+[](void* line) { std::puts(static_cast<const char*>(line)); });
    InitiateTermsDbusServer("peer");
    RegisterTermsDbusCallback("peer", TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(Answer), argv[2]);
    RegisterTermsDbusCallback("peer", TERMS_DBUS_CALLBACK_NAME_ACQUIRED, say, const_cast<char*>("acquired"));
    RegisterTermsDbusCallback("peer", TERMS_DBUS_CALLBACK_NAME_LOST, say, const_cast<char*>("lost"));
    if (!CreateTermsDbusServer(argv[1])) return 1;
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}
