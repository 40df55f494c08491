// Faults of the service and of the bus, and hostile texts, on the private bus.
#include "ClientTestBed.h"
#include "PrivateBus.h"
#include "ReliabilitySupport.h"

namespace {

using namespace clienttest;
using namespace reliability;
using testbed::FakeReply;

using ARequestToTheService = ClientTestBed;
using ARestartedBusDaemon = ClientTestBed;
using ASimulatedServiceKilledWhileRecording = ClientTestBed;
using ALargeReply = ClientTestBed;
using DeeplyNestedJson = ClientTestBed;
using InvalidUtf8 = ClientTestBed;

const std::string kDeep = std::string(100000, '[') + std::string(100000, ']');  // the reader's limit is 1000

const char kNobodyOwnsTheName[] =
    "SendMessage to com.velmora.tv.termsclient failed with D-Bus error org.freedesktop.DBus.Error.ServiceUnknown";
// A request of each kind of result, and whether it gave its failure answer.
const std::pair<const char*, bool (*)(CVerantiAPI*)> kRequests[] = {
    {"is service available", [](CVerantiAPI* api) { return !api->IsServiceAvailable(); }},
    {"get disclaimer number", [](CVerantiAPI* api) { return !api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"); }},
    {"get disclaimer by term id",
     [](CVerantiAPI* api) {
         STHomeDisclaimerContentItem item;
         return api->GetDisclaimerDetail("terms", item, "TV") == -1 && item.strItemId.empty();
     }},
    {"set one agreement", [](CVerantiAPI* api) { return !api->SetDisclaimerItemAgreement("terms", 1, "TV"); }},
};

// With nobody owning the name the bus says so at once: nothing waits for a timeout. SIGKILL closes the service's
// connection at once; SIGTERM stops it and its toolkit sends the failure reply.
TEST_F(ARequestToTheService, FailsAndReturnsWhenTheServiceIsAbsentOrKilledOrStoppedWhileTheRequestWaits) {
    service.Stop();
    for (const auto& [name, failed] : kRequests) {
        logs.Clear();
        EXPECT_TRUE(failed(api) && !LinesStartingWith(logs, kNobodyOwnsTheName).empty()) << name << " without service";
        for (int signal : {SIGKILL, SIGTERM}) {
            SimService sim(store.Root(), {"--fail", std::string(name) + "=silent"});
            ASSERT_TRUE(sim.Start());
            auto call = std::async(std::launch::async, failed, api);
            ASSERT_TRUE(Eventually([&] { return sim.Log().find("left unanswered on purpose") != std::string::npos; }));
            sim.Kill(signal);
            ASSERT_EQ(call.wait_for(kHangBound), std::future_status::ready) << name << ", signal " << signal;
            EXPECT_TRUE(call.get()) << name << ", signal " << signal;
        }
    }
}

// The toolkit holds GDBus's shared connection, which GDBus replaces only once nobody holds the closed one: its
// server is closed and the main context run (as a service's main loop does) before it is made again.
TEST_F(ARestartedBusDaemon, ServesLaterRequestsOfTheSameProcessThroughTheClientAndTheToolkit) {
    std::thread([&] { EXPECT_TRUE(api->IsServiceAvailable()); }).join();
    ASSERT_TRUE(api->IsServiceAvailable() && InitiateTermsDbusServer("reliability") &&
                CreateTermsDbusServer("com.velmora.tv.reliability"));
    service.Stop();
    testbed::PrivateBus::Current()->Stop();
    EXPECT_FALSE(api->IsServiceAvailable());
    testbed::PrivateBus::Current()->Start();  // at a new address, which the environment now names
    service.Start();
    ASSERT_EQ(CloseTermsDbusServer("reliability"), 1);
    while (g_main_context_iteration(nullptr, FALSE)) continue;
    EXPECT_TRUE(api->IsServiceAvailable() && api->SetCountryCode("FR")) << "on the thread that used the old bus";
    std::thread([&] { EXPECT_EQ(IsServiceAvailable(), 1); }).join();
    EXPECT_EQ(CallThroughToolkit(R"({"method":"is service available"})"), R"({"result":true})");
}

// The service keeps all agreements in one key and replaces it whole on each change.
TEST_F(ASimulatedServiceKilledWhileRecording, LeavesTheOldOrTheNewAgreementsAndServesThemAfterARestart) {
    service.Stop();
    auto sim = std::make_unique<SimService>(store.Root());
    auto stored = [&] { return store.Get(kAgreementKey).value_or("<missing>"); };
    ASSERT_TRUE(sim->Start() && api->SetAllDisclaimerItemAgreement(1, "TV"));
    const std::string allAgreed = stored();
    ASSERT_TRUE(api->SetAllDisclaimerItemAgreement(0, "TV"));
    const std::string noneAgreed = stored();
    ASSERT_NE(allAgreed, noneAgreed);
    for (int round = 0; round < 8; ++round) {
        std::atomic<bool> recording{true};
        std::atomic<int> recorded{0};
        auto writer = std::async(std::launch::async, [&] {
            for (int i = 0; recording; ++i) recorded += api->SetAllDisclaimerItemAgreement(i % 2, "TV");
        });
        ASSERT_TRUE(Eventually([&] { return recorded >= 3 + round; }));
        std::this_thread::sleep_for(std::chrono::microseconds(300 * round));  // a little later each round
        sim->Kill(SIGKILL);
        recording = false;
        ASSERT_EQ(writer.wait_for(kHangBound), std::future_status::ready);
        const std::string left = stored();
        EXPECT_TRUE(left == allAgreed || left == noneAgreed) << "broken value in round " << round << ": " << left;
        sim = std::make_unique<SimService>(store.Root());
        ASSERT_TRUE(sim->Start()) << "it does not start on what it left";
        EXPECT_EQ(stored(), left);
        EXPECT_EQ(GetDisclaimerItemAgreement("terms"), left == allAgreed ? 1 : 0);
        EXPECT_TRUE(api->SetDisclaimerItemAgreement("terms", 1, "TV"));
    }
}

TEST_F(ALargeReply, Of16MiBReachesTheRecordAndAToolkitCallerWhole) {
    const std::string details = Filler(16u << 20);
    Json::Value reply = JsonOf(R"({"result":true,"id":"big","title":"T"})");
    reply["details"] = details;
    service.SetDefaultReply(FakeReply::WithBody(reply));
    STHomeDisclaimerContentItem item;
    ASSERT_EQ(api->GetDisclaimerDetail("big", item, "TV"), 0);
    EXPECT_TRUE(item.strDetails == details) << item.strDetails.size();
    EXPECT_TRUE(JsonOf(CallThroughToolkit(R"({"method":"big"})"))["details"] == details);
}

// Wherever the library parses such a text, it fails to parse: the reader's exception never leaves the library.
TEST_F(DeeplyNestedJson, IsAParseFailureInEveryTextTheLibraryParses) {
    auto logged = [&](const char* reason) {
        const bool seen =
            !LinesStartingWith(logs, reason).empty() && LinesStartingWith(logs, "Exception Handled by ").empty();
        logs.Clear();
        return seen;
    };
    STHomeDisclaimerContentItem item;
    service.SetDefaultReply(FakeReply::NotJson(kDeep));
    EXPECT_FALSE(api->IsServiceAvailable() || api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"));
    EXPECT_EQ(api->GetDisclaimerDetail("terms", item, "TV"), -1);
    EXPECT_TRUE(logged("SendMessage to com.velmora.tv.termsclient got a reply body that does not parse"));
    Json::Value reply = JsonOf(R"({"result":true,"id":"deep"})");
    reply["details"] = kDeep;
    service.SetDefaultReply(FakeReply::WithBody(reply));
    EXPECT_EQ(api->GetDisclaimerDetail("deep", item, "TV"), 0);
    EXPECT_TRUE(item.strDetails == kDeep && item.vecDetailData.empty()) << "prose without sections";
    EXPECT_TRUE(logged("<<WARN: NOT JSON TYPE MESSAGE>>"));
    store.Set(kAgreementKey, "{\"terms\":" + kDeep + "}");
    int agreed = 1;
    EXPECT_FALSE(api->IsDisclaimerItemExist("terms", "TV"));
    EXPECT_TRUE(api->GetDisclaimerItemAgreement("terms", &agreed, "TV") == 0 && agreed == 0) << agreed;
    EXPECT_TRUE(logged("parser failed : "));
    store.Set(kTitlesKey, kDeep);
    std::string title = "unchanged";
    EXPECT_TRUE(api->GetDisclaimerTitle(title, 0) == -1 && title == "unchanged") << title;
    EXPECT_TRUE(logged("Json Error e = "));
    service.ClearRequests();
    EXPECT_EQ(SetDisclaimerItemsAgreements(kDeep.c_str()), 0);
    EXPECT_TRUE(logged("<<WARN: NOT JSON TYPE MESSAGE>>") && service.Requests().empty()) << "agreements for C";
}

TEST_F(InvalidUtf8, InEveryRequestTextOfTheClientAndTheToolkitReachesTheServiceRepaired) {
    // A lone continuation byte, a cut sequence, an overlong form and a surrogate.
    const std::string bad = "a\x80z \xe2\x82 \xc0\xaf \xed\xa0\x80 end";
    STHomeDisclaimerContentItem item;
    int agreed = 0;
    api->GetDisclaimerDetail(bad, item, bad);
    api->IsDisclaimerItemExist(bad, bad);
    api->GetDisclaimerItemAgreement(bad, &agreed, bad);
    api->SetCountryCode(bad);
    api->SetDisclaimerItemAgreement(bad, 1, bad);
    api->CopyCloneDataTVtoUSB(bad, bad);
    api->RequestDisclaimersRESTAPI(bad, bad);
    RequestUpdateDisclaimers(bad.c_str());
    SetDisclaimerItemAgreement(bad.c_str(), 1);
    CSharpGetInstance();
    CSharpSetDisclaimerItemAgreement(bad.c_str(), 1, bad.c_str());
    EXPECT_EQ(CallThroughToolkit(R"({"method":"is service available","x":")" + bad + "\"}", bad, bad),
              R"({"result":true})");
    EXPECT_GE(service.RequestsBesidesAvailability().size(), 9u);
    for (const auto& request : service.Requests()) {
        const std::string texts = request.from + request.protocol + request.bodyText;
        EXPECT_TRUE(g_utf8_validate(texts.data(), texts.size(), nullptr) && !request.body.isNull()) << request.bodyText;
    }
}

}  // namespace
