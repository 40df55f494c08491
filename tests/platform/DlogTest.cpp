// The log stand-in reads its configuration once per process, so every case
// runs its logging in a child process with its own environment.
#include <dlog.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Environment = std::map<std::string, std::string>;

// Called through a plain pointer so that arguments the compiler would refuse
// (a null format) can be passed.
int (*const g_Print)(int, int, const char*, const char*, ...) = &__dlog_print;

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The message part of a line: what follows "<stamp> <P>/<tag>(<pid>:<tid>) <buffer>: ".
std::string MessageOf(const std::string& line) {
    static const std::regex header(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [VDIWEF]/[^(]*\(\d+:\d+\) [a-z]+: )");
    std::smatch match;
    return std::regex_search(line, match, header) ? match.suffix().str() : "<no header> " + line;
}

class TheLogStandIn : public testing::Test {
protected:
    void SetUp() override {
        char dirTemplate[] = "/tmp/veranti-dlog-XXXXXX";
        ASSERT_NE(mkdtemp(dirTemplate), nullptr);
        m_Dir = dirTemplate;
    }
    void TearDown() override { std::filesystem::remove_all(m_Dir); }

    std::string LogFile() const { return m_Dir + "/log.txt"; }
    std::string FileOutput() const { return "file:" + LogFile(); }

    // Runs `body` in a child with `environment` set and standard error going
    // to a file; the child's exit status is body's result. Returns that status.
    int RunInChild(const Environment& environment, const std::function<int()>& body) const {
        const pid_t pid = fork();
        if (pid == 0) {
            const int fd = open(StderrFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(fd, STDERR_FILENO);
            for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
            _exit(body());
        }
        int status = -1;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::string StderrFile() const { return m_Dir + "/stderr.txt"; }

    static std::string Read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    std::string m_Dir;
};

TEST_F(TheLogStandIn, WritesAFormattedLineToStandardErrorByDefault) {
    ASSERT_EQ(RunInChild({},
                         [] {
                             const int written =
                                 __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "Veranti", "%s: %s(%d) > \033[32m%s\033[0m\n",
                                              "VerantiAPI.cpp", "GetInstance", 42, "hello");
                             return written > 0 ? 0 : 1;
                         }),
              0);
    const std::string text = Read(StderrFile());
    const std::regex line(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} I/Veranti\((\d+):(\d+)\) system: VerantiAPI\.cpp: GetInstance\(42\) > \x1b\[32mhello\x1b\[0m\n$)");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match, line)) << text;
    EXPECT_EQ(match[1], match[2]) << "a single-threaded child has tid == pid";
}

TEST_F(TheLogStandIn, ReturnsTheBytesWrittenAndAddsANewlineOnlyWhenMissing) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"plain", "plain"}, {"ends\n", "ends"}, {"", ""}, {"two\nlines\n", "two"}};
    ASSERT_EQ(RunInChild({{"DLOG_OUTPUT", FileOutput()}},
                         [&] {
                             off_t size = 0;
                             for (const auto& c : cases) {
                                 const int written = __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "T", "%s", c.first.c_str());
                                 size += written;
                                 if (written <= 0 || std::filesystem::file_size(LogFile()) != size_t(size)) return 1;
                             }
                             return 0;
                         }),
              0);
    const std::vector<std::string> lines = SplitLines(Read(LogFile()));
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(MessageOf(lines[0]), "plain");
    EXPECT_EQ(MessageOf(lines[1]), "ends");
    EXPECT_EQ(MessageOf(lines[2]), "");
    EXPECT_EQ(MessageOf(lines[3]), "two");
    EXPECT_EQ(lines[4], "lines");
}

TEST_F(TheLogStandIn, WritesA64KiBMessageWholeAsOneLine) {
    std::string message(64 * 1024, 'x');
    for (size_t i = 0; i < message.size(); i += 1000) message[i] = char('a' + i / 1000 % 26);
    ASSERT_EQ(RunInChild({{"DLOG_OUTPUT", FileOutput()}},
                         [&] {
                             const int written = __dlog_print(LOG_ID_MAIN, DLOG_WARN, "Big", "<%s>", message.c_str());
                             return written == int(std::filesystem::file_size(LogFile())) ? 0 : 1;
                         }),
              0);
    const std::vector<std::string> lines = SplitLines(Read(LogFile()));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(MessageOf(lines[0]), "<" + message + ">");
}

