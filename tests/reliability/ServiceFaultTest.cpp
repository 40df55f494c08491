// Faults of the service and of the bus, on a real private bus: the service
// ending while a request waits, no service at all, the bus daemon replaced,
// and the simulated service killed while it records agreements.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>

#include "ClientTestBed.h"
#include "PrivateBus.h"
#include "ReliabilitySupport.h"
#include "SimService.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

namespace {

using clienttest::ClientTestBed;
using clienttest::ClientTestBedWithoutService;
using clienttest::LinesStartingWith;
using reliability::Eventually;
using reliability::InBackground;
using reliability::Returned;
using testbed::FakeReply;

// One request of each kind of result, with the answer it gives on failure.
struct WaitingRequest {
    const char* name;  // the request the service leaves unanswered
    std::function<bool(CVerantiAPI*)> failedAsExpected;
};

const WaitingRequest kWaitingRequests[] = {
    {"is service available", [](CVerantiAPI* api) { return !api->IsServiceAvailable(); }},
    {"get disclaimer number", [](CVerantiAPI* api) { return api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV") == 0; }},
    {"get disclaimer by term id",
     [](CVerantiAPI* api) {
         STHomeDisclaimerContentItem item;
         return api->GetDisclaimerDetail("terms", item, "TV") == -1 && item.strItemId.empty();
     }},
    {"set one agreement", [](CVerantiAPI* api) { return !api->SetDisclaimerItemAgreement("terms", 1, "TV"); }},
};

class ARequestInFlight : public ClientTestBed {};

TEST_F(ARequestInFlight, FailsAndReturnsWhenTheServiceClosesItsConnectionWhileTheRequestWaits) {
    service.Stop();  // each round has a service of its own
    for (const WaitingRequest& request : kWaitingRequests) {
        SCOPED_TRACE(request.name);
        testbed::FakeTermsService fake;
        fake.SetReply(request.name, FakeReply::NoReply());
        fake.Start();
        auto call = InBackground([&] { return request.failedAsExpected(api); });
        ASSERT_TRUE(Eventually([&] { return !fake.RequestsNamed(request.name).empty(); }));
        fake.Stop();
        ASSERT_TRUE(Returned(call)) << "the request still waits for a service that is gone";
        EXPECT_TRUE(call.get());
    }
}

TEST_F(ARequestInFlight, FailsAndReturnsWhenTheServiceProcessIsKilledOrStoppedWhileTheRequestWaits) {
    service.Stop();
    for (int signal : {SIGKILL, SIGTERM}) {
        SCOPED_TRACE(signal);
        reliability::SimService sim(store.Root(), {"--fail", "set all agreement=silent"});
        ASSERT_TRUE(sim.Start());
        auto call = InBackground([&] { return api->SetAllDisclaimerItemAgreement(1, "TV"); });
        ASSERT_TRUE(Eventually([&] { return sim.Log().find("left unanswered on purpose") != std::string::npos; }));
        sim.Kill(signal);
        ASSERT_TRUE(Returned(call)) << "the request still waits for a service that is gone";
        EXPECT_FALSE(call.get());
    }
}

class AnAbsentService : public ClientTestBedWithoutService {};

TEST_F(AnAbsentService, FailsEveryRequestWithoutWaiting) {
    for (const WaitingRequest& request : kWaitingRequests) {
        SCOPED_TRACE(request.name);
        auto call = InBackground([&] { return request.failedAsExpected(api); });
        ASSERT_TRUE(Returned(call));
        EXPECT_TRUE(call.get());
    }
    EXPECT_EQ(IsServiceAvailable(), 0);
    EXPECT_FALSE(LinesStartingWith(logs, "SendMessage to com.velmora.tv.termsclient failed with D-Bus error "
                                         "org.freedesktop.DBus.Error.ServiceUnknown")
                     .empty());
}

class ARestartedBusDaemon : public ClientTestBed {
protected:
    // Stops the service and the daemon, then starts a new daemon (at a new
    // address, which the environment now names) and a new service on it.
    void RestartBusAndService() {
        service.Stop();
        testbed::PrivateBus& bus = *testbed::PrivateBus::Current();
        bus.Stop();
        EXPECT_FALSE(api->IsServiceAvailable()) << "a request without a bus fails";
        bus.Start();
        service.Start();
    }
};

TEST_F(ARestartedBusDaemon, ServesLaterRequestsOfTheSameClientProcessAndThreads) {
    ASSERT_TRUE(api->IsServiceAvailable());
    std::thread([&] { EXPECT_TRUE(api->IsServiceAvailable()); }).join();

    RestartBusAndService();

    EXPECT_TRUE(api->IsServiceAvailable()) << "the thread that used the old bus";
    EXPECT_TRUE(api->SetCountryCode("FR"));
    std::thread([&] { EXPECT_TRUE(api->IsServiceAvailable()); }).join();
    EXPECT_EQ(IsServiceAvailable(), 1) << "through the C interface";
}

// The toolkit uses the process's shared bus connection, which GDBus replaces
// only once nobody holds the closed one: the server is closed and the main
// context run (as a service's main loop does) before it is created again.
TEST_F(ARestartedBusDaemon, LetsTheBusServerToolkitServeAgainAfterItIsRecreated) {
    ASSERT_EQ(InitiateTermsDbusServer("reliability"), 1);
    ASSERT_EQ(CreateTermsDbusServer("com.velmora.tv.reliability"), 1);

    RestartBusAndService();
    ASSERT_EQ(CloseTermsDbusServer("reliability"), 1);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }

    ASSERT_EQ(InitiateTermsDbusServer("reliability"), 1);
    ASSERT_EQ(CreateTermsDbusServer("com.velmora.tv.reliability"), 1);
    TermsDbusMessage request = {};
    char from[] = "reliability";
    char type[] = "";
    char message[] = R"({"method":"is service available"})";
    InitiateTermsDbusMessage(&request, from, 0, type, message, nullptr, 0);
    TermsDbusMessage reply = {};
    EXPECT_EQ(SendTermsDbusSyncMessage("reliability", "com.velmora.tv.termsclient", &request, &reply, 10000), 1);
    EXPECT_STREQ(reply.message, R"({"result":true})");
    ReleaseTermsDbusMessage(&reply);
    EXPECT_EQ(CloseTermsDbusServer("reliability"), 1);
}

class ASimulatedServiceKilledWhileRecording : public ClientTestBed {
protected:
    std::string StoredAgreements() const { return store.Get(clienttest::kAgreementKey).value_or("<missing>"); }
};

// The service stores all agreements in one key; each change replaces it
// whole. Killed at any moment, it must leave the old value or the new one.
TEST_F(ASimulatedServiceKilledWhileRecording, LeavesTheOldOrTheNewAgreementsAndServesThemAfterARestart) {
    service.Stop();
    auto sim = std::make_unique<reliability::SimService>(store.Root());
    ASSERT_TRUE(sim->Start());
    // The two values the loop below alternates between.
    ASSERT_TRUE(api->SetAllDisclaimerItemAgreement(1, "TV"));
    const std::string allAgreed = StoredAgreements();
    ASSERT_TRUE(api->SetAllDisclaimerItemAgreement(0, "TV"));
    const std::string noneAgreed = StoredAgreements();
    ASSERT_NE(allAgreed, noneAgreed);

    const int kKills = 8;
    for (int round = 0; round < kKills; ++round) {
        SCOPED_TRACE(round);
        std::atomic<bool> recording{true};
        std::atomic<int> recorded{0};
        auto writer = InBackground([&] {
            for (int i = 0; recording; ++i) {
                if (api->SetAllDisclaimerItemAgreement(i % 2, "TV")) ++recorded;
            }
        });
        // Kill after a few recordings, a little later each round.
        ASSERT_TRUE(Eventually([&] { return recorded >= 3 + round; }));
        std::this_thread::sleep_for(std::chrono::microseconds(300 * round));
        sim->Kill(SIGKILL);
        recording = false;
        ASSERT_TRUE(Returned(writer));

        const std::string stored = StoredAgreements();
        EXPECT_TRUE(stored == allAgreed || stored == noneAgreed) << "broken value: " << stored;

        sim = std::make_unique<reliability::SimService>(store.Root());
        ASSERT_TRUE(sim->Start()) << "the service does not start on what it left";
        EXPECT_EQ(StoredAgreements(), stored) << "the restarted service changed the agreements";
        const int expected = stored == allAgreed ? 1 : 0;
        EXPECT_EQ(GetDisclaimerItemAgreement("terms"), expected);
        EXPECT_TRUE(api->SetDisclaimerItemAgreement("terms", 1, "TV")) << "the restarted service serves";
    }
}

}  // namespace
