#include <corvane/TCServer.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "FakeTermsService.h"
#include "LogCapture.h"
#include "PrivateBus.h"

namespace {

using testbed::FakeReply;
using testbed::ReceivedRequest;

const char kPeer[] = "org.example.Corvane_Peer2";

bool WaitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// Names on the bus, seen through a connection of its own (counted among them).
std::vector<std::string> BusNames() {
    sd_bus* bus = nullptr;
    sd_bus_message* reply = nullptr;
    std::vector<std::string> names;
    if (sd_bus_open_system(&bus) >= 0 &&
        sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
                           nullptr, &reply, "") >= 0) {
        char** list = nullptr;
        if (sd_bus_message_read_strv(reply, &list) >= 0) {
            for (char** name = list; name && *name; ++name) names.push_back(*name), free(*name);
            free(list);
        }
    }
    sd_bus_message_unref(reply);
    sd_bus_flush_close_unref(bus);
    return names;
}

// The serial number of a connection made now (":1.<serial>"); grows with every connection.
long NextConnectionSerial() {
    sd_bus* bus = nullptr;
    const char* unique = nullptr;
    long serial = -1;
    if (sd_bus_open_system(&bus) >= 0 && sd_bus_get_unique_name(bus, &unique) >= 0)
        serial = std::stol(std::string(unique).substr(3));
    sd_bus_flush_close_unref(bus);
    return serial;
}

class ACorvaneServer : public testing::Test {
protected:
    void SetUp() override { m_Service.Start(); }

    bool Send(Corvane::TCServer& server, const Json::Value& body, Corvane::TCMessage* reply, int timeout_ms = -1,
              bool sync = true, const char* dest = kPeer) {
        Corvane::TCMessage request;
        request.body = body;
        return server.SendMessage(dest, &request, sync, reply, timeout_ms);
    }
    bool Send(const Json::Value& body, Corvane::TCMessage* reply, int timeout_ms = -1) {
        return Send(m_Server, body, reply, timeout_ms);
    }

    std::vector<testbed::LogLine> CorvaneLines() const {
        std::vector<testbed::LogLine> lines;
        for (const testbed::LogLine& line : m_Log.Lines())
            if (line.tag == "Corvane") lines.push_back(line);
        return lines;
    }

    static Json::Value Body(const std::string& method) {
        Json::Value body(Json::objectValue);
        body["method"] = method;
        return body;
    }

    testbed::LogCapture m_Log;
    testbed::FakeTermsService m_Service{kPeer};
    Corvane::TCServer m_Server{"CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2};
};

TEST_F(ACorvaneServer, CallsSendMessageOnTheDestinationWithNameCodeProtocolAndCompactJson) {
    Corvane::TCMessage request, reply;
    request.protocol = "common_protocol";
    request.body["method"] = "get agreement";
    request.body["data"] = Json::Value();
    request.body["list"].append(1);
    request.body["list"].append("two words");
    request.body["list"][2]["nested"] = true;
    ASSERT_TRUE(m_Server.SendMessage(kPeer, &request, true, &reply, -1));

    const std::vector<ReceivedRequest> received = m_Service.Requests();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].busMethod, "SendMessage");
    EXPECT_EQ(received[0].from, "CAutoConnect");
    EXPECT_EQ(received[0].code, 0u);
    EXPECT_EQ(received[0].protocol, "common_protocol");
    EXPECT_EQ(received[0].bodyText, R"({"data":null,"list":[1,"two words",{"nested":true}],"method":"get agreement"})");
}

TEST_F(ACorvaneServer, ParsesTheFourthMemberOfRepliesWithOrWithoutPayload) {
    for (const FakeReply::Shape shape : {FakeReply::Shape::WithPayload, FakeReply::Shape::Plain}) {
        Json::Value answer = Body("answer");
        answer["result"] = true;
        answer["text"] = "caf\xc3\xa9 \"quoted\"";
        FakeReply fake = FakeReply::WithBody(answer);
        fake.shape = shape;
        m_Service.SetDefaultReply(fake);
        Corvane::TCMessage reply;
        EXPECT_TRUE(Send(Body("q"), &reply));
        EXPECT_EQ(reply.body, answer);
    }
    EXPECT_TRUE(CorvaneLines().empty());
}

TEST_F(ACorvaneServer, FailsWithANullReplyBodyAndOneLogLineForEveryUnusableAnswer) {
    FakeReply otherType = FakeReply::WithBody(Body("x"));
    otherType.shape = FakeReply::Shape::Other;
    const std::vector<std::pair<const char*, FakeReply>> cases = {
        {"reply of another type", otherType},
        {"text that is not JSON", FakeReply::NotJson("not json")},
        {"JSON with trailing text", FakeReply::NotJson("{\"result\":true} trailing")},
        {"empty text", FakeReply::NotJson("")},
        {"JSON nested beyond the reader's limit", FakeReply::NotJson(std::string(5000, '[') + std::string(5000, ']'))},
        {"D-Bus error", FakeReply::Error("org.example.Error.Refused")},
    };
    for (const auto& [what, fake] : cases) {
        m_Service.SetDefaultReply(fake);
        m_Log.Clear();
        Corvane::TCMessage reply;
        reply.body = "left over";
        EXPECT_FALSE(Send(Body("q"), &reply)) << what;
        EXPECT_TRUE(reply.body.isNull()) << what;
        EXPECT_EQ(CorvaneLines().size(), 1u) << what;
    }
}

