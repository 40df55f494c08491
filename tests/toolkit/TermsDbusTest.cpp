// The bus server toolkit: encodings, C registry, and servers in other processes called by peers.
#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "ChildProcess.h"
#include "LogCapture.h"
#include "TermsDbusServer.h"
#include "TermsDbusUtil.h"

using namespace TermsDbusUtil;
using Bytes = std::vector<unsigned char>;

namespace {

const char kHandle[] = "handle";
const char kBusName[] = "test.toolkit.registry";
const char kPeer[] = "test.toolkit.peer";
const char kFailJson[] = "{\"dbus_result\":\"fail\",\"errmsg\":\"error handling\"}";

// A request from "caller", code 41, message "hello", over bytes that outlive it.
TermsDbusMessage MakeRequest(const char* type, Bytes* payload = nullptr) {
    TermsDbusMessage msg;
    InitiateTermsDbusMessage(&msg, const_cast<char*>("caller"), 41, const_cast<char*>(type), const_cast<char*>("hello"),
                             payload ? payload->data() : nullptr, payload ? payload->size() : 0);
    return msg;
}

// A record the toolkit fills; released on destruction.
struct FilledRecord {
    TermsDbusMessage msg{};
    ~FilledRecord() { ReleaseTermsDbusMessage(&msg); }
};

// This process's toolkit server under kHandle; closed on destruction.
struct InProcessServer {
    explicit InProcessServer(const char* busName)
        : up(InitiateTermsDbusServer(kHandle) && CreateTermsDbusServer(busName)) {}
    ~InProcessServer() { CloseTermsDbusServer(kHandle); }
    const bool up;
};

std::string OutputOf(const std::string& program, const std::string& arguments) {
    return testbed::RunCommandLine(program, arguments).out;
}

std::string GdbusCall(const std::string& name, const std::string& type) {
    return OutputOf("gdbus", "call --system --dest " + name + " --object-path " + GetObjectPath(name) + " --method " +
                                 name + ".SendMessage a 7 " + type + " m");
}

// A program in the background, stopped at the end of the test.
struct ChildProcess : testbed::ChildProcess {
    using testbed::ChildProcess::ChildProcess;
    ~ChildProcess() { Stop(); }
};

TEST(TheEncodings, ChooseTheShapeByPayloadPresenceWrapPayloadsIgnoreOtherShapesAndMapNamesToPaths) {
    unsigned char byte = 0x01;
    const char *plain = "SendMessage(suss)", *withBuffer = "SendMessageWithBuffer(sussa(y))";
    const std::tuple<unsigned char*, uint32_t, const char*> cases[] = {
        {nullptr, 0, plain}, {&byte, 0, plain}, {nullptr, 1, plain}, {&byte, 1, withBuffer}};
    for (const auto& [buffer, bufferSize, shape] : cases) {
        TermsDbusMessage msg = MakeRequest("t");
        msg.buffer = buffer;
        msg.buffer_size = bufferSize;
        std::string method;
        g_autoptr(GVariant) call = g_variant_ref_sink(MakeMsgInputToParams(method, msg));
        EXPECT_EQ(method + g_variant_get_type_string(call), shape);
        g_autoptr(GVariant) payload = g_variant_n_children(call) == 5 ? g_variant_get_child_value(call, 4) : nullptr;
        EXPECT_TRUE(!payload || g_variant_get_data(payload) == &byte) << "a payload is wrapped, not copied";
    }
    g_autoptr(GVariant) other = g_variant_parse(nullptr, "('f', uint32 7, 't', 'm', [byte 1])", 0, 0, 0);
    TermsDbusMessage record{};
    EXPECT_TRUE(MakeParamsToMessage(other, record) && record.from == nullptr) << "another shape fills nothing";
    EXPECT_FALSE(MakeParamsToMessage(nullptr, record));
    for (const auto& [name, path] : {std::pair("a.b.c", "/a/b/c"), {"a..b", "/a//b"}, {"a.b.", "/a/b/"}, {"", "/"}})
        EXPECT_EQ(GetObjectPath(name), path) << name;
}

TEST(TheServerRegistry, FindsItsOneServerByEitherNameUntilClosedAndRefusesOtherAndNullNames) {
    testbed::LogCapture log;
    InProcessServer server(kBusName);
    ASSERT_TRUE(server.up);
    TermsDbusMessage msg = MakeRequest("t"), reply{};
    for (const auto& [name, found] : {std::pair(kHandle, 1), {kBusName, 1}, {"test.toolkit", 0}})
        EXPECT_EQ(SendTermsDbusSignal(name, "Notice", &msg), found) << name;
    RegisterTermsDbusCallback("other", TERMS_DBUS_CALLBACK_NAME_LOST, nullptr, nullptr);
    RegisterTermsDbusCallback(nullptr, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr);
    EXPECT_FALSE(g_DbusServer->CreateDbusServer("test.other")) << "a second create";
    for (const int result :
         {CloseTermsDbusServer("other"), InitiateTermsDbusServer(nullptr), CreateTermsDbusServer(nullptr),
          CloseTermsDbusServer(nullptr), SendTermsDbusSignal(nullptr, "Notice", &msg),
          SendTermsDbusSignal(kBusName, nullptr, &msg), SendTermsDbusSyncMessage(nullptr, kBusName, &msg, &reply, 100),
          SendTermsDbusSyncMessage(kBusName, nullptr, &msg, &reply, 100)})
        EXPECT_EQ(result, 0);
    EXPECT_EQ(SendTermsDbusSignal(kBusName, "Notice", &msg), 1) << "still there";
    EXPECT_EQ(CloseTermsDbusServer(kBusName), 1);
    EXPECT_EQ(g_DbusServer, nullptr);
    RegisterTermsDbusCallback(kBusName, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr);
    for (const int result :
         {CloseTermsDbusServer(kBusName), SendTermsDbusSignal(kBusName, "Notice", &msg),
          SendTermsDbusSyncMessage(kBusName, kBusName, &msg, &reply, 1000), CreateTermsDbusServer(kBusName)})
        EXPECT_EQ(result, 0);
    EXPECT_EQ(log.Count("ERROR! service or signal name, char string is NULL"), 8u);
    const testbed::LogLine line = log.WithMessage("CloseTermsDbusServer fail !!! service name [other]").at(0);
    EXPECT_EQ(std::tie(line.logId, line.prio, line.colour), std::make_tuple(2, 6, std::string("\033[31m")));
}

// GDBus meets a malformed name with a critical, made fatal here and, by G_DEBUG, in every test of this program.
// The interface is named after the bus name, so its introspection text grows with the name.
TEST(AToolkitServer, RefusesNamesThatDBusRejectsWithoutAGLibCriticalAndServesUnderTheLongestBusName) {
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));
    TermsDbusMessage msg = MakeRequest("t"), reply{};
    for (const char* busName : {"test.not-a-path", "not a bus name"}) {  // a bad object path, a bad bus name
        ASSERT_EQ(InitiateTermsDbusServer(kHandle), 1);
        EXPECT_EQ(CreateTermsDbusServer(busName) + SendTermsDbusSignal(kHandle, "Notice", &msg), 0) << busName;
        EXPECT_EQ(CloseTermsDbusServer(kHandle), 1);
    }
    const std::string longest = "test." + std::string(250, 'x');  // 255 characters, the bus's limit
    testbed::LogCapture log;
    InProcessServer server(longest.c_str());
    ASSERT_TRUE(server.up);
    EXPECT_EQ(log.Count("parse interface xml fail!"), 0u);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "not a member", &msg), 0);
    EXPECT_EQ(SendTermsDbusSyncMessage(kHandle, "no-dots", &msg, &reply, 1000), 0);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &msg), 1) << "still serving";
}

