// The configuration store stand-in, on a temporary root.
#include <gtest/gtest.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "TempStore.h"

namespace {

// The key's value, or "errno <number>".
std::string Get(const char* key) {
    errno = 0;
    char* value = vconf_get_str(key);
    const std::string text = value ? value : "errno " + std::to_string(errno);
    free(value);
    return text;
}

TEST(AConfigurationStore, AcceptsOnlyRelativeKeysOfPlainSegments) {
    const testbed::TempStore store;
    for (const char* key : {"", "/abs", "a//b", "a/../b", "..", "./a", "a/", "a b", "caf\xc3\xa9", "a\\b", "a:b"}) {
        errno = 0;
        EXPECT_TRUE(vconf_set_str(key, "v") == -1 && errno == EINVAL && vconf_unset(key) == -1) << key;
        EXPECT_EQ(Get(key), "errno " + std::to_string(EINVAL)) << key;
    }
    EXPECT_TRUE(std::filesystem::is_empty(store.Root())) << "nothing is written, least of all outside the root";
    for (const char* key : {"db/veranti/disclaimeragrees", "A-b_c.d/0.9", "..a/b.."})
        EXPECT_EQ(vconf_set_str(key, ""), 0) << key;
}

TEST(AConfigurationStore, KeepsEachValueAloneInItsFileAndNeverShowsAReaderAMixOfOldAndNew) {
    const testbed::TempStore store;
    std::string first(1024 * 1024, '\0');
    const std::string second(150 * 1024, 'b');
    for (size_t i = 0; i < first.size(); ++i) first[i] = static_cast<char>(1 + i % 255);
    ASSERT_EQ(vconf_set_str("db/veranti/title", first.c_str()), 0);
    std::atomic<bool> writing{true};
    std::atomic<int> mixed{0}, reads{0};
    std::thread reader([&] {
        for (std::string seen; writing || reads == 0; ++reads)
            mixed += (seen = Get("db/veranti/title")) != first && seen != second;
    });
    for (int i = 0; i < 40; ++i) EXPECT_EQ(vconf_set_str("db/veranti/title", (i % 2 ? first : second).c_str()), 0);
    writing = false;
    reader.join();
    EXPECT_EQ(mixed, 0) << "of " << reads << " reads";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(store.Root() + "/db/veranti"), {}), 1)
        << "no temporary file is left";
}

}  // namespace
