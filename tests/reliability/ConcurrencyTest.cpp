// Many threads at once; also built with ThreadSanitizer (label "concurrency").
#include <set>

#include "ClientTestBed.h"
#include "ReliabilitySupport.h"

namespace {

constexpr int kThreads = 8, kRounds = 60;
constexpr const char* kServerName = "com.velmora.tv.concurrency";

// Runs body(thread index) on kThreads threads that start together.
void OnManyThreads(const std::function<void(int)>& body) {
    std::atomic<int> waiting{kThreads};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (--waiting; waiting > 0;) std::this_thread::yield();
            body(t);
        });
    for (std::thread& thread : threads) thread.join();
}

class ManyThreads : public clienttest::ClientTestBed {};

// The getters' unlocked first test races with the creation on purpose (see tsan.supp). Every reply carries what
// was asked for, so a reply that reached the wrong thread shows.
TEST_F(ManyThreads, ShareOneInstanceMadeOnFirstUseAndGetTheirOwnAnswersWhileTheyReadTheStoreAndTrigger) {
    service.SetHandler([](const testbed::ReceivedRequest& request) {
        Json::Value reply = clienttest::JsonOf(R"({"result":true})");
        reply["id"] = request.body["request_item"];
        reply["details"] = "[{\"title\":\"t\",\"data\":\"" + request.body["request_item"].asString() + "\"}]";
        reply["number"] = request.body["requester"].asInt() + 1;
        return testbed::FakeReply::WithBody(reply);
    });
    store.Set(clienttest::kAgreementKey, R"({"terms":"true","privacy":"false"})");
    store.Set(clienttest::kTitlesKey, R"([{"title":"A"},{"title":"B"}])");
    CVerantiAPI::Destroy();
    std::vector<CVerantiAPI*> instances(kThreads);
    std::atomic<int> wrong{0};
    OnManyThreads([&](int t) {
        CVerantiAPI* const client = instances[t] = CVerantiAPI::GetInstance();
        TriggerTermsService();
        for (int i = 0; i < kRounds; ++i) {
            const std::string id = "item-" + std::to_string(t) + "-" + std::to_string(i);
            STHomeDisclaimerContentItem item;
            std::string title;
            wrong += !(client->GetDisclaimerDetail(id, item, "TV") == 0 && item.strItemId == id &&
                       item.vecDetailData == std::vector<std::string>{"t", id} &&
                       client->GetDisclaimerNum(static_cast<EHomeDisclaimerRequester>(t % 5), "TV") == t % 5 + 1 &&
                       client->SetDisclaimerItemAgreement(id, i % 2, "TV") && IsServiceAvailable() == 1 &&
                       client->GetDisclaimerTitle(title, 1) == 0 && title == "B" &&
                       GetDisclaimerItemAgreement("terms") == 1 && IsDisclaimerItemExist("privacy") == 1);
        }
    });
    api = CVerantiAPI::GetInstance();
    EXPECT_EQ(std::set<CVerantiAPI*>(instances.begin(), instances.end()), std::set<CVerantiAPI*>{api});
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(service.RequestsNamed("get disclaimer by term id").size(), size_t{kThreads * kRounds});
    // Each trigger reports from a thread of its own once it has asked.
    EXPECT_TRUE(reliability::Eventually([&] { return logs.Count("IsServiceAvailable true") == kThreads; }));
}

int Echo(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void* handled) {
    ++*static_cast<std::atomic<int>*>(handled);
    *reply = {CopyTermsDbusString(request->from),    request->code + 1, CopyTermsDbusString(request->type),
              CopyTermsDbusString(request->message), nullptr,           0};
    return 1;
}

// The toolkit's callbacks run on the main loop of this thread while the others call.
TEST_F(ManyThreads, CallAToolkitServerOnItsMainLoopWhileTheySendSignalsAndClientRequests) {
    std::atomic<int> handled{0}, wrong{0};
    InitiateTermsDbusServer("concurrency");
    RegisterTermsDbusCallback("concurrency", TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(&Echo), &handled);
    ASSERT_TRUE(CreateTermsDbusServer(kServerName));
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    std::thread callers([&] {
        OnManyThreads([&](int t) {
            for (uint32_t i = 0; i < kRounds / 2; ++i) {
                std::string text = "call " + std::to_string(t) + "/" + std::to_string(i);
                unsigned char bytes[3] = {1, static_cast<unsigned char>(t), static_cast<unsigned char>(i)};
                TermsDbusMessage request = {}, reply = {};
                InitiateTermsDbusMessage(&request, text.data(), i, text.data(), text.data(), bytes, i % 2 ? 3 : 0);
                wrong += SendTermsDbusSyncMessage("concurrency", kServerName, &request, &reply, 30000) != 1 ||
                         reply.message != text || reply.code != i + 1 || !api->IsServiceAvailable() ||
                         SendTermsDbusSignal("concurrency", "Progress", &request) != 1;
                ReleaseTermsDbusMessage(&reply);
            }
        });
        g_main_context_invoke(
            nullptr, [](gpointer l) { return g_main_loop_quit(static_cast<GMainLoop*>(l)), G_SOURCE_REMOVE; }, loop);
    });
    g_main_loop_run(loop);
    callers.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(handled, kThreads * (kRounds / 2));
    CloseTermsDbusServer("concurrency");
    while (g_main_context_iteration(nullptr, FALSE)) continue;  // what the closed server left
    g_main_loop_unref(loop);
}

}  // namespace
