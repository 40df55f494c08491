// The log stand-in reads its environment once per process, so each case logs in a child process.
#include <dlog.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <thread>
#include <tuple>

namespace {

// The message of every line, after "<stamp> <P>/<tag>(<pid>:<tid>) <buffer>: ".
std::vector<std::string> Messages(const std::string& path) {
    static const std::regex header(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} [VDIWEF]/[^(]*\(\d+:\d+\) [a-z]+: )");
    std::vector<std::string> messages;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) messages.push_back(std::regex_replace(line, header, ""));
    return messages;
}

class TheLogStandIn : public testing::Test {
protected:
    void TearDown() override { std::filesystem::remove(m_Log), std::filesystem::remove(m_Stderr); }

    // Runs `body` in a child logging to m_Log (else to standard error, which goes to m_Stderr).
    void RunInChild(bool toFile, const char* minimumPriority, const std::function<bool()>& body) {
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(open(m_Stderr.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), STDERR_FILENO);
            if (toFile) setenv("DLOG_OUTPUT", ("file:" + m_Log).c_str(), 1);
            if (minimumPriority) setenv("DLOG_MIN_PRIO", minimumPriority, 1);
            _exit(body() ? 0 : 1);
        }
        int status = -1;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0) << "the child's checks failed";
    }

    // The process id keeps test programs that run at once apart.
    std::string m_Log = testing::TempDir() + "dlog-test-" + std::to_string(getpid()), m_Stderr = m_Log + ".stderr";
};

TEST_F(TheLogStandIn, WritesOneLinePerCallToStandardErrorByDefaultAndRefusesBadArguments) {
    // clang-format off
    const std::tuple<int, int, const char*, const char*> bad[] = {
        {LOG_ID_MAIN, DLOG_INFO, nullptr, "x"}, {LOG_ID_MAIN, DLOG_INFO, "T", nullptr}, {-1, DLOG_INFO, "T", "x"},
        {LOG_ID_MAX, DLOG_INFO, "T", "x"}, {LOG_ID_MAIN, DLOG_DEFAULT, "T", "x"}, {LOG_ID_MAIN, DLOG_SILENT, "T", "x"}};
    // clang-format on
    RunInChild(false, nullptr, [&] {
        const auto print = &__dlog_print;  // through a pointer, a null format the compiler refuses gets through
        bool refused = true;
        for (const auto& [logId, prio, tag, fmt] : bad) refused &= print(logId, prio, tag, fmt) == -EINVAL;
        const int written = __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "Veranti", "%s: %s(%d) > \033[32m%s\033[0m\n",
                                         "VerantiAPI.cpp", "GetInstance", 42, "hello") +
                            __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "T", "%s", "no newline");
        return refused && written == static_cast<int>(std::filesystem::file_size(m_Stderr));
    });
    const std::string stamp = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";
    const std::regex lines(stamp + R"(I/Veranti\((\d+):\1\) system: VerantiAPI\.cpp: GetInstance\(42\) > )" +
                           R"(\x1b\[32mhello\x1b\[0m\n)" + stamp + R"(E/T\(\d+:\d+\) main: no newline\n)");
    std::ifstream in(m_Stderr);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
}

TEST_F(TheLogStandIn, AppendsWholeLinesOfUpTo64KiBToAFileWithoutInterleavingThreads) {
    std::ofstream(m_Log) << "earlier line\n";
    std::string big(64 * 1024, 'x');
    for (size_t i = 0; i < big.size(); i += 1000) big[i] = static_cast<char>('a' + i / 1000 % 26);
    RunInChild(true, nullptr, [&] {
        __dlog_print(LOG_ID_MAIN, DLOG_WARN, "B", "<%s>", big.c_str());
        std::vector<std::thread> threads;
        for (int t = 0; t < 6; ++t)
            threads.emplace_back([t] {
                for (size_t n = 0; n < 150; ++n)
                    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%d %s|", t, std::string(n * 23 % 3000, 'a').c_str());
            });
        for (std::thread& thread : threads) thread.join();
        return true;
    });
    const std::vector<std::string> messages = Messages(m_Log);
    ASSERT_EQ(messages.size(), 902u);
    EXPECT_EQ(messages[0], "earlier line");
    EXPECT_TRUE(messages[1] == "<" + big + ">") << "the 64 KiB line is not whole";
    for (size_t i = 2; i < messages.size(); ++i)
        EXPECT_EQ(messages[i].find_first_not_of('a', 2), messages[i].size() - 1) << "cut or mixed: " << messages[i];
}

TEST_F(TheLogStandIn, DropsLinesBelowTheMinimumPriority) {
    const std::pair<const char*, std::string> cases[] = {
        {nullptr, "DIWEF"}, {"V", "VDIWEF"}, {"w", "WEF"}, {"6", "EF"}, {"bogus", "DIWEF"}};
    for (const auto& [minimum, written] : cases) {
        RunInChild(false, minimum, [] {
            for (int prio = DLOG_VERBOSE; prio <= DLOG_FATAL; ++prio) __dlog_print(LOG_ID_MAIN, prio, "F", "%d", prio);
            return true;
        });
        std::string letters;
        for (const std::string& message : Messages(m_Stderr)) letters += "??VDIWEF"[std::stoi(message)];
        EXPECT_EQ(letters, written) << "DLOG_MIN_PRIO=" << (minimum ? minimum : "(unset)");
    }
}

}  // namespace
