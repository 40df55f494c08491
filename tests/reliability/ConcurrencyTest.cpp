// Many threads at once: requests from every thread, background triggers,
// first use of the instance, and the bus server toolkit answering calls on
// its main loop while other threads make synchronous calls and send signals.
// Built with ThreadSanitizer too (label "concurrency").
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ClientTestBed.h"
#include "ReliabilitySupport.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

namespace {

using clienttest::ClientTestBed;
using reliability::Eventually;
using testbed::FakeReply;

constexpr int kThreads = 8;
constexpr int kRequestsPerThread = 60;

// Runs body(thread index) on kThreads threads that start together.
void OnManyThreads(const std::function<void(int)>& body) {
    std::atomic<int> waiting{kThreads};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            --waiting;
            while (waiting > 0) std::this_thread::yield();
            body(t);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

class ManyThreads : public ClientTestBed {
protected:
    void SetUp() override {
        ClientTestBed::SetUp();
        // Each disclaimer reply carries the id that was asked for, so a reply
        // that reached the wrong thread shows.
        service.SetHandler([](const testbed::ReceivedRequest& request) {
            Json::Value reply(Json::objectValue);
            reply["result"] = true;
            if (request.Name() == "get disclaimer by term id") {
                reply["id"] = request.body["request_item"];
                reply["details"] = "[{\"title\":\"t\",\"data\":\"" + request.body["request_item"].asString() + "\"}]";
            } else if (request.Name() == "get disclaimer number") {
                reply["number"] = request.body["requester"].asInt() + 1;
            }
            return FakeReply::WithBody(reply);
        });
    }
};

TEST_F(ManyThreads, GetTheirOwnAnswersWhenTheyRequestAtOnce) {
    std::atomic<int> wrong{0};
    OnManyThreads([&](int t) {
        for (int i = 0; i < kRequestsPerThread; ++i) {
            const std::string id = "item-" + std::to_string(t) + "-" + std::to_string(i);
            STHomeDisclaimerContentItem item;
            if (api->GetDisclaimerDetail(id, item, "TV") != 0 || item.strItemId != id ||
                item.vecDetailData != std::vector<std::string>{"t", id}) {
                ++wrong;
            }
            const auto requester = static_cast<EHomeDisclaimerRequester>(t % 5);
            if (api->GetDisclaimerNum(requester, "TV") != t % 5 + 1) ++wrong;
            if (!api->SetDisclaimerItemAgreement(id, i % 2, "TV")) ++wrong;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(service.RequestsNamed("get disclaimer by term id").size(), size_t{kThreads * kRequestsPerThread});
}

TEST_F(ManyThreads, ReadTheStoreAndTheCInterfaceAtOnce) {
    store.Set(clienttest::kAgreementKey, R"({"terms":"true","privacy":"false"})");
    store.Set(clienttest::kTitlesKey, R"([{"title":"A"},{"title":"B"}])");
    std::atomic<int> wrong{0};
    OnManyThreads([&](int) {
        for (int i = 0; i < kRequestsPerThread; ++i) {
            if (GetDisclaimerItemAgreement("terms") != 1 || IsDisclaimerItemExist("privacy") != 1) ++wrong;
            std::string title;
            if (api->GetDisclaimerTitle(title, 1) != 0 || title != "B") ++wrong;
            if (IsServiceAvailable() != 1) ++wrong;
        }
    });
    EXPECT_EQ(wrong, 0);
}

// The getters' unlocked first test races with the creation on purpose. (Only
// GetInstance here: GetInstanceUT sets the flag before the pointer, so a
// getter racing with it may see the flag and a null pointer.)
TEST_F(ManyThreads, ShareOneInstanceMadeOnFirstUse) {
    CVerantiAPI::Destroy();
    std::vector<CVerantiAPI*> seen(kThreads);
    OnManyThreads([&](int t) { seen[t] = CVerantiAPI::GetInstance(); });
    EXPECT_EQ(std::set<CVerantiAPI*>(seen.begin(), seen.end()).size(), 1u);
    api = CVerantiAPI::GetInstance();
}

TEST_F(ManyThreads, TriggerTheServiceInTheBackgroundBesideTheirRequests) {
    OnManyThreads([&](int) {
        TriggerTermsService();
        for (int i = 0; i < 10; ++i) EXPECT_TRUE(api->IsServiceAvailable());
    });
    // Each trigger's own thread reports once it has asked.
    EXPECT_TRUE(Eventually([&] { return logs.Count("IsServiceAvailable true") == kThreads; }));
}

// The toolkit's server answers on a main loop of its own thread; other
// threads call it synchronously and send signals meanwhile.
class AToolkitServerOnItsLoop : public ClientTestBed {
protected:
    static constexpr const char* kHandle = "concurrency";
    static constexpr const char* kBusName = "com.velmora.tv.concurrency";

    void SetUp() override {
        ClientTestBed::SetUp();
        m_Loop = std::thread([this] { RunServer(); });
        ASSERT_TRUE(Eventually([this] { return m_Created.load() != 0; }));
        ASSERT_EQ(m_Created.load(), 1);
    }

    void TearDown() override {
        // What the other threads did is over (they were joined); the atomic
        // hands that on to the loop thread, as GLib's own locks are not seen
        // by ThreadSanitizer.
        m_Stopping = true;
        g_main_context_invoke(m_Context, [](gpointer loop) { g_main_loop_quit(static_cast<GMainLoop*>(loop)); return G_SOURCE_REMOVE; }, m_MainLoop);
        m_Loop.join();
        ClientTestBed::TearDown();
    }

    std::atomic<int> handled{0};

private:
    static int Echo(const char*, TermsDbusMessage* request, TermsDbusMessage* reply, void* data) {
        ++static_cast<AToolkitServerOnItsLoop*>(data)->handled;
        reply->from = CopyTermsDbusString(request->from);
        reply->code = request->code + 1;
        reply->type = CopyTermsDbusString(request->type);
        reply->message = CopyTermsDbusString(request->message);
        return 1;
    }

    void RunServer() {
        m_Context = g_main_context_new();
        g_main_context_push_thread_default(m_Context);
        m_MainLoop = g_main_loop_new(m_Context, FALSE);
        InitiateTermsDbusServer(kHandle);
        RegisterTermsDbusCallback(kHandle, TERMS_DBUS_CALLBACK_MESSAGE, reinterpret_cast<void*>(&Echo), this);
        const int created = CreateTermsDbusServer(kBusName);
        m_Created = created ? 1 : -1;
        if (created) g_main_loop_run(m_MainLoop);
        while (created && !m_Stopping) std::this_thread::yield();
        CloseTermsDbusServer(kHandle);
        g_main_loop_unref(m_MainLoop);
        g_main_context_pop_thread_default(m_Context);
        // Let what the closed server left in the context run before it goes.
        while (g_main_context_iteration(m_Context, FALSE)) {
        }
        g_main_context_unref(m_Context);
    }

    std::thread m_Loop;
    std::atomic<int> m_Created{0};
    std::atomic<bool> m_Stopping{false};
    GMainContext* m_Context = nullptr;
    GMainLoop* m_MainLoop = nullptr;
};

TEST_F(AToolkitServerOnItsLoop, AnswersEveryCallWhileOtherThreadsCallItAndSendSignals) {
    std::atomic<int> wrong{0};
    OnManyThreads([&](int t) {
        for (int i = 0; i < kRequestsPerThread / 2; ++i) {
            std::string text = "call " + std::to_string(t) + "/" + std::to_string(i);
            unsigned char bytes[3] = {1, static_cast<unsigned char>(t), static_cast<unsigned char>(i)};
            TermsDbusMessage request = {};
            InitiateTermsDbusMessage(&request, text.data(), static_cast<uint32_t>(i), text.data(), text.data(), bytes,
                                     i % 2 ? 3 : 0);
            TermsDbusMessage reply = {};
            if (SendTermsDbusSyncMessage(kHandle, kBusName, &request, &reply, 30000) != 1 ||
                std::string(reply.message) != text || reply.code != static_cast<uint32_t>(i) + 1) {
                ++wrong;
            }
            ReleaseTermsDbusMessage(&reply);
            if (SendTermsDbusSignal(kHandle, "Progress", &request) != 1) ++wrong;
            if (t % 2 && !api->IsServiceAvailable()) ++wrong;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(handled, kThreads * (kRequestsPerThread / 2));
}

}  // namespace
