// 100,000 requests (two minutes at most) against the simulated service in its own process: the client's resident
// memory and open descriptors at the end may not exceed those after kWarmUp. Only with VERANTI_SOAK=1.

#include <filesystem>

#include "ReliabilitySupport.h"
#include "TempStore.h"
#include "VerantiAPI.h"

namespace {

constexpr long kRequests = 100000, kWarmUp = 1000;
constexpr long kRssSlackKiB = 4096, kFdSlack = 2;  // noise; a leak per request is many times more

std::pair<long, long> RssKiBAndFds() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return {resident * sysconf(_SC_PAGESIZE) / 1024,
            std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})};
}

TEST(ALongRunOfRequests, KeepsResidentMemoryAndOpenDescriptorsFlat) {
    if (!getenv("VERANTI_SOAK")) GTEST_SKIP() << "set VERANTI_SOAK=1 to run the soak test";
    testbed::TempStore store;
    reliability::SimService sim(store.Root());
    ASSERT_TRUE(sim.Start());
    CVerantiAPI* api = CVerantiAPI::GetInstance();
    std::vector<STHomeDisclaimerContentItem*> revised;
    STHomeDisclaimerContentItem item;
    std::string title;
    int agreed = 0;
    // Plain, record-filling, store reads, the C interface; no store writes, which would measure the disk.
    const std::function<bool()> requests[] = {
        [&] { return api->IsServiceAvailable() && api->RequestCountryCodeList() && IsServiceAvailable(); },
        [&] { return api->GetDisclaimerDetail("terms", item = {}, "TV") == 0; },
        [&] { return api->IsDisclaimerItemExist("terms", "TV") && api->GetDisclaimerTitle(title, 1) == 0; },
        [&] { return api->GetDisclaimerItemAgreement("privacy", &agreed, "TV") >= 0; },
        [&] { return api->GetRevisedDisclaimers(revised, "TV", ""); },
    };
    const auto start = std::chrono::steady_clock::now();
    std::pair<long, long> warm;
    long done = 0, failed = 0;
    for (; done < kRequests && std::chrono::steady_clock::now() - start < std::chrono::minutes(2); ++done) {
        failed += !requests[done % std::size(requests)]();
        for (; !revised.empty(); revised.pop_back()) delete revised.back();
        if (done + 1 == kWarmUp) warm = RssKiBAndFds();
    }
    const std::pair<long, long> end = RssKiBAndFds();
    std::printf("soak: %ld requests; RSS %ld -> %ld KiB, %ld -> %ld fds\n", done, warm.first, end.first, warm.second,
                end.second);
    EXPECT_EQ(failed, 0);
    ASSERT_GE(done, kWarmUp * 10) << "too few requests in the time bound to tell";
    EXPECT_LE(end.first, warm.first + kRssSlackKiB);
    EXPECT_LE(end.second, warm.second + kFdSlack);
    CVerantiAPI::Destroy();
}

}  // namespace
