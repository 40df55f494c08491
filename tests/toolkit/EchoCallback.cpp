#include "EchoCallback.h"

#include <cstring>
#include <string>

namespace toolkit_test {

uint64_t SumOfBytes(const TermsDbusMessage& msg) {
    uint64_t sum = 0;
    for (uint32_t i = 0; i < msg.buffer_size; ++i) sum += msg.buffer[i];
    return sum;
}

int EchoCallback(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void* label) {
    const std::string type = request->type ? request->type : "";
    if (type == "fail") return 0;
    if (type == "empty") return 1;
    if (type == "badtext") {
        reply->from = CopyTermsDbusString("\xff\xfe");
        reply->message = CopyTermsDbusString("ok\xc3");
        return 1;
    }
    if (type == "oversize") {
        reply->buffer = AllocateTermsDbusBuffer(kOversizePayload);
        reply->buffer_size = kOversizePayload;
        return 1;
    }
    reply->from = CopyTermsDbusString(static_cast<const char*>(label));
    if (type == "measure") {
        reply->code = request->buffer_size;
        reply->message = CopyTermsDbusString(std::to_string(SumOfBytes(*request)).c_str());
        return 1;
    }
    reply->code = request->code + 1;
    reply->type = CopyTermsDbusString(request->type);
    reply->message = CopyTermsDbusString(request->message);
    if (request->buffer_size > 0) {
        reply->buffer = AllocateTermsDbusBuffer(request->buffer_size);
        std::memcpy(reply->buffer, request->buffer, request->buffer_size);
        reply->buffer_size = request->buffer_size;
    }
    return 1;
}

}  // namespace toolkit_test
