// The bus-client framework stand-in against a scripted service on the private bus.
#include <corvane/TCServer.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <thread>
#include <tuple>

#include "FakeTermsService.h"
#include "LogCapture.h"
#include "PrivateBus.h"

namespace {

using testbed::FakeReply;

const char kPeer[] = "org.example.Corvane_Peer2";

// The serial of a connection made now (":1.<serial>"), which grows with every connection.
long NextConnectionSerial() {
    sd_bus* bus = nullptr;
    const char* unique = ":1.-1";
    if (sd_bus_open_system(&bus) >= 0) sd_bus_get_unique_name(bus, &unique);
    const long serial = std::stol(std::string(unique).substr(3));
    sd_bus_flush_close_unref(bus);
    return serial;
}

class ACorvaneServer : public testing::Test {
protected:
    void SetUp() override { m_Service.Start(); }

    bool Send(const Json::Value& body, Corvane::TCMessage* reply, int timeout_ms = -1, const char* dest = kPeer) {
        Corvane::TCMessage request;
        request.body = body;
        return m_Server.SendMessage(dest, &request, true, reply, timeout_ms);
    }

    testbed::LogCapture m_Log;
    testbed::FakeTermsService m_Service{kPeer};
    Corvane::TCServer m_Server{"CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2};
};

TEST_F(ACorvaneServer, SendsNameCodeProtocolAndCompactJsonAndWaitsWithoutLimitForAPlainReply) {
    m_Service.SetDefaultReply({FakeReply::Kind::Json, FakeReply::Shape::Plain, Json::Value("answer"), "", "", 300});
    Corvane::TCMessage request, reply;
    request.protocol = "common_protocol";
    request.body["method"] = "get agreement";
    request.body["data"]["items"].append("two words");
    ASSERT_TRUE(m_Server.SendMessage(kPeer, &request, true, &reply, -1));
    EXPECT_EQ(reply.body, Json::Value("answer"));
    const auto sent = m_Service.Requests();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(std::tie(sent[0].busMethod, sent[0].from, sent[0].code, sent[0].protocol, sent[0].bodyText),
              std::make_tuple("SendMessage", "CAutoConnect", 0u, "common_protocol",
                              R"({"data":{"items":["two words"]},"method":"get agreement"})"));
}

TEST_F(ACorvaneServer, FailsWithANullBodyAndOneLogLineSayingWhyForEveryUnusableOrMissingAnswer) {
    const std::tuple<const char*, FakeReply, const char*, int> cases[] = {
        {"unexpected type", {FakeReply::Kind::Json, FakeReply::Shape::Other, {}, "", "", 0}, kPeer, -1},
        {"does not parse as JSON", FakeReply::NotJson("not json"), kPeer, -1},
        {"D-Bus error org.example.Error.Refused", FakeReply::Error("org.example.Error.Refused"), kPeer, -1},
        {"D-Bus error", FakeReply::Result(true), "org.example.Nobody", -1},
        {"timed out", FakeReply::NoReply(), kPeer, 200},
        {"timed out", FakeReply::NoReply(), kPeer, 0}};
    for (const auto& [why, fake, dest, limit] : cases) {
        m_Service.SetDefaultReply(fake);
        m_Log.Clear();
        Corvane::TCMessage reply;
        reply.body = "left over";
        EXPECT_FALSE(Send(Json::Value("q"), &reply, limit, dest)) << why;
        EXPECT_TRUE(reply.body.isNull()) << why;
        const auto lines = m_Log.Lines();
        ASSERT_EQ(lines.size(), 1u) << why;
        EXPECT_EQ(lines[0].tag, "Corvane");
        EXPECT_NE(lines[0].text.find(why), std::string::npos) << lines[0].text;
    }
}

TEST_F(ACorvaneServer, ReusesTheThreadsConnectionForEveryRequestAndServer) {
    Corvane::TCMessage request, reply;
    ASSERT_TRUE(Send(Json::Value("first"), &reply));
    const long before = NextConnectionSerial();
    for (int i = 0; i < 10; ++i) {
        Corvane::TCServer server("CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2);
        ASSERT_TRUE(server.CreateDBusProxy());
        ASSERT_TRUE(server.SendMessage(kPeer, &request, true, &reply, -1));
        server.CloseDBusProxy();
    }
    EXPECT_EQ(NextConnectionSerial(), before + 1) << "only the probe itself connected in between";
}

TEST_F(ACorvaneServer, ServesSeveralThreadsWithTheirOwnServersAtOnce) {
    m_Service.SetHandler([](const testbed::ReceivedRequest& request) { return FakeReply::WithBody(request.body); });
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            Corvane::TCServer server("Thread" + std::to_string(t), Corvane::TCServer::TC_SERVER_TYPE_2);
            Corvane::TCMessage request, reply;
            for (int n = 0; n < 25; ++n) {
                request.body = 100 * t + n;
                wrong += !server.SendMessage(kPeer, &request, true, &reply, -1) || reply.body != request.body;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(ACorvaneServer, RecoversOnTheSameThreadAfterTheBusDaemonRestarts) {
    Corvane::TCMessage reply;
    ASSERT_TRUE(Send(Json::Value("before restart"), &reply));
    m_Service.Stop();
    testbed::PrivateBus::Current()->Stop();
    testbed::PrivateBus::Current()->Start();
    testbed::FakeTermsService restarted(kPeer);
    restarted.Start();
    EXPECT_TRUE(Send(Json::Value("after restart"), &reply));
}

}  // namespace
