// The toolkit's server in this process, called by peers no one here wrote:
// gdbus, busctl and dbus-python, with its signals received by a GIO subscriber.
#include <gtest/gtest.h>

#include <string>

#include "EchoCallback.h"
#include "LogCapture.h"
#include "TermsDbusServer.h"
#include "ToolkitSupport.h"

using namespace toolkit_test;

namespace {

const char kBusName[] = "test.toolkit.server";
const char kPath[] = "/test/toolkit/server";

std::vector<std::string> GdbusCall(const char* method, std::vector<std::string> arguments) {
    std::vector<std::string> argv = {"gdbus", "call", "--system", "--dest", kBusName, "--object-path", kPath,
                                     "--method", std::string(kBusName) + "." + method};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return argv;
}

}  // namespace

class AToolkitServer : public testing::Test {
protected:
    testbed::LogCapture m_Log;
    InProcessServer m_Server{kBusName};
};

TEST_F(AToolkitServer, AnswersGdbusCallWithTheCallbacksReply) {
    ASSERT_TRUE(m_Server.IsUp());
    const CommandResult result = RunWhileServing(GdbusCall("SendMessage", {"a", "7", "t", "m"}));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "('in-process', uint32 8, 't', 'm', [(byte 0x00,)])\n");
    for (const char* line : {"get message", "methodName: SendMessage", "start to callback func", "dbus return response"}) {
        EXPECT_TRUE(m_Log.Has(line)) << line;
    }
}

TEST_F(AToolkitServer, SendsTheFailureReplyWhenTheCallbackFails) {
    ASSERT_TRUE(m_Server.IsUp());
    const CommandResult result = RunWhileServing(GdbusCall("SendMessage", {"a", "7", "fail", "m"}));
    EXPECT_EQ(result.output,
              "('', uint32 0, '', '{\"dbus_result\":\"fail\",\"errmsg\":\"error handling\"}', [(byte 0x00,)])\n");
    EXPECT_FALSE(m_Log.Has("dbus return response"));
}

TEST_F(AToolkitServer, AnswersWithTheLastMessageCallbackRegisteredForTheMessageSlot) {
    ASSERT_TRUE(m_Server.IsUp());
    void* echo = reinterpret_cast<void*>(EchoCallback);
    RegisterTermsDbusCallback(kBusName, TERMS_DBUS_CALLBACK_MESSAGE, echo, const_cast<char*>("second"));
    RegisterTermsDbusCallback(kBusName, static_cast<TermsDbusCallbackType>(3), echo, const_cast<char*>("third"));
    RegisterTermsDbusCallback(kBusName, static_cast<TermsDbusCallbackType>(-1), echo, const_cast<char*>("fourth"));
    const CommandResult result = RunWhileServing(GdbusCall("SendMessage", {"a", "7", "t", "m"}));
    EXPECT_EQ(result.output, "('second', uint32 8, 't', 'm', [(byte 0x00,)])\n");
}

TEST_F(AToolkitServer, RepliesWithEmptyTextsWithoutAMessageCallback) {
    ASSERT_TRUE(m_Server.IsUp());
    RegisterTermsDbusCallback(kBusName, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr);
    const CommandResult result = RunWhileServing(GdbusCall("SendMessage", {"a", "7", "t", "m"}));
    EXPECT_EQ(result.output, "('', uint32 0, '', '', [(byte 0x00,)])\n");
}

