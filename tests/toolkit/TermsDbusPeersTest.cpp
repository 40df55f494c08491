// Two processes running the toolkit: this one calls, ToolkitPeer answers.
#include "TwoProcessExchange.h"

using namespace toolkit_test;

struct PayloadCase {
    const char* name;
    std::vector<unsigned char> sent;
    std::vector<unsigned char> echoed;
};

void PrintTo(const PayloadCase& c, std::ostream* os) { *os << c.name; }

class ATwoProcessRoundTrip : public ATwoProcessExchange, public testing::WithParamInterface<PayloadCase> {};

TEST_P(ATwoProcessRoundTrip, CarriesThePayloadBothWays) {
    std::vector<unsigned char> sent = GetParam().sent;
    FilledRecord reply;
    ASSERT_EQ(Call("echo", sent.empty() ? nullptr : &sent, reply), 1);
    ExpectEcho(reply);
    EXPECT_EQ(reply.Payload(), GetParam().echoed);
}

INSTANTIATE_TEST_SUITE_P(Payloads, ATwoProcessRoundTrip,
                         testing::Values(PayloadCase{"None", {}, {}},
                                         PayloadCase{"OneZeroByteReadsAsNone", {0x00}, {}},
                                         PayloadCase{"OneByte01", {0x01}, {0x01}},
                                         PayloadCase{"Bytes", {0x00, 0xFF, 0x00}, {0x00, 0xFF, 0x00}}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ATwoProcessExchange, RefusesAPayloadTooLargeForTheBusAndStaysConnected) {
    std::vector<unsigned char> payload(LargestPayloadThatFits("echo") + 1, 1);
    FilledRecord reply;
    EXPECT_EQ(Call("echo", &payload, reply), 0);
    EXPECT_EQ(reply.msg.message, nullptr);
    EXPECT_TRUE(m_Log.Has("Fail of g_dbus_connection_call_sync"));
    ExpectPeerStillAnswers();
}

TEST_F(ATwoProcessExchange, GetsTheFailureReplyWhenThePeersCallbackFails) {
    FilledRecord reply;
    ASSERT_EQ(Call("fail", nullptr, reply), 1);
    ExpectFailureReply(reply);
}

TEST_F(ATwoProcessExchange, GetsTheFailureReplyWhenThePeersReplyIsTooLarge) {
    FilledRecord reply;
    ASSERT_EQ(Call("oversize", nullptr, reply), 1);
    ExpectFailureReply(reply);
    ExpectPeerStillAnswers();
}

TEST_F(ATwoProcessExchange, GetsOneWellFormedReplyWhenThePeerFillsItBadly) {
    FilledRecord empty, badText;
    ASSERT_EQ(Call("empty", nullptr, empty), 1);
    EXPECT_STREQ(empty.msg.from, "");
    EXPECT_STREQ(empty.msg.message, "");
    ASSERT_EQ(Call("badtext", nullptr, badText), 1);
    EXPECT_STREQ(badText.msg.from, "\xef\xbf\xbd\xef\xbf\xbd");
    EXPECT_STREQ(badText.msg.type, "");
    EXPECT_STREQ(badText.msg.message, "ok\xef\xbf\xbd");
    ExpectPeerStillAnswers();
}

TEST_F(ATwoProcessExchange, ReachesTheServerThatReplacedThePeer) {
    ASSERT_TRUE(m_Peer.WaitForLine("acquired"));
    ChildProcess successor({TOOLKIT_PEER, kPeer, "successor"});
    ASSERT_TRUE(successor.WaitForLine("acquired"));
    EXPECT_TRUE(m_Peer.WaitForLine("lost"));
    FilledRecord reply;
    ASSERT_EQ(Call("echo", nullptr, reply), 1);
    ExpectEcho(reply, "successor");
}

TEST_F(ATwoProcessExchange, FailsAtOnceForANameNobodyOwns) {
    const auto start = std::chrono::steady_clock::now();
    FilledRecord reply;
    EXPECT_EQ(Call("echo", nullptr, reply, "test.toolkit.nobody"), 0);
    EXPECT_LT(SecondsSince(start), 10.0);
    EXPECT_TRUE(m_Log.Has("Fail of g_dbus_connection_call_sync"));
}

TEST(ASilentPeer, MakesTheCallFailAfterItsTimeLimit) {
    InProcessServer caller("test.toolkit.caller");
    ChildProcess silent({TOOLKIT_PEER, kPeer, "silent", "silent"});
    ASSERT_TRUE(silent.WaitForLine("ready"));
    ASSERT_TRUE(WaitForBusName(kPeer));
    TermsDbusMessage request = MakeRequest("caller", 1, "t", "m"), reply{};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(SendTermsDbusSyncMessage(InProcessServer::kHandle, kPeer, &request, &reply, 300), 0);
    EXPECT_LT(SecondsSince(start), 10.0);
    EXPECT_EQ(reply.from, nullptr);
}

#ifdef ECHO_EXAMPLE
TEST(TheEchoExample, AnswersGdbusAndItsOwnClientMode) {
    ChildProcess example({ECHO_EXAMPLE, "test.toolkit.example"});
    ASSERT_TRUE(example.WaitForLine("serving test.toolkit.example"));
    const CommandResult answer = RunWhileServing({"gdbus", "call", "--system", "--dest", "test.toolkit.example",
                                                  "--object-path", "/test/toolkit/example", "--method",
                                                  "test.toolkit.example.SendMessage", "a", "7", "t", "m"});
    EXPECT_EQ(answer.output, "('test.toolkit.example', uint32 7, 't', 'echo: m', [(byte 0x00,)])\n");
    const CommandResult call =
        RunWhileServing({ECHO_EXAMPLE, "test.toolkit.example.client", "--call", "test.toolkit.example", "hi"});
    EXPECT_EQ(call.exitStatus, 0);
    EXPECT_EQ(call.output, "reply from test.toolkit.example: echo: hi\n");
}
#endif
