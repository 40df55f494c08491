// The bus-client framework stand-in against a scripted service on the private bus.
#include <corvane/TCServer.h>
#include <gtest/gtest.h>

#include <tuple>

#include "FakeTermsService.h"
#include "LogCapture.h"

namespace {

using testbed::FakeReply;

const char kPeer[] = "org.example.Corvane_Peer2";

// A failure leaves the body null and logs one line saying why.
TEST(ACorvaneServer, SendsItsWireFormatParsesAJsonReplyOfEitherShapeAndFailsOnAnythingElseOrLate) {
    testbed::LogCapture log;
    testbed::FakeTermsService service(kPeer);
    service.Start();
    Corvane::TCServer server("CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2);
    Corvane::TCMessage request, reply;
    request.protocol = "common_protocol";
    request.body["data"]["items"].append("two words");
    const std::tuple<const char*, FakeReply, const char*, int> cases[] = {
        {nullptr, {FakeReply::Kind::Json, FakeReply::Shape::Plain, "answer", "", "", 300}, kPeer, -1},
        {"unexpected type", {FakeReply::Kind::Json, FakeReply::Shape::Other, {}, "", "", 0}, kPeer, -1},
        {"does not parse as JSON", FakeReply::NotJson("not json"), kPeer, -1},
        {"D-Bus error org.example.Error.Refused", FakeReply::Error("org.example.Error.Refused"), kPeer, -1},
        {"D-Bus error", FakeReply::Result(true), "org.example.Nobody", -1},
        {"timed out after 200 ms", FakeReply::NoReply(), kPeer, 200},
        {"timed out after 0 ms", FakeReply::NoReply(), kPeer, 0},
        // Error replies that sd-bus maps to a time-out errno are still the bus's own errors.
        {"D-Bus error org.freedesktop.DBus.Error.NoReply: fake failure",
         FakeReply::Error("org.freedesktop.DBus.Error.NoReply"), kPeer, 5000},
        {"D-Bus error org.freedesktop.DBus.Error.Timeout: fake failure",
         FakeReply::Error("org.freedesktop.DBus.Error.Timeout"), kPeer, -1}};
    for (const auto& [why, fake, dest, limit] : cases) {
        service.SetDefaultReply(fake);
        log.Clear();
        reply.body = "left over";
        EXPECT_EQ(server.SendMessage(dest, &request, true, &reply, limit), !why) << why;
        EXPECT_EQ(reply.body, why ? Json::Value() : Json::Value("answer")) << why;
        const auto lines = log.Lines();
        ASSERT_EQ(lines.size(), why ? 1u : 0u) << why;
        EXPECT_TRUE(!why || (lines[0].tag == "Corvane" && lines[0].text.find(why) != std::string::npos)) << why;
    }
    const testbed::ReceivedRequest sent = service.Requests().at(0);
    EXPECT_EQ(
        std::tie(sent.busMethod, sent.from, sent.code, sent.protocol, sent.bodyText),
        std::make_tuple("SendMessage", "CAutoConnect", 0u, "common_protocol", R"({"data":{"items":["two words"]}})"));
}

}  // namespace
