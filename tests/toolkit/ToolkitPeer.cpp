// ToolkitPeer <bus name> <label>: prints "acquired" and "lost" as its name moves. Request types "fail", "stall",
// "badtext" (texts null or not UTF-8) and "oversize" pick the answer; others get label, code + 1, the rest echoed.
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "TermsDbusAPI.h"

static int Answer(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void* label) {
    const std::string type = request->type;
    if (type == "stall") pause();
    if (type == "badtext")
        reply->from = CopyTermsDbusString("\xff\xfe"), reply->message = CopyTermsDbusString("ok\xc3");
    if (type == "oversize") reply->buffer = AllocateTermsDbusBuffer(reply->buffer_size = 4200000);
    if (type == "fail" || type == "badtext" || type == "oversize") return type != "fail";
    reply->from = CopyTermsDbusString(static_cast<const char*>(label));
    reply->code = request->code + 1;
    reply->type = CopyTermsDbusString(request->type);
    reply->message = CopyTermsDbusString(request->message);
    reply->buffer = AllocateTermsDbusBuffer(reply->buffer_size = request->buffer_size);
    std::copy_n(request->buffer, request->buffer_size, reply->buffer);
    return 1;
}

int main(int, char** argv) {
    void* say = reinterpret_cast<void*>(+[](void* line) { std::puts(static_cast<const char*>(line)), fflush(stdout); });
    InitiateTermsDbusServer("peer");
    RegisterTermsDbusCallback("peer", TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(Answer), argv[2]);
    RegisterTermsDbusCallback("peer", TERMS_DBUS_CALLBACK_NAME_ACQUIRED, say, const_cast<char*>("acquired"));
    RegisterTermsDbusCallback("peer", TERMS_DBUS_CALLBACK_NAME_LOST, say, const_cast<char*>("lost"));
    if (!CreateTermsDbusServer(argv[1])) return 1;
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