TEST_F(AToolkitServer, IsIntrospectedWithItsTwoMethods) {
    ASSERT_TRUE(m_Server.IsUp());
    const CommandResult result =
        RunWhileServing({"gdbus", "introspect", "--system", "--dest", kBusName, "--object-path", kPath});
    EXPECT_NE(result.output.find("interface test.toolkit.server {"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("SendMessage(in  s from,\n"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("SendMessageWithBuffer(in  s from,\n"), std::string::npos);
    EXPECT_NE(result.output.find("in  a* buffer,\n"), std::string::npos);
    EXPECT_NE(result.output.find("out a* buffer);\n"), std::string::npos);
}

TEST_F(AToolkitServer, AnswersBusctl) {
    ASSERT_TRUE(m_Server.IsUp());
    const CommandResult result = RunWhileServing({"busctl", "--system", "call", kBusName, kPath, kBusName,
                                                  "SendMessageWithBuffer", "sussa(y)", "b", "41", "t", "m", "2", "9",
                                                  "1"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "sussa(y) \"in-process\" 42 \"t\" \"m\" 2 9 1\n");
}

TEST_F(AToolkitServer, AnswersADbusPythonClient) {
    ASSERT_TRUE(m_Server.IsUp());
    const CommandResult result =
        RunWhileServing({"/usr/bin/python3", TOOLKIT_SCRIPTS "/call_with_dbus_python.py", kBusName});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "in-process 6 t hello [0]\nin-process 7 t bytes [1, 2, 3]\n");
}

TEST_F(AToolkitServer, EmitsSignalsThatASubscriberReceivesWithAndWithoutPayload) {
    ASSERT_TRUE(m_Server.IsUp());
    ChildProcess subscriber({"/usr/bin/python3", TOOLKIT_SCRIPTS "/subscribe_signal.py", kBusName, "Notice", "2"});
    ASSERT_TRUE(subscriber.WaitForLine("ready"));
    std::vector<unsigned char> payload = {0, 1, 2};
    TermsDbusMessage plain = MakeRequest("s", 1, "t", "plain");
    TermsDbusMessage withPayload = MakeRequest("s", 2, "t", "bytes", &payload);
    EXPECT_EQ(SendTermsDbusSignal(kBusName, "Notice", &plain), 1);
    EXPECT_EQ(SendTermsDbusSignal(InProcessServer::kHandle, "Notice", &withPayload), 1);
    EXPECT_TRUE(subscriber.WaitForLine("(sussa(y)) ('s', 2, 't', 'bytes', [(0,), (1,), (2,)])"));
    EXPECT_EQ(subscriber.Lines().at(1), "(suss) ('s', 1, 't', 'plain')");
    EXPECT_TRUE(m_Log.Has("Send Signal [Notice] : [success]."));
}

TEST_F(AToolkitServer, RefusesASignalTooLargeForTheBusAndStaysUsable) {
    ASSERT_TRUE(m_Server.IsUp());
    std::vector<unsigned char> payload(4200000, 1);
    TermsDbusMessage huge = MakeRequest("s", 1, "t", "m", &payload);
    EXPECT_EQ(SendTermsDbusSignal(kBusName, "Notice", &huge), 0);
    EXPECT_TRUE(m_Log.Has("Send Signal [Notice] : [fail]."));
    const CommandResult result = RunWhileServing(GdbusCall("SendMessage", {"a", "7", "t", "m"}));
    EXPECT_EQ(result.exitStatus, 0);
}

TEST_F(AToolkitServer, LeavesTheProcessAliveWhenTheSharedConnectionCloses) {
    ASSERT_TRUE(m_Server.IsUp());
    GDBusConnection* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    EXPECT_FALSE(g_dbus_connection_get_exit_on_close(shared));
    g_object_unref(shared);
}

TEST_F(AToolkitServer, RefusesASecondCreationAndKeepsItsName) {
    ASSERT_TRUE(m_Server.IsUp());
    EXPECT_FALSE(g_DbusServer->CreateDbusServer("test.other"));
    EXPECT_EQ(g_DbusServer->getDbusServiceName(), kBusName);
}

TEST_F(AToolkitServer, CannotSendAfterItIsClosedAndClosesTwiceHarmlessly) {
    ASSERT_TRUE(m_Server.IsUp());
    EXPECT_TRUE(g_DbusServer->CloseDbusServer());
    EXPECT_TRUE(g_DbusServer->CloseDbusServer());
    TermsDbusMessage msg = MakeRequest("s", 1, "t", "m");
    TermsDbusMessage reply{};
    EXPECT_FALSE(g_DbusServer->SendDbusSignal("Notice", msg));
    EXPECT_FALSE(g_DbusServer->SendDbusSyncMessage(kBusName, msg, reply, 1000));
    EXPECT_EQ(m_Log.Count("dbus connection is not open"), 2u);
}

TEST(ANewToolkitServer, RefusesAnEmptyServiceName) {
    testbed::LogCapture log;
    TermsDbusServer server("h");
    EXPECT_FALSE(server.CreateDbusServer(""));
    EXPECT_EQ(server.getDbusServiceName(), "");
    EXPECT_TRUE(log.Has("get serviceName is empty"));
    EXPECT_TRUE(server.CloseDbusServer());
}

TEST(ANewToolkitServer, FailsToRegisterAnObjectPathTheBusRejectsButKeepsTheName) {
    testbed::LogCapture log;
    TermsDbusServer server("h");
    EXPECT_FALSE(server.CreateDbusServer("test.bad-name"));
    EXPECT_EQ(server.getDbusServiceName(), "test.bad-name");
    EXPECT_TRUE(log.Has("Register Obj Path: /test/bad-name"));
    EXPECT_TRUE(log.Has("Register Obj Path Fail!"));
    EXPECT_TRUE(server.CloseDbusServer());
}
