// Two processes running the toolkit: this one calls, ToolkitPeer answers.
#ifndef TOOLKIT_TWO_PROCESS_EXCHANGE_H
#define TOOLKIT_TWO_PROCESS_EXCHANGE_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "TermsDbusUtil.h"
#include "ToolkitSupport.h"

namespace toolkit_test {

const char kPeer[] = "test.toolkit.peer";
const char kPeerPath[] = "/test/toolkit/peer";
const char kFailJson[] = "{\"dbus_result\":\"fail\",\"errmsg\":\"error handling\"}";
constexpr int kTimeLimitMs = 20000;

inline TermsDbusMessage MakeCallRequest(const char* type, std::vector<unsigned char>* payload) {
    return MakeRequest("caller", 41, type, "hello", payload);
}

// The largest payload whose call of this type to the peer fits in one bus
// message: every further byte costs 8 more wire bytes.
inline uint32_t LargestPayloadThatFits(const char* type) {
    std::vector<unsigned char> one(1, 1);
    const TermsDbusMessage msg = MakeCallRequest(type, &one);
    std::string method;
    GVariant* body = g_variant_ref_sink(TermsDbusUtil::MakeMsgInputToParams(method, msg));
    const size_t size =
        TermsDbusUtil::GetWireSize(body, {kPeerPath, kPeer, method.c_str(), kPeer, OwnUniqueName().c_str()});
    g_variant_unref(body);
    return static_cast<uint32_t>((TermsDbusUtil::kMaxBusMessageSize - size) / 8 + 1);
}

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

class ATwoProcessExchange : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_Caller.IsUp());
        ASSERT_TRUE(m_Peer.WaitForLine("ready"));
        ASSERT_TRUE(WaitForBusName(kPeer));
    }
    int Call(const char* type, std::vector<unsigned char>* payload, FilledRecord& reply, const char* to = kPeer,
             int timeLimitMs = kTimeLimitMs) {
        TermsDbusMessage request = MakeCallRequest(type, payload);
        return SendTermsDbusSyncMessage(InProcessServer::kHandle, to, &request, &reply.msg, timeLimitMs);
    }
    void ExpectEcho(const FilledRecord& reply, const char* from = "peer") {
        EXPECT_STREQ(reply.msg.from, from);
        EXPECT_EQ(reply.msg.code, 42u);
        EXPECT_STREQ(reply.msg.type, "echo");
        EXPECT_STREQ(reply.msg.message, "hello");
    }
    void ExpectFailureReply(const FilledRecord& reply) {
        EXPECT_STREQ(reply.msg.from, "");
        EXPECT_EQ(reply.msg.code, 0u);
        EXPECT_STREQ(reply.msg.message, kFailJson);
        EXPECT_EQ(reply.msg.buffer_size, 0u);
    }
    void ExpectPeerStillAnswers() {
        FilledRecord reply;
        ASSERT_EQ(Call("echo", nullptr, reply), 1);
        ExpectEcho(reply);
    }

    testbed::LogCapture m_Log;
    InProcessServer m_Caller{"test.toolkit.caller"};
    ChildProcess m_Peer{{TOOLKIT_PEER, kPeer, "peer"}};
};

}  // namespace toolkit_test

#endif