TEST(AToolkitServer, EmitsSignalsWithAndWithoutPayloadButRefusesOneTooLargeForTheBus) {
    InProcessServer server("test.toolkit.server");
    ChildProcess subscriber({"/usr/bin/python3", "-u", PYTHON_PEERS, "watch", "test.toolkit.server"});
    ASSERT_TRUE(server.up && subscriber.AwaitOutput("ready"));
    Bytes huge(4200000, 1), payload = {0, 1, 2};
    TermsDbusMessage tooLarge = MakeRequest("t", &huge), plain = MakeRequest("plain"),
                     withPayload = MakeRequest("bytes", &payload);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &tooLarge), 0);
    EXPECT_EQ(SendTermsDbusSignal("test.toolkit.server", "Notice", &plain), 1);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &withPayload), 1);
    EXPECT_TRUE(subscriber.AwaitOutput("(suss) ('caller', 41, 'plain', 'hello')"));
    EXPECT_TRUE(subscriber.AwaitOutput("(sussa(y)) ('caller', 41, 'bytes', 'hello', [(0,), (1,), (2,)])"));
}

class AToolkitPeer : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_Caller.up && m_Peer.AwaitOutput("acquired")); }
    int Call(const char* type, Bytes payload, FilledRecord& reply, const char* to = kPeer, int timeLimitMs = 20000) {
        TermsDbusMessage request = MakeRequest(type, payload.empty() ? nullptr : &payload);
        return SendTermsDbusSyncMessage(kHandle, to, &request, &reply.msg, timeLimitMs);
    }
    // Calls "echo" and expects the answer of the peer labelled `from`: code + 1, the rest as sent.
    void ExpectEcho(const char* from = "peer", const Bytes& sent = {}, const Bytes& echoed = {}, int limitMs = 20000) {
        FilledRecord reply;
        ASSERT_EQ(Call("echo", sent, reply, kPeer, limitMs), 1);
        EXPECT_TRUE(!g_strcmp0(reply.msg.from, from) && reply.msg.code == 42 && !g_strcmp0(reply.msg.type, "echo") &&
                    !g_strcmp0(reply.msg.message, "hello"));
        EXPECT_TRUE(Bytes(reply.msg.buffer, reply.msg.buffer + reply.msg.buffer_size) == echoed)
            << sent.size() << " bytes sent, " << reply.msg.buffer_size << " back";
    }
    // The largest payload a call to kPeer carries: each byte is a "(y)" struct, 8 bytes on the wire.
    uint32_t LargestPayloadThatFits() {
        std::string method;
        Bytes one(1, 1);
        g_autoptr(GVariant) body = g_variant_ref_sink(MakeMsgInputToParams(method, MakeRequest("echo", &one)));
        g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        const uint64_t size = GetWireSize(
            body, {"/test/toolkit/peer", kPeer, method.c_str(), kPeer, g_dbus_connection_get_unique_name(bus)});
        return (kMaxBusMessageSize - size) / 8 + 1;
    }

    InProcessServer m_Caller{"test.toolkit.caller"};
    ChildProcess m_Peer{{TOOLKIT_PEER, "test.toolkit.peer", "peer"}};
};

