// The configuration store stand-in, on a temporary root.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
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

// vconftool as the shell runs it, on the test's store, with standard input
// written by printf from `input` (a printf format); its exit status and output.
std::pair<int, std::string> RunVconftool(const std::string& args, const std::string& input = "") {
    const std::string command = "printf '" + input + "' | " VCONFTOOL " " + args + " 2>/dev/null";
    FILE* tool = popen(command.c_str(), "r");
    std::string out;
    char buffer[256];
    while (tool && std::fgets(buffer, sizeof buffer, tool)) out += buffer;
    const int status = tool ? pclose(tool) : -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

TEST(TheStoreTool, SetsGetsAndUnsetsKeysAndAnswersWithTheExitStatusItDocuments) {
    const testbed::TempStore store;
    const struct {
        const char* args;
        const char* input;
        std::pair<int, std::string> expected;
    } steps[] = {
        {"get db/a/b", "", {1, ""}},  // not set
        {"set db/a/b hello", "", {0, ""}},
        {"get db/a/b", "", {0, "hello\n"}},
        {"set db/a/b -", "from\\nstdin", {0, ""}},  // the value read from standard input
        {"get db/a/b", "", {0, "from\nstdin\n"}},
        {"set db/a/b -", "a\\000b", {2, ""}},  // a NUL byte on standard input
        {"unset db/a/b", "", {0, ""}},
        {"get db/a/b", "", {1, ""}},
        {"get /db/a", "", {2, ""}},    // not a valid key
        {"copy db/a/b", "", {2, ""}},  // not a command
        {"set db/a/b", "", {2, ""}},   // a value missing
        {"get", "", {2, ""}},
    };
    for (const auto& step : steps) EXPECT_EQ(RunVconftool(step.args, step.input), step.expected) << step.args;
    EXPECT_EQ(store.Get("db/a/b"), std::nullopt);

    const auto [status, help] = RunVconftool("--help");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(help.rfind("Usage: vconftool get KEY\n", 0), 0u) << help;
}

}  // namespace
