// Slow: GDBus takes seconds to marshal and parse millions of one-byte structs.
#include <numeric>

#include "ToolkitSupport.h"

using namespace toolkit_test;

TEST_F(AToolkitPeer, CarriesTheLargestPayloadTheBusAccepts) {
    std::vector<unsigned char> payload(LargestPayloadThatFits("measure"));
    EXPECT_GT(payload.size(), 4194000u);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<unsigned char>(i * 7 + 1);
    FilledRecord reply;
    ASSERT_EQ(Call("measure", &payload, reply, kPeer, 300000), 1);
    EXPECT_EQ(reply.msg.code, payload.size());
    EXPECT_EQ(reply.msg.message, std::to_string(std::accumulate(payload.begin(), payload.end(), 0ul)));
}
