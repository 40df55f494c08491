// Hostile texts on a real bus: a reply of 16 MiB, JSON nested far deeper than
// any reader allows in every text the library parses, and invalid UTF-8 in
// every text that crosses the bus, in both directions.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include "ClientTestBed.h"
#include "ReliabilitySupport.h"
#include "SimService.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

namespace {

using clienttest::ClientTestBed;
using clienttest::JsonOf;
using clienttest::LinesStartingWith;
using reliability::Filler;
using reliability::IsValidUtf8;
using reliability::NestedArrays;
using testbed::FakeReply;

constexpr size_t kSixteenMiB = 16u * 1024u * 1024u;
// Far beyond the JSON library's nesting limit (1000 levels).
constexpr size_t kDeep = 100000;

Json::Value DisclaimerReply(const std::string& id) {
    Json::Value reply = JsonOf(R"({"result":true,"title":"T","details":"[]"})");
    reply["id"] = id;
    return reply;
}

class ALargeReply : public ClientTestBed {};

TEST_F(ALargeReply, Of16MiBFillsTheRecordWholeAndLeavesTheClientServing) {
    Json::Value reply = DisclaimerReply("big");
    const std::string details = Filler(kSixteenMiB);
    reply["details"] = details;
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(reply));

    STHomeDisclaimerContentItem item;
    ASSERT_EQ(api->GetDisclaimerDetail("big", item, "TV"), 0);
    EXPECT_EQ(item.strDetails.size(), kSixteenMiB);
    EXPECT_TRUE(item.strDetails == details);
    EXPECT_TRUE(api->IsServiceAvailable());
}

TEST_F(ALargeReply, Of16MiBReachesAToolkitCallerWhole) {
    Json::Value body(Json::objectValue);
    body["result"] = true;
    body["text"] = Filler(kSixteenMiB);
    service.SetReply("big", FakeReply::WithBody(body));
    ASSERT_EQ(InitiateTermsDbusServer("reliability"), 1);
    ASSERT_EQ(CreateTermsDbusServer("com.velmora.tv.reliability"), 1);
    char from[] = "reliability", type[] = "", message[] = R"({"method":"big"})";
    TermsDbusMessage request = {};
    InitiateTermsDbusMessage(&request, from, 0, type, message, nullptr, 0);
    TermsDbusMessage reply = {};
    ASSERT_EQ(SendTermsDbusSyncMessage("reliability", "com.velmora.tv.termsclient", &request, &reply, 60000), 1);
    EXPECT_GT(strlen(reply.message), kSixteenMiB);
    EXPECT_EQ(JsonOf(reply.message)["text"].asString().size(), kSixteenMiB);
    ReleaseTermsDbusMessage(&reply);
    CloseTermsDbusServer("reliability");
}

class DeeplyNestedJson : public ClientTestBed {};

TEST_F(DeeplyNestedJson, InAReplyBodyIsAFailedRequest) {
    service.SetDefaultReply(FakeReply::NotJson(NestedArrays(kDeep)));
    EXPECT_FALSE(api->IsServiceAvailable());
    STHomeDisclaimerContentItem item;
    EXPECT_EQ(api->GetDisclaimerDetail("terms", item, "TV"), -1);
    EXPECT_EQ(api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_FALSE(LinesStartingWith(logs, "SendMessage to com.velmora.tv.termsclient got a reply body that does not parse")
                     .empty());
}

// Text nested deeper than the JSON reader's limit does not parse, wherever
// the library parses it: the reader's exception never leaves the library.
TEST_F(DeeplyNestedJson, InADetailsTextIsProseWithoutSections) {
    Json::Value reply = DisclaimerReply("deep");
    reply["details"] = NestedArrays(kDeep);
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(reply));
    STHomeDisclaimerContentItem item;
    EXPECT_EQ(api->GetDisclaimerDetail("deep", item, "TV"), 0);
    EXPECT_EQ(item.strDetails, NestedArrays(kDeep));
    EXPECT_TRUE(item.vecDetailData.empty());
    EXPECT_EQ(LinesStartingWith(logs, "<<WARN: NOT JSON TYPE MESSAGE>>").size(), 1u);
}

