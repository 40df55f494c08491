// The C interface's registry: one server, found by its handle or its bus name.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "LogCapture.h"
#include "TermsDbusServer.h"
#include "ToolkitSupport.h"

using namespace toolkit_test;

namespace {

const char kBusName[] = "test.toolkit.registry";
const char kNullName[] = "ERROR! service or signal name, char string is NULL";

int SignalVia(const char* name) {
    TermsDbusMessage msg = MakeRequest("r", 1, "t", "m");
    return SendTermsDbusSignal(name, "Notice", &msg);
}

void ExpectSystemReport(const testbed::LogCapture& log, const std::string& message) {
    const auto lines = log.WithMessage(message);
    ASSERT_EQ(lines.size(), 1u) << message;
    EXPECT_EQ(lines[0].logId, 2);
    EXPECT_EQ(lines[0].prio, 6);
    EXPECT_EQ(lines[0].tag, "Veranti");
    EXPECT_EQ(lines[0].colour, "\033[31m");
}

}  // namespace

class TheServerRegistry : public testing::Test {
protected:
    testbed::LogCapture m_Log;
};

TEST_F(TheServerRegistry, ReportsCreationOnTheSystemBuffer) {
    InProcessServer server(kBusName);
    ASSERT_TRUE(server.IsUp());
    ExpectSystemReport(m_Log, "Success to new TermsDbusServer, original Name: handle");
    ExpectSystemReport(m_Log, "CreateTermsDbusServer Sucess");
}

TEST_F(TheServerRegistry, FindsTheServerByHandleOrBusNameOnly) {
    InProcessServer server(kBusName);
    ASSERT_TRUE(server.IsUp());
    EXPECT_EQ(SignalVia(InProcessServer::kHandle), 1);
    EXPECT_EQ(SignalVia(kBusName), 1);
    EXPECT_EQ(SignalVia("test.toolkit"), 0);
    ExpectSystemReport(m_Log, "Failed to get TermsDbusServerInstance, serviceName: test.toolkit");
    RegisterTermsDbusCallback("other", TERMS_DBUS_CALLBACK_NAME_LOST, nullptr, nullptr);
    ExpectSystemReport(m_Log, "RegisterTermsDbusCallback fail !!! type [1]");
}

TEST_F(TheServerRegistry, KeepsTheServerWhenClosingAnUnknownName) {
    InProcessServer server(kBusName);
    ASSERT_TRUE(server.IsUp());
    EXPECT_EQ(CloseTermsDbusServer("other"), 0);
    ExpectSystemReport(m_Log, "CloseTermsDbusServer fail !!! service name [other]");
    EXPECT_EQ(SignalVia(kBusName), 1);
}

TEST_F(TheServerRegistry, IsEmptyAfterCloseAndRefusesEveryUse) {
    InProcessServer server(kBusName);
    ASSERT_TRUE(server.IsUp());
    EXPECT_EQ(CloseTermsDbusServer(kBusName), 1);
    EXPECT_EQ(g_DbusServer, nullptr);
    ExpectSystemReport(m_Log, "CloseTermsDbusServer Finish, service name [test.toolkit.registry]");
    EXPECT_TRUE(m_Log.Has("Delete TermsDbusServer instance"));

    EXPECT_EQ(CloseTermsDbusServer(kBusName), 0);
    EXPECT_EQ(SignalVia(kBusName), 0);
    TermsDbusMessage request = MakeRequest("r", 1, "t", "m"), reply{};
    EXPECT_EQ(SendTermsDbusSyncMessage(kBusName, kBusName, &request, &reply, 1000), 0);
    EXPECT_EQ(CreateTermsDbusServer(kBusName), 0);
    EXPECT_EQ(m_Log.Count("CreateTermsDbusServer Fail"), 1u);
    EXPECT_EQ(m_Log.Count("Failed to get TermsDbusServerInstance, serviceName: test.toolkit.registry"), 3u);
}

TEST_F(TheServerRegistry, TreatsAServerNeverInitiatedAsNotFound) {
    EXPECT_EQ(CreateTermsDbusServer(kBusName), 0);
    RegisterTermsDbusCallback(kBusName, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr);
    EXPECT_EQ(SignalVia(kBusName), 0);
    EXPECT_EQ(CloseTermsDbusServer(kBusName), 0);
    EXPECT_EQ(m_Log.Count("Failed to get TermsDbusServerInstance, serviceName: test.toolkit.registry"), 3u);
}

TEST_F(TheServerRegistry, RefusesEveryNullNameWithTheNullReport) {
    InProcessServer server(kBusName);
    ASSERT_TRUE(server.IsUp());
    TermsDbusMessage msg = MakeRequest("r", 1, "t", "m"), reply{};
    const std::pair<const char*, std::function<int()>> calls[] = {
        {"Initiate", [] { return InitiateTermsDbusServer(nullptr); }},
        {"Create", [] { return CreateTermsDbusServer(nullptr); }},
        {"Register", [] { RegisterTermsDbusCallback(nullptr, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr); return 0; }},
        {"SignalService", [&] { return SendTermsDbusSignal(nullptr, "Notice", &msg); }},
        {"SignalName", [&] { return SendTermsDbusSignal(kBusName, nullptr, &msg); }},
        {"SyncService", [&] { return SendTermsDbusSyncMessage(nullptr, kBusName, &msg, &reply, 100); }},
        {"SyncDestination", [&] { return SendTermsDbusSyncMessage(kBusName, nullptr, &msg, &reply, 100); }},
        {"Close", [] { return CloseTermsDbusServer(nullptr); }},
    };
    for (const auto& [name, call] : calls) {
        m_Log.Clear();
        EXPECT_EQ(call(), 0) << name;
        ExpectSystemReport(m_Log, kNullName);
    }
    EXPECT_NE(g_DbusServer, nullptr);
}

TEST(AMessageRecord, IsReleasedTwiceHarmlesslyAndKeepsCodeAndSize) {
    TermsDbusMessage msg{};
    InitiateTermsDbusMessage(&msg, CopyTermsDbusString("f"), 9, CopyTermsDbusString(nullptr),
                             CopyTermsDbusString("m"), AllocateTermsDbusBuffer(4), 4);
    EXPECT_STREQ(msg.type, "");
    ReleaseTermsDbusMessage(&msg);
    ReleaseTermsDbusMessage(&msg);
    EXPECT_EQ(msg.from, nullptr);
    EXPECT_EQ(msg.buffer, nullptr);
    EXPECT_EQ(msg.code, 9u);
    EXPECT_EQ(msg.buffer_size, 4u);
}
