// The C interface's registry: one server, found by its handle or its bus name.
#include <tuple>

#include "TermsDbusServer.h"
#include "ToolkitSupport.h"

using namespace toolkit_test;

namespace {

const char kBusName[] = "test.toolkit.registry";

int SignalVia(const char* name) {
    TermsDbusMessage msg = MakeRequest("t");
    return SendTermsDbusSignal(name, "Notice", &msg);
}

class TheServerRegistry : public testing::Test {
protected:
    // Reports are error lines on the system buffer.
    void ExpectReports(const std::string& message, size_t count = 1) {
        const auto lines = m_Log.WithMessage(message);
        ASSERT_EQ(lines.size(), count) << message;
        EXPECT_EQ(std::tie(lines[0].logId, lines[0].prio, lines[0].tag, lines[0].colour),
                  std::make_tuple(2, 6, std::string("Veranti"), std::string("\033[31m")));
    }

    void SetUp() override { ASSERT_TRUE(m_Server.up); }

    testbed::LogCapture m_Log;
    InProcessServer m_Server{kBusName};
};

TEST_F(TheServerRegistry, FindsTheOneServerByHandleOrBusNameOnly) {
    ExpectReports("Success to new TermsDbusServer, original Name: handle");
    ExpectReports("CreateTermsDbusServer Sucess");
    EXPECT_EQ(SignalVia(kHandle), 1);
    EXPECT_EQ(SignalVia(kBusName), 1);
    EXPECT_EQ(SignalVia("test.toolkit"), 0);
    ExpectReports("Failed to get TermsDbusServerInstance, serviceName: test.toolkit");
    RegisterTermsDbusCallback("other", TERMS_DBUS_CALLBACK_NAME_LOST, nullptr, nullptr);
    ExpectReports("RegisterTermsDbusCallback fail !!! type [1]");
    EXPECT_EQ(CloseTermsDbusServer("other"), 0);
    ExpectReports("CloseTermsDbusServer fail !!! service name [other]");
    EXPECT_FALSE(g_DbusServer->CreateDbusServer("test.other"));
    EXPECT_EQ(g_DbusServer->getDbusServiceName(), kBusName);
    EXPECT_EQ(SignalVia(kBusName), 1);
}

TEST_F(TheServerRegistry, IsEmptyAfterCloseAndRefusesEveryUseIncludingASecondClose) {
    EXPECT_EQ(CloseTermsDbusServer(kBusName), 1);
    EXPECT_EQ(g_DbusServer, nullptr);
    ExpectReports("CloseTermsDbusServer Finish, service name [test.toolkit.registry]");
    EXPECT_EQ(CloseTermsDbusServer(kBusName), 0);
    EXPECT_EQ(SignalVia(kBusName), 0);
    TermsDbusMessage request = MakeRequest("t"), reply{};
    EXPECT_EQ(SendTermsDbusSyncMessage(kBusName, kBusName, &request, &reply, 1000), 0);
    RegisterTermsDbusCallback(kBusName, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr);
    EXPECT_EQ(CreateTermsDbusServer(kBusName), 0);
    ExpectReports("CreateTermsDbusServer Fail");
    ExpectReports("Failed to get TermsDbusServerInstance, serviceName: test.toolkit.registry", 4);
}

TEST_F(TheServerRegistry, RefusesEveryNullNameWithTheNullReport) {
    TermsDbusMessage msg = MakeRequest("t"), reply{};
    EXPECT_EQ(InitiateTermsDbusServer(nullptr), 0);
    EXPECT_EQ(CreateTermsDbusServer(nullptr), 0);
    RegisterTermsDbusCallback(nullptr, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr);
    EXPECT_EQ(SendTermsDbusSignal(nullptr, "Notice", &msg), 0);
    EXPECT_EQ(SendTermsDbusSignal(kBusName, nullptr, &msg), 0);
    EXPECT_EQ(SendTermsDbusSyncMessage(nullptr, kBusName, &msg, &reply, 100), 0);
    EXPECT_EQ(SendTermsDbusSyncMessage(kBusName, nullptr, &msg, &reply, 100), 0);
    EXPECT_EQ(CloseTermsDbusServer(nullptr), 0);
    ExpectReports("ERROR! service or signal name, char string is NULL", 8);
    EXPECT_NE(g_DbusServer, nullptr);
}

// GDBus meets a malformed name with a critical, which G_DEBUG=fatal-criticals
// turns into an abort; the toolkit refuses such names before GDBus sees them.
TEST(AToolkitServer, RefusesNamesThatDBusRejectsWithoutAGLibCritical) {
    int criticals = 0;
    const guint handler = g_log_set_handler(
        "GLib-GIO", G_LOG_LEVEL_CRITICAL,
        [](const gchar*, GLogLevelFlags, const gchar*, gpointer count) { ++*static_cast<int*>(count); }, &criticals);
    TermsDbusMessage msg = MakeRequest("t"), reply{};

    ASSERT_EQ(InitiateTermsDbusServer(kHandle), 1);
    EXPECT_EQ(CreateTermsDbusServer("test.not-a-path"), 0) << "a bus name, but no object path";
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &msg), 0);
    EXPECT_EQ(CloseTermsDbusServer(kHandle), 1);

    ASSERT_EQ(InitiateTermsDbusServer(kHandle), 1);
    EXPECT_EQ(CreateTermsDbusServer("not a bus name"), 0);
    EXPECT_EQ(CloseTermsDbusServer(kHandle), 1);

    InProcessServer server{kBusName};
    ASSERT_TRUE(server.up);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "not a member", &msg), 0);
    EXPECT_EQ(SendTermsDbusSyncMessage(kHandle, "no-dots", &msg, &reply, 1000), 0);
    EXPECT_EQ(SendTermsDbusSignal(kHandle, "Notice", &msg), 1) << "still serving";

    g_log_remove_handler("GLib-GIO", handler);
    EXPECT_EQ(criticals, 0);
}

}  // namespace