TEST_F(DeeplyNestedJson, InTheAgreementCacheIsAParserFailure) {
    store.Set(clienttest::kAgreementKey, "{\"terms\":" + NestedArrays(kDeep) + "}");
    EXPECT_FALSE(api->IsDisclaimerItemExist("terms", "TV"));
    int agreed = 1;
    EXPECT_EQ(api->GetDisclaimerItemAgreement("terms", &agreed, "TV"), 0);
    EXPECT_EQ(agreed, 0);
    EXPECT_EQ(LinesStartingWith(logs, "parser failed : ").size(), 2u);
    EXPECT_TRUE(LinesStartingWith(logs, "Exception Handled by ").empty());
}

TEST_F(DeeplyNestedJson, InTheMenuTitlesIsCaughtAndReadAsNoTitle) {
    store.Set(clienttest::kTitlesKey, NestedArrays(kDeep));
    std::string title = "unchanged";
    EXPECT_EQ(api->GetDisclaimerTitle(title, 0), -1);
    EXPECT_EQ(title, "unchanged");
    EXPECT_FALSE(LinesStartingWith(logs, "Json Error e = ").empty());
}

TEST_F(DeeplyNestedJson, InAgreementsGivenToTheCInterfaceIsRefusedWithoutARequest) {
    EXPECT_EQ(SetDisclaimerItemsAgreements(NestedArrays(kDeep).c_str()), 0);
    EXPECT_EQ(LinesStartingWith(logs, "<<WARN: NOT JSON TYPE MESSAGE>>").size(), 1u);
    EXPECT_TRUE(service.Requests().empty());
}

// A peer that sends its own request texts over the bus, as any process may.
std::string CallSimulator(const std::string& protocol, const std::string& body) {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "com.velmora.tv.termsclient", "/com/velmora/tv/termsclient", "com.velmora.tv.termsclient",
        "SendMessage", g_variant_new("(suss)", "peer", 0u, protocol.c_str(), body.c_str()), nullptr,
        G_DBUS_CALL_FLAGS_NONE, 60000, nullptr, &error);
    std::string text = "<no reply>";
    if (reply) {
        const char* message = nullptr;
        g_variant_get_child(reply, 3, "&s", &message);
        text = message;
        g_variant_unref(reply);
    } else {
        text += error->message;
        g_error_free(error);
    }
    g_object_unref(bus);
    return text;
}

TEST_F(DeeplyNestedJson, InARequestToTheSimulatedServiceIsRefused) {
    service.Stop();
    reliability::SimService sim(store.Root());
    ASSERT_TRUE(sim.Start());
    for (const std::string& body : {NestedArrays(kDeep), "{\"method\":\"set agreements\",\"product_type\":\"TV\","
                                                         "\"terms\":" + NestedArrays(kDeep) + "}"}) {
        const Json::Value reply = JsonOf(CallSimulator("", body));
        EXPECT_EQ(reply["result"], false);
    }
    EXPECT_TRUE(api->IsServiceAvailable());
}

class InvalidUtf8 : public ClientTestBed {};

// Bytes that are not UTF-8: a lone continuation byte, a cut sequence, an
// overlong form and a surrogate.
const char kNotUtf8[] = "a\x80z \xe2\x82 \xc0\xaf \xed\xa0\x80 end";

TEST_F(InvalidUtf8, InEveryRequestTextReachesTheServiceRepairedOrNotAtAll) {
    const std::string bad = kNotUtf8;
    STHomeDisclaimerContentItem item;
    api->GetDisclaimerDetail(bad, item, bad);
    api->IsDisclaimerItemExist(bad, bad);
    int agreed = 0;
    api->GetDisclaimerItemAgreement(bad, &agreed, bad);
    api->SetCountryCode(bad);
    api->SetDisclaimerItemAgreement(bad, 1, bad);
    api->CopyCloneDataTVtoUSB(bad, bad);
    api->RequestDisclaimersRESTAPI(bad, bad);
    RequestUpdateDisclaimers(bad.c_str());
    SetDisclaimerItemAgreement(bad.c_str(), 1);
    CSharpGetInstance();
    CSharpSetDisclaimerItemAgreement(bad.c_str(), 1, bad.c_str());

    EXPECT_GE(service.RequestsBesidesAvailability().size(), 9u);
    for (const testbed::ReceivedRequest& request : service.Requests()) {
        EXPECT_TRUE(IsValidUtf8(request.bodyText)) << request.bodyText;
        EXPECT_FALSE(request.body.isNull()) << "not JSON: " << request.bodyText;
    }
    EXPECT_TRUE(api->IsServiceAvailable());
}

