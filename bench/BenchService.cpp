// bench-service: the minimal terms-client service that the benchmarks call.
//
// It owns "com.velmora.tv.termsclient" and answers every SendMessage and
// SendMessageWithBuffer call at once with one fixed "(sussa(y))" reply whose
// message is a disclaimer of about 300 bytes of JSON carrying "result" true
// and a "number". Bare calls and library calls get the same bytes back, so
// the service costs them the same. The payload of a call is never read.
//
// Control (interface com.velmora.bench.Control on the same object):
//   SetDisclaimerNumber(u)  sets "number" in the fixed reply.
// A call whose type argument is "payload-reply" is answered with a payload of
// `code` bytes instead of the one-byte placeholder.
//
// Prints "ready" on standard output once the name is owned; runs until killed.
#include <systemd/sd-bus.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

const char kReplyFrom[] = "bench-service";

std::string FixedReply(unsigned number) {
    return R"({"result":true,"number":)" + std::to_string(number) +
           R"(,"id":"privacy-notice","order":1,"version":"3.2","title":"Privacy Notice",)"
           R"("intro":"How this television uses viewing information.",)"
           R"("details":"Viewing information is used only with your consent.",)"
           R"("button1":"Agree","button2":"Disagree","button3":"Details","is_agreed":false,)"
           R"("only_notice":false,"agree_dependency":"","ppused":true,"reverse":false})";
}

struct Service {
    std::string reply = FixedReply(1);
    std::vector<unsigned char> payload;  // the bytes of a "payload-reply"
};

// Appends `size` bytes as "a(y)", one one-byte struct per byte.
int AppendPayload(sd_bus_message* message, const unsigned char* data, size_t size) {
    int result = sd_bus_message_open_container(message, 'a', "(y)");
    for (size_t i = 0; result >= 0 && i < size; ++i) {
        result = sd_bus_message_open_container(message, 'r', "y");
        if (result >= 0) result = sd_bus_message_append_basic(message, 'y', &data[i]);
        if (result >= 0) result = sd_bus_message_close_container(message);
    }
    if (result >= 0) result = sd_bus_message_close_container(message);
    return result;
}

int AnswerMessage(sd_bus_message* call, Service& service) {
    const char *from = nullptr, *type = nullptr, *text = nullptr;
    uint32_t code = 0;
    int result = sd_bus_message_read(call, "suss", &from, &code, &type, &text);
    if (result < 0) return result;
    const bool withPayload = std::strcmp(type, bench::kPayloadReplyType) == 0;
    static const unsigned char kPlaceholder = 0;
    if (withPayload && service.payload.size() < code) service.payload.resize(code, 0x5a);

    sd_bus_message* reply = nullptr;
    result = sd_bus_message_new_method_return(call, &reply);
    if (result >= 0) result = sd_bus_message_append(reply, "suss", kReplyFrom, 0u, "", service.reply.c_str());
    if (result >= 0) {
        result =
            withPayload ? AppendPayload(reply, service.payload.data(), code) : AppendPayload(reply, &kPlaceholder, 1);
    }
    if (result >= 0) result = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return result;
}

int HandleControl(sd_bus_message* call, Service& service) {
    if (!sd_bus_message_is_method_call(call, bench::kControlInterface, "SetDisclaimerNumber")) return 0;
    unsigned number = 0;
    const int result = sd_bus_message_read(call, "u", &number);
    if (result < 0) return result;
    service.reply = FixedReply(number);
    return sd_bus_reply_method_return(call, "");
}

int OnCall(sd_bus_message* call, void* userData, sd_bus_error*) {
    Service& service = *static_cast<Service*>(userData);
    if (sd_bus_message_is_method_call(call, bench::kServiceName, "SendMessage") ||
        sd_bus_message_is_method_call(call, bench::kServiceName, "SendMessageWithBuffer")) {
        return AnswerMessage(call, service) < 0 ? -EINVAL : 1;
    }
    return HandleControl(call, service);
}

}  // namespace

int main() {
    Service service;
    sd_bus* bus = nullptr;
    int result = sd_bus_open_system(&bus);
    if (result >= 0) result = sd_bus_add_object(bus, nullptr, bench::kServicePath, OnCall, &service);
    if (result >= 0) result = sd_bus_request_name(bus, bench::kServiceName, 0);
    if (result < 0) {
        std::fprintf(stderr, "bench-service: cannot serve %s: %s\n", bench::kServiceName, std::strerror(-result));
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;) {
        result = sd_bus_process(bus, nullptr);
        if (result < 0) break;
        if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) break;
    }
    sd_bus_flush_close_unref(bus);
    return 0;
}
