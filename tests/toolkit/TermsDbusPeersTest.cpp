// A ToolkitPeer process answers this process's toolkit and peers no one here wrote.
#include <chrono>

#include "ToolkitSupport.h"

using namespace toolkit_test;

namespace {

const char kFailJson[] = "{\"dbus_result\":\"fail\",\"errmsg\":\"error handling\"}";

std::string GdbusCall(const std::string& name, const char* path, const char* type) {
    return OutputOf({"gdbus", "call", "--system", "--dest", name, "--object-path", path, "--method",
                     name + ".SendMessage", "a", "7", type, "m"});
}

}  // namespace

// Null texts go out empty, invalid UTF-8 repaired: one well-formed reply whatever the callback did.
TEST_F(AToolkitPeer, AnswersGdbusCallWithTheCallbacksReplyTheFailureReplyOrAWellFormedOne) {
    const std::pair<const char*, std::string> cases[] = {
        {"t", "('peer', uint32 8, 't', 'm', [(byte 0x00,)])"},
        {"fail", std::string("('', uint32 0, '', '") + kFailJson + "', [(byte 0x00,)])"},
        {"empty", "('', uint32 0, '', '', [(byte 0x00,)])"},
        {"badtext", "('\xef\xbf\xbd\xef\xbf\xbd', uint32 0, '', 'ok\xef\xbf\xbd', [(byte 0x00,)])"}};
    for (const auto& [type, reply] : cases) EXPECT_EQ(GdbusCall(kPeer, kPeerPath, type), reply + "\n") << type;
    ExpectEcho();
}

TEST_F(AToolkitPeer, AnswersBusctlAndADbusPythonClient) {
    EXPECT_EQ(OutputOf({"busctl", "--system", "call", kPeer, kPeerPath, kPeer, "SendMessageWithBuffer", "sussa(y)", "b",
                        "41", "t", "m", "2", "9", "1"}),
              "sussa(y) \"peer\" 42 \"t\" \"m\" 2 9 1\n");
    EXPECT_EQ(OutputOf({"/usr/bin/python3", TOOLKIT_SCRIPTS "/call_with_dbus_python.py", kPeer}),
              "peer 7 t bytes [1, 2, 3]\n");
}

TEST_F(AToolkitPeer, IsIntrospectedWithItsTwoMethods) {
    const std::string output =
        OutputOf({"gdbus", "introspect", "--system", "--dest", kPeer, "--object-path", kPeerPath});
    for (const char* part : {"interface test.toolkit.peer {", "SendMessage(in  s from,",
                             "SendMessageWithBuffer(in  s from,", "out a* buffer);"})
        EXPECT_NE(output.find(part), std::string::npos) << part << " in " << output;
}

TEST_F(AToolkitPeer, CarriesThePayloadBothWaysAndReadsALoneZeroByteAsNone) {
    const std::pair<std::vector<unsigned char>, std::vector<unsigned char>> cases[] = {
        {{}, {}}, {{0x00}, {}}, {{0x01}, {0x01}}, {{0x00, 0xFF, 0x00}, {0x00, 0xFF, 0x00}}};
    for (const auto& [sent, echoed] : cases) ExpectEcho("peer", sent, echoed);
}

TEST_F(AToolkitPeer, RefusesACallOrReplyTooLargeForTheBusAndStaysConnected) {
    std::vector<unsigned char> payload(LargestPayloadThatFits("echo") + 1, 1);
    FilledRecord refused, failure;
    EXPECT_EQ(Call("echo", &payload, refused), 0);
    EXPECT_EQ(refused.msg.message, nullptr);
    ASSERT_EQ(Call("oversize", nullptr, failure), 1);
    EXPECT_STREQ(failure.msg.from, "");
    EXPECT_EQ(failure.msg.code, 0u);
    EXPECT_STREQ(failure.msg.message, kFailJson);
    EXPECT_EQ(failure.msg.buffer_size, 0u);
    ExpectEcho();
}

TEST_F(AToolkitPeer, LosesItsNameToAServerThatReplacesIt) {
    ChildProcess successor({TOOLKIT_PEER, kPeer, "successor"});
    ASSERT_TRUE(successor.WaitForLine("acquired"));
    EXPECT_TRUE(m_Peer.WaitForLine("lost"));
    ExpectEcho("successor");
}

// The default limit (20 s) is far above the 10 s allowed: a missing name fails at once.
TEST_F(AToolkitPeer, FailsACallToAMissingNameOrOneUnansweredWithinItsTimeLimit) {
    const std::pair<const char*, int> cases[] = {{"test.toolkit.nobody", 20000}, {kPeer, 300}};
    for (const auto& [destination, timeLimitMs] : cases) {
        const auto start = std::chrono::steady_clock::now();
        FilledRecord reply;
        EXPECT_EQ(Call("stall", nullptr, reply, destination, timeLimitMs), 0) << destination;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << destination;
    }
}

TEST(AToolkitServer, EmitsSignalsWithAndWithoutPayloadButRefusesOneTooLargeForTheBus) {
    InProcessServer server("test.toolkit.server");
    ChildProcess subscriber({"/usr/bin/python3", TOOLKIT_SCRIPTS "/subscribe_signal.py", "test.toolkit.server"});
    ASSERT_TRUE(server.up && subscriber.WaitForLine("ready"));
    std::vector<unsigned char> huge(4200000, 1), payload = {0, 1, 2};
    TermsDbusMessage tooLarge = MakeRequest("t", &huge), plain = MakeRequest("plain"),
                     withPayload = MakeRequest("bytes", &payload);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &tooLarge), 0);
    EXPECT_EQ(SendTermsDbusSignal("test.toolkit.server", "Notice", &plain), 1);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &withPayload), 1);
    EXPECT_TRUE(subscriber.WaitForLine("(suss) ('caller', 41, 'plain', 'hello')"));
    EXPECT_TRUE(subscriber.WaitForLine("(sussa(y)) ('caller', 41, 'bytes', 'hello', [(0,), (1,), (2,)])"));
}

TEST(TheEchoExample, AnswersGdbusAndItsOwnClientMode) {
    ChildProcess example({ECHO_EXAMPLE, "test.toolkit.example"});
    ASSERT_TRUE(example.WaitForLine("serving test.toolkit.example"));
    EXPECT_EQ(GdbusCall("test.toolkit.example", "/test/toolkit/example", "t"),
              "('test.toolkit.example', uint32 7, 't', 'echo: m', [(byte 0x00,)])\n");
    EXPECT_EQ(OutputOf({ECHO_EXAMPLE, "test.toolkit.example.client", "--call", "test.toolkit.example", "hi"}),
              "reply from test.toolkit.example: echo: hi\n");
}