TEST_F(ACorvaneServer, FailsWhenNoOneOwnsTheDestination) {
    Corvane::TCMessage reply;
    EXPECT_FALSE(Send(m_Server, Body("q"), &reply, -1, true, "org.example.Nobody"));
    EXPECT_TRUE(reply.body.isNull());
    EXPECT_EQ(CorvaneLines().size(), 1u);
}

TEST_F(ACorvaneServer, GivesUpAtTheTimeLimitWhenThePeerNeverAnswers) {
    m_Service.SetDefaultReply(FakeReply::NoReply());
    for (const int limit : {200, 0}) {
        m_Log.Clear();
        Corvane::TCMessage reply;
        EXPECT_FALSE(Send(Body("q"), &reply, limit)) << limit;
        ASSERT_EQ(CorvaneLines().size(), 1u) << limit;
        EXPECT_NE(CorvaneLines()[0].text.find("timed out"), std::string::npos) << CorvaneLines()[0].text;
    }
}

TEST_F(ACorvaneServer, WaitsWithoutALimitForALateAnswer) {
    FakeReply late = FakeReply::Result(true);
    late.delayMs = 300;
    m_Service.SetDefaultReply(late);
    Corvane::TCMessage reply;
    EXPECT_TRUE(Send(Body("q"), &reply, -1));
    EXPECT_TRUE(reply.body["result"].asBool());
}

TEST_F(ACorvaneServer, SendsWithoutWaitingWhenNotSynchronous) {
    m_Service.SetDefaultReply(FakeReply::NoReply());
    EXPECT_TRUE(Send(m_Server, Body("fire and forget"), nullptr, -1, false));
    EXPECT_TRUE(WaitFor([this] { return m_Service.RequestsNamed("fire and forget").size() == 1; }));
}

TEST_F(ACorvaneServer, SendsWithOrWithoutAnOpenProxyAndToleratesRepeatedOpenAndClose) {
    Corvane::TCMessage reply;
    m_Server.CloseDBusProxy();
    EXPECT_TRUE(Send(Body("before open"), &reply));
    EXPECT_TRUE(m_Server.CreateDBusProxy());
    EXPECT_TRUE(m_Server.CreateDBusProxy());
    EXPECT_TRUE(Send(Body("while open"), &reply));
    m_Server.CloseDBusProxy();
    m_Server.CloseDBusProxy();
    EXPECT_TRUE(Send(Body("after close"), &reply));
}

TEST_F(ACorvaneServer, ReusesTheThreadsConnectionForEveryRequestAndServer) {
    Corvane::TCMessage reply;
    ASSERT_TRUE(Send(Body("first"), &reply));
    const long before = NextConnectionSerial();
    for (int i = 0; i < 10; ++i) {
        Corvane::TCServer server("CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2);
        ASSERT_TRUE(server.CreateDBusProxy());
        ASSERT_TRUE(Send(server, Body("again"), &reply));
        server.CloseDBusProxy();
    }
    EXPECT_EQ(NextConnectionSerial(), before + 1) << "only the probe itself connected in between";
}

TEST_F(ACorvaneServer, ServesSeveralThreadsWithTheirOwnServersAtOnceAndClosesTheirConnections) {
    m_Service.SetHandler([](const ReceivedRequest& request) { return FakeReply::WithBody(request.body); });
    const size_t namesBefore = BusNames().size();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            Corvane::TCServer server("Thread" + std::to_string(t), Corvane::TCServer::TC_SERVER_TYPE_2);
            server.CreateDBusProxy();
            for (int n = 0; n < 25; ++n) {
                Json::Value body = Body("echo");
                body["thread"] = t;
                body["n"] = n;
                Corvane::TCMessage reply;
                if (!Send(server, body, &reply) || reply.body != body) ++wrong;
            }
            server.CloseDBusProxy();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(m_Service.Requests().size(), 100u);
    EXPECT_TRUE(WaitFor([&] { return BusNames().size() == namesBefore; })) << "thread connections left open";
}

TEST_F(ACorvaneServer, RecoversOnTheSameThreadAfterTheBusDaemonRestarts) {
    testbed::PrivateBus& bus = *testbed::PrivateBus::Current();
    Corvane::TCMessage reply;
    ASSERT_TRUE(Send(Body("before restart"), &reply));
    m_Service.Stop();
    bus.Stop();
    bus.Start();
    testbed::FakeTermsService restarted(kPeer);
    restarted.Start();
    EXPECT_TRUE(Send(Body("after restart"), &reply));

    restarted.Stop();
    bus.Stop();
    EXPECT_FALSE(Send(Body("while down"), &reply));
    bus.Start();
    restarted.Start();
    EXPECT_TRUE(Send(Body("after second restart"), &reply));
    EXPECT_EQ(restarted.Requests().size(), 2u);
}

}  // namespace
