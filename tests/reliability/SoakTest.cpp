// A long run of requests against the simulated service in its own process:
// the client's resident memory and open file descriptors must stay flat.
// Bounded in count and time: it stops after kRequests or kTimeBound, and
// compares the figures at kWarmUp requests with those at the end.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "PrivateBus.h"
#include "ReliabilitySupport.h"
#include "SimService.h"
#include "TempStore.h"
#include "TermsAPI.h"
#include "VerantiAPI.h"

namespace {

constexpr long kRequests = 100000;
constexpr long kWarmUp = 1000;
constexpr auto kTimeBound = std::chrono::seconds(120);
// Allocator and page-cache noise; a leak of one record or one connection per
// request is many times more over this run.
constexpr long kRssSlackKiB = 4096;
constexpr int kFdSlack = 2;

long ResidentKiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int OpenFds() {
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') ++count;
    }
    closedir(dir);
    return count;
}

struct Figures {
    long requests;
    long rssKiB;
    int fds;
};

class ALongRunOfRequests : public ::testing::Test {
protected:
    testbed::TempStore store;
};

TEST_F(ALongRunOfRequests, KeepsResidentMemoryAndOpenDescriptorsFlat) {
    if (!getenv("VERANTI_SOAK")) GTEST_SKIP() << "set VERANTI_SOAK=1 to run the soak test";
    reliability::SimService sim(store.Root());
    ASSERT_TRUE(sim.Start());
    CVerantiAPI* api = CVerantiAPI::GetInstance();
    // The client's requests, in turn: plain, record-filling, store reads, C interface.
    // (Requests that make the service write its store are left out: they
    // measure the disk, not the client.)
    const std::function<bool()> requests[] = {
        [&] { return api->IsServiceAvailable(); },
        [&] { STHomeDisclaimerContentItem item; return api->GetDisclaimerDetail("terms", item, "TV") == 0; },
        [&] { return api->IsDisclaimerItemExist("terms", "TV"); },
        [&] { int agreed = 0; api->GetDisclaimerItemAgreement("privacy", &agreed, "TV"); return true; },
        [&] { std::string title; return api->GetDisclaimerTitle(title, 1) == 0; },
        [&] { return api->RequestCountryCodeList(); },
        [&] { return IsServiceAvailable() == 1; },
        [&] {
            std::vector<STHomeDisclaimerContentItem*> items;
            const bool answered = api->GetRevisedDisclaimers(items, "TV", "");
            for (STHomeDisclaimerContentItem* item : items) delete item;
            return answered;
        },
    };
    const auto start = std::chrono::steady_clock::now();
    Figures warm{0, 0, 0};
    long done = 0, failed = 0;
    for (; done < kRequests && std::chrono::steady_clock::now() - start < kTimeBound; ++done) {
        if (!requests[done % (sizeof requests / sizeof requests[0])]()) ++failed;
        if (done + 1 == kWarmUp) warm = {done + 1, ResidentKiB(), OpenFds()};
    }
    const Figures end{done, ResidentKiB(), OpenFds()};
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("soak: %ld requests in %.1f s; at %ld: RSS %ld KiB, %d fds; at %ld: RSS %ld KiB, %d fds\n", end.requests,
                seconds, warm.requests, warm.rssKiB, warm.fds, end.requests, end.rssKiB, end.fds);
    RecordProperty("requests", static_cast<int>(end.requests));
    RecordProperty("rss_growth_kib", static_cast<int>(end.rssKiB - warm.rssKiB));

    EXPECT_EQ(failed, 0);
    ASSERT_GE(done, kWarmUp * 10) << "too few requests in the time bound to tell";
    EXPECT_LE(end.rssKiB, warm.rssKiB + kRssSlackKiB);
    EXPECT_LE(end.fds, warm.fds + kFdSlack);
    CVerantiAPI::Destroy();
}

}  // namespace