// Null texts go out empty, invalid UTF-8 repaired: one well-formed reply whatever the callback did.
TEST_F(AToolkitPeer, IsIntrospectedAndAnswersGdbusBusctlADbusPythonClientAndTheExampleClientWithAWellFormedReply) {
    EXPECT_EQ(GdbusCall(kPeer, "t"), "('peer', uint32 8, 't', 'm', [(byte 0x00,)])\n");
    EXPECT_EQ(GdbusCall(kPeer, "fail"), std::string("('', uint32 0, '', '") + kFailJson + "', [(byte 0x00,)])\n");
    EXPECT_EQ(GdbusCall(kPeer, "badtext"),
              "('\xef\xbf\xbd\xef\xbf\xbd', uint32 0, '', 'ok\xef\xbf\xbd', [(byte 0x00,)])\n");
    const std::string introspection =
        OutputOf("gdbus", "introspect --system --dest test.toolkit.peer --object-path /test/toolkit/peer");
    for (const char* part : {"interface test.toolkit.peer {", "SendMessage(in  s from,",
                             "SendMessageWithBuffer(in  s from,", "out a* buffer);"})
        EXPECT_NE(introspection.find(part), std::string::npos) << part << " in " << introspection;
    EXPECT_EQ(OutputOf("busctl",
                       "--system call test.toolkit.peer /test/toolkit/peer test.toolkit.peer "
                       "SendMessageWithBuffer sussa(y) b 41 echo m 2 9 1"),
              "sussa(y) \"peer\" 42 \"echo\" \"m\" 2 9 1\n");
    EXPECT_EQ(OutputOf("/usr/bin/python3", PYTHON_PEERS " call test.toolkit.peer"), "peer 7 echo bytes [1, 2, 3]\n");
    EXPECT_EQ(OutputOf(ECHO_EXAMPLE, "test.toolkit.example --call test.toolkit.peer echo"), "reply from peer: echo\n");
}

TEST_F(AToolkitPeer, CarriesPayloadsBothWaysButRefusesACallOrReplyTooLargeForTheBusAndStaysConnected) {
    const std::pair<Bytes, Bytes> cases[] = {{{}, {}}, {{0x00}, {}}, {{0x01}, {0x01}}, {{0, 0xFF, 0}, {0, 0xFF, 0}}};
    for (const auto& [sent, echoed] : cases) ExpectEcho("peer", sent, echoed);  // a lone 0 is the placeholder
    FilledRecord refused, failure;
    EXPECT_EQ(Call("echo", Bytes(LargestPayloadThatFits() + 1, 1), refused), 0);
    EXPECT_EQ(refused.msg.message, nullptr);
    ASSERT_EQ(Call("oversize", {}, failure), 1);
    EXPECT_TRUE(!g_strcmp0(failure.msg.from, "") && failure.msg.code == 0 && failure.msg.buffer_size == 0);
    EXPECT_STREQ(failure.msg.message, kFailJson);
    ExpectEcho();
}

// Labelled slow: GDBus takes seconds to marshal and parse millions of one-byte structs.
TEST_F(AToolkitPeer, CarriesTheLargestPayloadTheBusAccepts) {
    Bytes payload(LargestPayloadThatFits());
    EXPECT_GT(payload.size(), 4194000u);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<unsigned char>(i * 7 + 1);
    ExpectEcho("peer", payload, payload, 300000);
}

TEST_F(AToolkitPeer, LosesItsNameToTheExampleServerThatReplacesIt) {
    ChildProcess example({ECHO_EXAMPLE, "test.toolkit.peer"});
    ASSERT_TRUE(example.AwaitOutput("serving test.toolkit.peer"));
    EXPECT_TRUE(m_Peer.AwaitOutput("lost"));
    EXPECT_EQ(GdbusCall(kPeer, "t"), "('test.toolkit.peer', uint32 7, 't', 'echo: m', [(byte 0x00,)])\n");
}

TEST_F(AToolkitPeer, FailsACallToAMissingNameAtOnceAndAnUnansweredOneAfterItsTimeLimit) {
    FilledRecord reply;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Call("echo", {}, reply, "test.toolkit.nobody"), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "well within the 20 s limit";
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(Call("stall", {}, reply, kPeer, 300), 0);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(took >= std::chrono::milliseconds(300) && took < std::chrono::seconds(5));
}

}  // namespace
