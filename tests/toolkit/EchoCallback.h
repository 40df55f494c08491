// The message callback of the test servers. The request's type picks the answer:
//   "fail"      returns 0, so the server sends its failure reply;
//   "empty"     returns 1 and leaves the reply record as it came (null texts);
//   "badtext"   returns 1 with texts that are not UTF-8 and a null type;
//   "oversize"  returns 1 with a payload too large for one bus message;
//   "measure"   returns 1 with the payload's size as code and the sum of its
//               bytes as message, and no payload;
//   otherwise   echoes: from = the label (user data), code + 1, and copies of
//               type, message and payload.
#ifndef TOOLKIT_ECHO_CALLBACK_H
#define TOOLKIT_ECHO_CALLBACK_H

#include <cstdint>

#include "TermsDbusAPI.h"

namespace toolkit_test {

constexpr uint32_t kOversizePayload = 4200000;

uint64_t SumOfBytes(const TermsDbusMessage& msg);
int EchoCallback(const char* method, TermsDbusMessage* request, TermsDbusMessage* reply, void* label);

}  // namespace toolkit_test

#endif
