// The configuration store stand-in, on a temporary root.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "ChildProcess.h"
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

namespace fs = std::filesystem;

std::vector<std::string> Entries(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
    return names;
}

std::string Contents(const fs::path& file) {
    std::ifstream in(file);
    return std::string(std::istreambuf_iterator<char>(in), {});
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
    EXPECT_EQ(Entries(store.Root() + "/db/veranti"), std::vector<std::string>{"title"}) << "no temporary file is left";
}

TEST(AConfigurationStore, RefusesEveryKeyThatPassesThroughASymbolicLinkAndTouchesNothingBeyondIt) {
    const testbed::TempStore elsewhere;  // the directory links point to
    const testbed::TempStore store;      // VCONF_ROOT
    std::ofstream(elsewhere.Root() + "/file") << "outside";
    fs::create_directories(store.Root() + "/a");
    fs::create_directory(store.Root() + "/b");
    fs::create_directory_symlink(elsewhere.Root(), store.Root() + "/l");
    fs::create_symlink(elsewhere.Root() + "/file", store.Root() + "/k");
    fs::create_directory_symlink(store.Root() + "/b", store.Root() + "/a/inner");
    for (const char* key : {"l/x", "l/file", "k", "a/inner/x", "a/inner"}) {
        errno = 0;
        EXPECT_TRUE(vconf_set_str(key, "v") == -1 && errno == ELOOP) << key;
        EXPECT_EQ(Get(key), "errno " + std::to_string(ELOOP)) << key;
        errno = 0;
        EXPECT_TRUE(vconf_unset(key) == -1 && errno == ELOOP) << key;
    }
    EXPECT_EQ(Entries(elsewhere.Root()), std::vector<std::string>{"file"});
    EXPECT_EQ(Contents(elsewhere.Root() + "/file"), "outside");
    EXPECT_TRUE(fs::is_empty(store.Root() + "/b"));
    EXPECT_TRUE(fs::is_symlink(store.Root() + "/k")) << "a refused unset removes nothing";

    const std::string linkedRoot = elsewhere.Root() + "/root";
    fs::create_directory_symlink(store.Root(), linkedRoot);
    setenv("VCONF_ROOT", linkedRoot.c_str(), 1);
    EXPECT_EQ(vconf_set_str("a/x", "through a linked root"), 0) << "the root itself may be a link";
    EXPECT_EQ(Contents(store.Root() + "/a/x"), "through a linked root");
}

TEST(AConfigurationStore, RemovesTheDirectoriesAnUnsetLeavesEmptyButNeverTheRoot) {
    const testbed::TempStore store;
    for (const char* key : {"db/veranti/x", "db/veranti/y", "db/other"}) ASSERT_EQ(vconf_set_str(key, "v"), 0);
    ASSERT_EQ(vconf_unset("db/veranti/x"), 0);
    EXPECT_EQ(Entries(store.Root() + "/db/veranti"), std::vector<std::string>{"y"});
    ASSERT_EQ(vconf_unset("db/other"), 0);
    EXPECT_EQ(Entries(store.Root() + "/db"), std::vector<std::string>{"veranti"});
    ASSERT_EQ(vconf_unset("db/veranti/y"), 0);
    EXPECT_TRUE(fs::is_directory(store.Root()) && fs::is_empty(store.Root())) << "both levels went at once";
    EXPECT_EQ(vconf_unset("db/missing/key"), 0) << "an absent key is already unset";
}

TEST(AConfigurationStore, KeepsEveryWriteWhileOtherThreadsEmptyAndRemoveItsDirectory) {
    const testbed::TempStore store;
    std::atomic<int> failures{0};
    std::vector<std::thread> writers;
    for (const char* key : {"shared/dir/a", "shared/dir/b", "shared/dir/c"}) {
        writers.emplace_back([key, &failures] {
            for (int i = 0; i < 300; ++i) {
                const std::string value = key + std::to_string(i);
                failures += vconf_set_str(key, value.c_str()) != 0 || Get(key) != value;
                failures += vconf_unset(key) != 0;
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(fs::is_empty(store.Root()));
}

// Writers are real processes killed with SIGKILL at random points of a
// 120 KB write; the next write to the directory must clear what they left.
TEST(AConfigurationStore, LeavesNothingOfKilledWritersBehindOnceTheNextWriteIsDone) {
    const testbed::TempStore store;
    const std::string value(120 * 1024, 'k');
    std::mt19937 random(12);
    for (int i = 0; i < 40; ++i) {
        const pid_t writer = fork();
        ASSERT_NE(writer, -1);
        if (writer == 0) {
            alarm(20);  // never outlives a failed test
            for (;;) vconf_set_str("db/killed/value", value.c_str());
        }
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 4000));
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
    }
    ASSERT_EQ(vconf_set_str("db/killed/value", "last"), 0);
    EXPECT_EQ(Entries(store.Root() + "/db/killed"), std::vector<std::string>{"value"});
    EXPECT_EQ(Get("db/killed/value"), "last");
}

// Runs vconftool with `arguments` (shell words) on the current store, with
// standard input written by printf from `input` (a printf format).
testbed::ProgramRun RunVconftool(const std::string& arguments, const std::string& input) {
    return testbed::RunProgram({"/bin/sh", "-c", "printf '" + input + "' | " VCONFTOOL " " + arguments});
}

TEST(Vconftool, GetsSetsAndUnsetsKeysAndSaysWhyItCannot) {
    const testbed::TempStore elsewhere;  // where a link points
    const testbed::TempStore store;      // VCONF_ROOT
    fs::create_directory_symlink(elsewhere.Root(), store.Root() + "/l");
    // The arguments, standard input, and the exit status and the start of stdout and a part of stderr expected.
    const std::tuple<const char*, const char*, int, const char*, const char*> cases[] = {
        {"--help", "", 0, "Usage: vconftool get KEY\n", ""},
        {"frobnicate db/a", "", 2, "", "unknown command"},
        {"get 'a b'", "", 2, "", "is not a valid key"},
        {"get", "", 2, "", ""},
        {"set db/a", "", 2, "", ""},  // the value missing
        {"get db/a", "", 1, "", "key \"db/a\" is not set"},
        {"set db/a 'two words'", "", 0, "", ""},
        {"get db/a", "", 0, "two words\n", ""},
        {"set db/b -", "from\\nstdin", 0, "", ""},  // the value read from standard input
        {"get db/b", "", 0, "from\nstdin\n", ""},
        {"set db/b -", "a\\000b", 2, "", ""},  // a NUL byte on standard input
        {"set db/c -", "", 0, "", ""},
        {"get db/c", "", 0, "\n", ""},
        {"unset db/a", "", 0, "", ""},
        {"get db/a", "", 1, "", "is not set"},
        {"set l/x v", "", 3, "", "cannot set \"l/x\": a part of the key is a symbolic link"},
        {"get l/x", "", 3, "", "cannot read \"l/x\": a part of the key is a symbolic link"},
    };
    for (const auto& [arguments, input, status, out, err] : cases) {
        const testbed::ProgramRun run = RunVconftool(arguments, input);
        EXPECT_EQ(run.status, status) << arguments;
        EXPECT_EQ(run.out.find(out), 0u) << arguments << ": " << run.out;
        EXPECT_NE(run.err.find(err), std::string::npos) << arguments << ": " << run.err;
    }
    EXPECT_EQ(Contents(store.Root() + "/db/b"), "from\nstdin") << "a refused write keeps the stored value";
    EXPECT_TRUE(fs::is_empty(elsewhere.Root())) << "nothing is written beyond the link";
}

}  // namespace
