// The largest payload the bus carries, between two processes. Slow: GDBus
// takes seconds to marshal and parse millions of one-byte structs.
#include "EchoCallback.h"
#include "TwoProcessExchange.h"

using namespace toolkit_test;

TEST_F(ATwoProcessExchange, CarriesTheLargestPayloadTheBusAccepts) {
    const uint32_t largest = LargestPayloadThatFits("measure");
    EXPECT_GT(largest, 4194000u);
    std::vector<unsigned char> payload(largest);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<unsigned char>(i * 7 + 1);
    TermsDbusMessage sent = MakeCallRequest("measure", &payload);
    FilledRecord reply;
    ASSERT_EQ(Call("measure", &payload, reply, kPeer, 300000), 1);
    EXPECT_EQ(reply.msg.code, largest);
    EXPECT_EQ(reply.msg.message, std::to_string(SumOfBytes(sent)));
}
