// The process-wide client instance, and requests made from several threads.
#include <set>
#include <thread>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

// Starts every test without an instance; the test makes its own.
class TheClientInstance : public ::testing::Test {
protected:
    void TearDown() override { CVerantiAPI::Destroy(); }
    testbed::LogCapture logs;
};

TEST_F(TheClientInstance, IsMadeOnceAndInitialisedOnceButLogsEveryGet) {
    CVerantiAPI* first = CVerantiAPI::GetInstance();
    CVerantiAPI* second = CVerantiAPI::GetInstance();

    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(CVerantiAPI::m_pInstance, first);
    EXPECT_TRUE(Logged(logs, "CVerantiAPI GetInstance", kDebug, kWhite));
    EXPECT_EQ(logs.Count("CVerantiAPI GetInstance"), 2u);
    EXPECT_TRUE(Logged(logs, "CVerantiAPI m_InitProxy", kDebug, kWhite));
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 1u);
}

TEST_F(TheClientInstance, MadeByTheTestGetterIsSharedAndNeverInitialised) {
    CVerantiAPI* made = CVerantiAPI::GetInstanceUT();
    EXPECT_TRUE(logs.Lines().empty());

    EXPECT_EQ(CVerantiAPI::GetInstance(), made);
    EXPECT_EQ(CVerantiAPI::GetInstanceUT(), made);
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 0u);
}

TEST_F(TheClientInstance, IsMadeAndInitialisedAgainAfterDestroy) {
    CVerantiAPI::GetInstance();
    CVerantiAPI::Destroy();
    EXPECT_EQ(CVerantiAPI::m_pInstance, nullptr);
    EXPECT_TRUE(Logged(logs, "CVerantiAPI Destroy", kDebug, kWhite));

    EXPECT_NE(CVerantiAPI::GetInstance(), nullptr);
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 2u);
}

TEST_F(TheClientInstance, DestroyWithoutInstanceStillClearsTheInitialisedFlag) {
    CVerantiAPI::Destroy();
    EXPECT_EQ(CVerantiAPI::m_pInstance, nullptr);

    // The flag stays set while the pointer is taken away behind the getters' back.
    CVerantiAPI* made = CVerantiAPI::GetInstanceUT();
    CVerantiAPI::m_pInstance = nullptr;
    EXPECT_EQ(CVerantiAPI::GetInstance(), nullptr);
    delete made;

    CVerantiAPI::Destroy();
    EXPECT_NE(CVerantiAPI::GetInstance(), nullptr);
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 1u);
}

TEST_F(TheClientInstance, IsOneForManyThreadsGettingItAtOnce) {
    constexpr int kThreads = 8;
    std::vector<CVerantiAPI*> seen(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back([&seen, i] { seen[i] = CVerantiAPI::GetInstance(); });
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(std::set<CVerantiAPI*>(seen.begin(), seen.end()), std::set<CVerantiAPI*>{CVerantiAPI::m_pInstance});
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 1u);
}

class RequestsFromSeveralThreads : public ClientTestBed {};

TEST_F(RequestsFromSeveralThreads, AreAllSentAndAnswered) {
    constexpr int kThreads = 6;
    constexpr int kRequestsEach = 5;
    std::vector<int> answered(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, &answered, t] {
            for (int r = 0; r < kRequestsEach; ++r) {
                if (api->SetCountryCode(std::to_string(t) + "-" + std::to_string(r))) ++answered[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    std::set<std::string> codes;
    for (const testbed::ReceivedRequest& request : service.RequestsNamed("set country code"))
        codes.insert(request.body["country_code"].asString());
    EXPECT_EQ(answered, std::vector<int>(kThreads, kRequestsEach));
    EXPECT_EQ(codes.size(), static_cast<size_t>(kThreads * kRequestsEach));
    EXPECT_EQ(service.RequestsNamed("is service available").size(), static_cast<size_t>(kThreads * kRequestsEach));
}

}  // namespace
}  // namespace clienttest
