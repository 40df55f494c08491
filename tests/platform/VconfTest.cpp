#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "TempStore.h"

namespace {

namespace fs = std::filesystem;

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class AConfigurationStore : public testing::Test {
protected:
    // Value of `key` through the stand-in, or "<errno N>" when it fails.
    static std::string Get(const char* key) {
        errno = 0;
        char* value = vconf_get_str(key);
        if (!value) return "<errno " + std::to_string(errno) + ">";
        std::string text(value);
        free(value);
        return text;
    }
    static std::string Errno(int error) { return "<errno " + std::to_string(error) + ">"; }

    std::string PathOf(const std::string& key) const { return m_Store.Root() + "/" + key; }

    testbed::TempStore m_Store;
};

TEST_F(AConfigurationStore, AcceptsOnlyRelativeKeysOfPlainSegments) {
    const std::vector<std::pair<const char*, bool>> cases = {{"db/veranti/disclaimeragrees", true},
                                                             {"a", true},
                                                             {"A-b_c.d/0.9", true},
                                                             {"..a/b..", true},
                                                             {".hidden", true},
                                                             {"", false},
                                                             {"/abs", false},
                                                             {"a//b", false},
                                                             {"a/../b", false},
                                                             {"..", false},
                                                             {".", false},
                                                             {"a/.", false},
                                                             {"./a", false},
                                                             {"a/", false},
                                                             {"a b", false},
                                                             {"a\tb", false},
                                                             {"caf\xc3\xa9", false},
                                                             {"a\\b", false},
                                                             {"a~", false},
                                                             {"a:b", false}};
    for (const auto& [key, valid] : cases) {
        EXPECT_EQ(vconf_key_is_valid(key), valid ? 1 : 0) << '"' << key << '"';
        if (!valid) {
            errno = 0;
            EXPECT_EQ(vconf_set_str(key, "v"), -1) << key;
            EXPECT_EQ(errno, EINVAL) << key;
            EXPECT_EQ(Get(key), Errno(EINVAL)) << key;
            EXPECT_EQ(vconf_unset(key), -1) << key;
        }
    }
    EXPECT_EQ(vconf_key_is_valid(nullptr), 0);
    EXPECT_EQ(Get(nullptr), Errno(EINVAL));
    // Nothing was written anywhere, in particular not outside the root.
    EXPECT_TRUE(fs::is_empty(m_Store.Root()));
}

TEST_F(AConfigurationStore, StoresTheValueBytesInOneFilePerKeyAndReadsThemBack) {
    ASSERT_EQ(vconf_set_str("db/veranti/terms_title", "{\"menu\": \"Terms\"}"), 0);
    EXPECT_EQ(ReadFile(PathOf("db/veranti/terms_title")), "{\"menu\": \"Terms\"}");
    EXPECT_EQ(Get("db/veranti/terms_title"), "{\"menu\": \"Terms\"}");

    ASSERT_EQ(vconf_set_str("db/veranti/terms_title", "shorter"), 0);
    EXPECT_EQ(Get("db/veranti/terms_title"), "shorter");
    ASSERT_EQ(vconf_set_str("db/veranti/terms_title", ""), 0);
    EXPECT_EQ(Get("db/veranti/terms_title"), "");
    // Only the key's file remains: no temporary files are left behind.
    EXPECT_EQ(std::distance(fs::directory_iterator(PathOf("db/veranti")), fs::directory_iterator()), 1);
}

TEST_F(AConfigurationStore, UnsetsKeysAndReportsMissingOnesAsEnoent) {
    EXPECT_EQ(Get("db/none"), Errno(ENOENT));
    EXPECT_EQ(vconf_unset("db/none"), 0);
    ASSERT_EQ(vconf_set_str("db/key", "v"), 0);
    EXPECT_EQ(vconf_unset("db/key"), 0);
    EXPECT_EQ(Get("db/key"), Errno(ENOENT));
    EXPECT_FALSE(fs::exists(PathOf("db/key")));
}

TEST_F(AConfigurationStore, CreatesMissingDirectoriesIncludingTheRoot) {
    const std::string root = m_Store.Root() + "/not/yet/there";
    setenv("VCONF_ROOT", root.c_str(), 1);
    const mode_t previous = umask(022);
    ASSERT_EQ(vconf_set_str("x/y/z", "deep"), 0);
    umask(previous);
    EXPECT_EQ(ReadFile(root + "/x/y/z"), "deep");
    EXPECT_EQ(fs::status(root + "/x/y").permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(root).permissions(), fs::perms(0755));
}

TEST_F(AConfigurationStore, KeepsLargeValuesAndEveryByteButNul) {
    std::string value(1024 * 1024, '\0');
    for (size_t i = 0; i < value.size(); ++i) value[i] = char(1 + i % 255);
    ASSERT_EQ(vconf_set_str("big/value", value.c_str()), 0);
    EXPECT_EQ(Get("big/value"), value);
}

TEST_F(AConfigurationStore, RefusesKeysWhosePathIsADirectoryOrCrossesAFile) {
    ASSERT_EQ(vconf_set_str("dir/inner", "v"), 0);
    EXPECT_EQ(Get("dir"), Errno(EISDIR));
    EXPECT_EQ(vconf_set_str("dir", "v"), -1);
    EXPECT_EQ(vconf_unset("dir"), -1);
    EXPECT_EQ(Get("dir/inner/below"), Errno(ENOTDIR));
    errno = 0;
    EXPECT_EQ(vconf_set_str("dir/inner/below", "v"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(Get("dir/inner"), "v");
}

TEST_F(AConfigurationStore, RefusesANullValue) {
    errno = 0;
    EXPECT_EQ(vconf_set_str("db/key", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(AConfigurationStore, NeverShowsAReaderAMixOfOldAndNewValue) {
    const std::string first(200 * 1024, 'a');
    const std::string second(150 * 1024, 'b');
    ASSERT_EQ(vconf_set_str("race/key", first.c_str()), 0);
    std::atomic<bool> writing{true};
    std::atomic<int> mixed{0};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        while (writing || reads == 0) {
            const std::string seen = Get("race/key");
            if (seen != first && seen != second) ++mixed;
            ++reads;
        }
    });
    for (int i = 0; i < 60; ++i) ASSERT_EQ(vconf_set_str("race/key", (i % 2 ? first : second).c_str()), 0);
    writing = false;
    reader.join();
    EXPECT_EQ(mixed, 0) << "of " << reads << " reads";
}

// Runs vconftool with `args`, standard input from `input`; fills its output.
struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

class TheVconftool : public AConfigurationStore {
protected:
    ToolRun Run(const std::vector<std::string>& args, const std::string& input = "") const {
        const std::string in = m_Store.Root() + ".in";
        const std::string out = in + ".out", err = in + ".err";
        std::ofstream(in, std::ios::binary) << input;
        const pid_t pid = fork();
        if (pid == 0) {
            RedirectChild(in, out, err);
            std::vector<char*> argv{const_cast<char*>(VCONFTOOL_PATH)};
            for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
            argv.push_back(nullptr);
            execv(VCONFTOOL_PATH, argv.data());
            _exit(127);
        }
        ToolRun run;
        int status = 0;
        waitpid(pid, &status, 0);
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.out = ReadFile(out);
        run.err = ReadFile(err);
        for (const std::string& path : {in, out, err}) fs::remove(path);
        return run;
    }

    static void RedirectChild(const std::string& in, const std::string& out, const std::string& err) {
        dup2(open(in.c_str(), O_RDONLY), STDIN_FILENO);
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDOUT_FILENO);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
    }
};

TEST_F(TheVconftool, ExitsWithTheDocumentedStatusForEachOutcome) {
    ASSERT_EQ(vconf_set_str("db/present", "value"), 0);
    ASSERT_EQ(vconf_set_str("db/dir/inner", "v"), 0);
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string out;
    };
    const std::vector<Case> cases = {
        {{"get", "db/present"}, 0, "value\n"},
        {{"get", "db/absent"}, 1, ""},
        {{"get", "a//b"}, 2, ""},
        {{"get", "db/dir"}, 3, ""},
        {{"set", "db/new", "fresh"}, 0, ""},
        {{"set", "/abs", "x"}, 2, ""},
        {{"set", "db/present/below", "x"}, 3, ""},
        {{"unset", "db/new"}, 0, ""},
        {{"unset", "db/absent"}, 0, ""},
        {{"unset", "db/dir"}, 3, ""},
        {{}, 2, ""},
        {{"get"}, 2, ""},
        {{"get", "a", "b"}, 2, ""},
        {{"frobnicate", "db/present"}, 2, ""},
    };
    for (const Case& c : cases) {
        const ToolRun run = Run(c.args);
        std::string command;
        for (const std::string& arg : c.args) command += " " + arg;
        EXPECT_EQ(run.status, c.status) << command;
        EXPECT_EQ(run.out, c.out) << command;
        // Failures say why in one line on standard error; successes are silent there.
        EXPECT_EQ(run.err.empty(), c.status == 0) << command << ": " << run.err;
        if (!run.err.empty()) {
            EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << command << ": " << run.err;
        }
    }
    EXPECT_EQ(Get("db/new"), Errno(ENOENT));
}

TEST_F(TheVconftool, PrintsUsageForHelp) {
    const ToolRun run = Run({"--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("vconftool get KEY"), std::string::npos) << run.out;
}

TEST_F(TheVconftool, SetsTheValueFromStandardInputExactly) {
    EXPECT_EQ(Run({"set", "db/in", "-"}, "line one\nline two\n").status, 0);
    EXPECT_EQ(Get("db/in"), "line one\nline two\n");
    EXPECT_EQ(Run({"set", "db/in", "-"}, std::string("nul\0inside", 10)).status, 2);
    EXPECT_EQ(Get("db/in"), "line one\nline two\n");
}

}  // namespace