TEST_F(TheLogStandIn, NeverInterleavesLinesOfSeveralThreads) {
    constexpr int kThreads = 6;
    constexpr int kLinesEach = 150;
    ASSERT_EQ(RunInChild({{"DLOG_OUTPUT", FileOutput()}},
                         [] {
                             std::vector<std::thread> threads;
                             for (int t = 0; t < kThreads; ++t) {
                                 threads.emplace_back([t] {
                                     for (int n = 0; n < kLinesEach; ++n) {
                                         const std::string fill(size_t(n * 23 % 3000), char('a' + t));
                                         __dlog_print(LOG_ID_MAIN, DLOG_INFO, "Threads", "%d %d %s|", t, n,
                                                      fill.c_str());
                                     }
                                 });
                             }
                             for (std::thread& thread : threads) thread.join();
                             return 0;
                         }),
              0);
    const std::vector<std::string> lines = SplitLines(Read(LogFile()));
    ASSERT_EQ(lines.size(), size_t(kThreads * kLinesEach));
    std::vector<int> next(kThreads, 0);
    for (const std::string& line : lines) {
        std::istringstream message(MessageOf(line));
        int t = -1, n = -1;
        std::string fill;
        message >> t >> n >> fill;
        ASSERT_TRUE(t >= 0 && t < kThreads) << line.substr(0, 200);
        EXPECT_EQ(n, next[t]++);
        EXPECT_EQ(fill, std::string(size_t(n * 23 % 3000), char('a' + t)) + "|");
    }
}

TEST_F(TheLogStandIn, DropsLinesBelowTheMinimumPriority) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "DIWEF"}, {"V", "VDIWEF"}, {"w", "WEF"}, {"6", "EF"}, {"7", "F"}, {"2", "VDIWEF"}, {"bogus", "DIWEF"}};
    for (const auto& [minimum, written] : cases) {
        std::filesystem::remove(LogFile());
        Environment environment = {{"DLOG_OUTPUT", FileOutput()}};
        if (!minimum.empty()) environment["DLOG_MIN_PRIO"] = minimum;
        ASSERT_EQ(RunInChild(environment,
                             [] {
                                 for (int prio = DLOG_VERBOSE; prio <= DLOG_FATAL; ++prio) {
                                     const int result = __dlog_print(LOG_ID_MAIN, prio, "Filter", "%d", prio);
                                     if (result < 0) return 1;
                                 }
                                 return 0;
                             }),
                  0);
        std::string letters;
        for (const std::string& line : SplitLines(Read(LogFile()))) letters += line.at(24);
        EXPECT_EQ(letters, written) << "DLOG_MIN_PRIO=" << minimum;
    }
}

TEST_F(TheLogStandIn, AppendsToAFileThatAlreadyHasLines) {
    std::ofstream(LogFile()) << "earlier line\n";
    ASSERT_EQ(RunInChild({{"DLOG_OUTPUT", FileOutput()}},
                         [] { return __dlog_print(LOG_ID_APPS, DLOG_INFO, "A", "later") > 0 ? 0 : 1; }),
              0);
    const std::vector<std::string> lines = SplitLines(Read(LogFile()));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "earlier line");
    EXPECT_NE(lines[1].find(" apps: later"), std::string::npos) << lines[1];
}

TEST_F(TheLogStandIn, WritesNothingAndReturnsZeroWhenOutputIsNone) {
    ASSERT_EQ(RunInChild({{"DLOG_OUTPUT", "none"}},
                         [] { return __dlog_print(LOG_ID_MAIN, DLOG_FATAL, "Off", "nothing") == 0 ? 0 : 1; }),
              0);
    EXPECT_EQ(Read(StderrFile()), "");
}

TEST_F(TheLogStandIn, RejectsNullTextsAndUnknownIdsOrPrioritiesWithEinval) {
    struct Case {
        int logId, prio;
        const char* tag;
        const char* fmt;
    };
    const Case cases[] = {{LOG_ID_MAIN, DLOG_INFO, nullptr, "x"},
                          {LOG_ID_MAIN, DLOG_INFO, "T", nullptr},
                          {-1, DLOG_INFO, "T", "x"},
                          {LOG_ID_MAX, DLOG_INFO, "T", "x"},
                          {LOG_ID_MAIN, DLOG_DEFAULT, "T", "x"},
                          {LOG_ID_MAIN, DLOG_SILENT, "T", "x"}};
    ASSERT_EQ(RunInChild({},
                         [&] {
                             int wrong = 0;
                             for (const Case& c : cases) wrong += g_Print(c.logId, c.prio, c.tag, c.fmt) != -EINVAL;
                             return wrong;
                         }),
              0);
    EXPECT_EQ(Read(StderrFile()), "");
}

}  // namespace