// A JSON reply can carry text that is not UTF-8 (an escaped lone surrogate
// decodes to one); it reaches the record and the C caller as it is.
TEST_F(InvalidUtf8, InEveryReplyTextReachesTheRecordAndTheCCallerUnharmed) {
    const std::string surrogate = R"(\udc80)";
    std::string text = R"({"result":true,"id":"x@","title":"@","intro":"@","version":"@","button1":"@",)"
                       R"("agree_dependency":"@","details":"[{\"title\":\"@\",\"data\":\"@\"}]"})";
    for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at)) text.replace(at, 1, surrogate);
    service.SetDefaultReply(FakeReply::NotJson(text));

    STHomeDisclaimerContentItem item;
    ASSERT_EQ(api->GetDisclaimerDetail("x", item, "TV"), 0);
    EXPECT_FALSE(IsValidUtf8(item.strTitle));
    ASSERT_EQ(item.vecDetailData.size(), 2u);
    EXPECT_FALSE(IsValidUtf8(item.vecDetailData[0]));

    struct Seen {
        std::string id, title;
        int sections = 0;
    } seen;
    GetDisclaimerDetail(
        "x",
        [](TermsContentItem* record, void* data) {
            auto* seen = static_cast<Seen*>(data);
            seen->id = record->strItemId;
            seen->title = record->strTitle;
            seen->sections = record->nDetailDataCount;
        },
        &seen);
    EXPECT_EQ(seen.id, item.strItemId);
    EXPECT_EQ(seen.title, item.strTitle);
    EXPECT_EQ(seen.sections, 2);
    // The id goes back to the service in a later request: repaired.
    STHomeDisclaimerContentItem again;
    api->GetDisclaimerDetail(item.strItemId, again, "TV");
    EXPECT_TRUE(IsValidUtf8(service.Requests().back().bodyText));
}

TEST_F(InvalidUtf8, InEveryTextOfABusMessageIsSentRepaired) {
    ASSERT_EQ(InitiateTermsDbusServer("reliability"), 1);
    ASSERT_EQ(CreateTermsDbusServer("com.velmora.tv.reliability"), 1);
    std::string from = kNotUtf8, type = kNotUtf8;
    std::string message = std::string(R"({"method":"is service available","x":")") + kNotUtf8 + "\"}";
    TermsDbusMessage request = {};
    InitiateTermsDbusMessage(&request, from.data(), 0, type.data(), message.data(), nullptr, 0);
    TermsDbusMessage reply = {};
    ASSERT_EQ(SendTermsDbusSyncMessage("reliability", "com.velmora.tv.termsclient", &request, &reply, 10000), 1);
    ReleaseTermsDbusMessage(&reply);
    EXPECT_EQ(SendTermsDbusSignal("reliability", "Changed", &request), 1);
    CloseTermsDbusServer("reliability");

    const testbed::ReceivedRequest received = service.Requests().back();
    EXPECT_TRUE(IsValidUtf8(received.from) && IsValidUtf8(received.protocol) && IsValidUtf8(received.bodyText));
    EXPECT_NE(received.from.find("\xef\xbf\xbd"), std::string::npos) << "bad bytes become U+FFFD";
    EXPECT_EQ(received.Name(), "is service available");
}

TEST_F(InvalidUtf8, InRequestsToTheSimulatedServiceIsRefusedWithoutHarm) {
    service.Stop();
    reliability::SimService sim(store.Root());
    ASSERT_TRUE(sim.Start());
    EXPECT_FALSE(api->SetDisclaimerItemAgreement(kNotUtf8, 1, "TV"));
    EXPECT_EQ(JsonOf(CallSimulator(R"(common_protocol)", std::string(R"({"request_type":")") + R"(\udc80"})"))["result"],
              false);
    EXPECT_EQ(JsonOf(CallSimulator("", R"({"method":"set country code","country_code":"\udc80"})"))["result"], false);
    EXPECT_TRUE(api->SetDisclaimerItemAgreement("terms", 1, "TV"));
}

}  // namespace
