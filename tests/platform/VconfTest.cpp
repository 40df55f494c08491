// The configuration store stand-in and its command-line tool, on a temporary root.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <vconf.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "TempStore.h"

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string Errno(int error) {
    return "<errno " + std::to_string(error) + ">";
}

std::string Get(const char* key) {
    errno = 0;
    const std::unique_ptr<char, decltype(&free)> value(vconf_get_str(key), &free);
    return value ? value.get() : Errno(errno);
}

class AConfigurationStore : public testing::Test {
protected:
    testbed::TempStore m_Store;
};

TEST_F(AConfigurationStore, AcceptsOnlyRelativeKeysOfPlainSegments) {
    for (const char* key : {"", "/abs", "a//b", "a/../b", "..", "./a", "a/", "a b", "caf\xc3\xa9", "a\\b", "a:b"}) {
        errno = 0;
        EXPECT_TRUE(vconf_set_str(key, "v") == -1 && errno == EINVAL) << key;
        EXPECT_EQ(Get(key), Errno(EINVAL)) << key;
        EXPECT_EQ(vconf_unset(key), -1) << key;
    }
    EXPECT_EQ(Get(nullptr), Errno(EINVAL));
    EXPECT_EQ(vconf_set_str("db/key", nullptr), -1);
    EXPECT_TRUE(std::filesystem::is_empty(m_Store.Root())) << "nothing is written, in particular not outside the root";
    for (const char* key : {"db/veranti/disclaimeragrees", "A-b_c.d/0.9", "..a/b.."})
        EXPECT_EQ(vconf_set_str(key, ""), 0);
}

TEST_F(AConfigurationStore, KeepsEachValueAloneInTheKeysFileUntilUnset) {
    const std::string path = m_Store.Root() + "/db/veranti/terms_title";
    std::string large(1024 * 1024, '\0');
    for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(1 + i % 255);
    for (const std::string& value : {std::string("{\"menu\": \"Terms\"}"), large, std::string("short")}) {
        ASSERT_EQ(vconf_set_str("db/veranti/terms_title", value.c_str()), 0);
        EXPECT_TRUE(ReadFile(path) == value && Get("db/veranti/terms_title") == value) << value.size() << " bytes";
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_Store.Root() + "/db/veranti"), {}), 1)
        << "no temporary files left";
    EXPECT_EQ(vconf_unset("db/veranti/terms_title"), 0);
    EXPECT_EQ(Get("db/veranti/terms_title"), Errno(ENOENT));
    EXPECT_EQ(vconf_unset("db/veranti/terms_title"), 0);
}

TEST_F(AConfigurationStore, NeverShowsAReaderAMixOfOldAndNewValue) {
    const std::string first(200 * 1024, 'a'), second(150 * 1024, 'b');
    ASSERT_EQ(vconf_set_str("race/key", first.c_str()), 0);
    std::atomic<bool> writing{true};
    std::atomic<int> mixed{0}, reads{0};
    std::thread reader([&] {
        for (std::string seen; writing || reads == 0; ++reads)
            mixed += (seen = Get("race/key")) != first && seen != second;
    });
    for (int i = 0; i < 60; ++i) EXPECT_EQ(vconf_set_str("race/key", (i % 2 ? first : second).c_str()), 0);
    writing = false;
    reader.join();
    EXPECT_EQ(mixed, 0) << "of " << reads << " reads";
}

TEST_F(AConfigurationStore, ToolExitsWithTheDocumentedStatusAndOneErrorLineOnFailure) {
    const std::string out = m_Store.Root() + "/.out", err = m_Store.Root() + "/.err";
    const auto run = [&](const std::string& args) {
        return WEXITSTATUS(std::system((VCONFTOOL_PATH " " + args + " >" + out + " 2>" + err).c_str()));
    };
    // clang-format off
    const std::pair<const char*, int> cases[] = {
        {"set db/present value", 0}, {"set db/dir/inner v", 0}, {"get db/absent", 1}, {"get a//b", 2},
        {"get db/dir", 3}, {"set db/new fresh", 0}, {"set db/present/below x", 3}, {"unset db/new", 0},
        {"get", 2}, {"frobnicate db/present", 2}};
    // clang-format on
    for (const auto& [args, status] : cases) {
        EXPECT_EQ(run(args), status) << args;
        EXPECT_EQ(ReadFile(out), "") << args;
        const std::string error = ReadFile(err);
        EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), status == 0 ? 0 : 1) << args << ": " << error;
    }
    EXPECT_EQ(Get("db/new"), Errno(ENOENT));
    EXPECT_EQ(run("get db/present"), 0);
    EXPECT_EQ(ReadFile(out), "value\n");
}

}  // namespace
