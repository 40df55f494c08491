// The log stand-in, writing to the file that DLOG_OUTPUT names (CMakeLists.txt sets it).
#include <dlog.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

// Runs dlog_probe with `lines` (TAG:P:TEXT) under `environment` ("NAME=value ..."), its stderr a terminal or,
// unless `terminal`, a pipe to cat; everything the probe wrote there, the terminal's carriage returns removed.
std::string ProbeOutput(const std::string& environment, const std::vector<std::string>& lines, bool terminal = false) {
    std::string command =
        "exec env -u DLOG_OUTPUT -u DLOG_MIN_PRIO -u DLOG_FILTER -u DLOG_COLOR " + environment + " " DLOG_PROBE;
    for (const std::string& line : lines) command += " '" + line + "'";
    command += terminal ? " 2>&1" : " 2>&1 | cat";
    int master = -1;
    const pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    std::string output;
    char buffer[4096];
    for (ssize_t got; (got = read(master, buffer, sizeof buffer)) > 0;) output.append(buffer, static_cast<size_t>(got));
    waitpid(child, nullptr, 0);
    close(master);
    output.erase(std::remove(output.begin(), output.end(), '\r'), output.end());
    return output;
}

// The messages of the probe's lines, one a line, without their headers.
std::string Messages(const std::string& output) {
    std::string messages;
    for (size_t start = 0, end; (end = output.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = output.substr(start, end - start);
        const size_t header = line.find(" main: ");
        messages += (header == std::string::npos ? line : line.substr(header + 7)) + "\n";
    }
    return messages;
}

}  // namespace

TEST(TheLogStandIn, AppendsOneWholeLinePerCallOfUpTo64KiBWithoutInterleavingThreads) {
    const char* output = getenv("DLOG_OUTPUT");
    ASSERT_TRUE(output && std::string(output).rfind("file:", 0) == 0) << "ctest sets DLOG_OUTPUT=file:<path>";
    std::ofstream(output + 5) << "earlier line\n";
    std::string big(64 * 1024, 'x');
    for (size_t i = 0; i < big.size(); i += 1000) big[i] = static_cast<char>('a' + i / 1000 % 26);
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "Big", "<%s>\n", big.c_str());
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([t] {
            for (size_t n = 0; n < 150; ++n)
                __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%d %s|", t, std::string(n * 23 % 3000, 'a').c_str());
        });
    for (std::thread& thread : threads) thread.join();
    std::ifstream in(output + 5);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line.substr(line.find(": ") + 2));
    ASSERT_EQ(lines.size(), 902u);
    EXPECT_TRUE(lines[1] == "<" + big + ">") << "the 64 KiB line is not whole, or its newline doubled";
    for (size_t i = 2; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].find_first_not_of('a', 2), lines[i].size() - 1) << "cut or mixed: " << lines[i];
}

TEST(TheLogStandIn, KeepsColourCodesForATerminalOnlyUnlessToldOtherwise) {
    const std::string kColoured = "\033[31mred\033[0m\n", kPlain = "red\n";
    const std::string file = testing::TempDir() + "dlog-colour.log";
    const std::tuple<std::string, bool, std::string> kCases[] = {
        {"", false, kPlain},
        {"", true, kColoured},
        {"DLOG_COLOR=never", true, kPlain},
        {"DLOG_COLOR=always", false, kColoured},
        {"DLOG_OUTPUT=file:" + file, false, kPlain},
        {"DLOG_OUTPUT=file:" + file + " DLOG_COLOR=always", false, kColoured},
    };
    for (const auto& [environment, terminal, expected] : kCases) {
        std::remove(file.c_str());
        std::string output = ProbeOutput(environment, {"Tag:4:red"}, terminal);
        if (environment.find("file:") != std::string::npos) {
            std::ifstream in(file);
            output.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
        EXPECT_EQ(Messages(output), expected) << environment << (terminal ? " on a terminal" : "");
    }
}

TEST(TheLogStandIn, FiltersByTagAsWellAsByPriority) {
    const std::vector<std::string> lines = {"Noisy:3:noisy debug", "Noisy:6:noisy error", "Other:3:other debug",
                                            "Other:4:other info", "Quiet:7:quiet fatal"};
    const std::pair<const char*, const char*> kCases[] = {
        {"", "noisy debug\nnoisy error\nother debug\nother info\nquiet fatal\n"},
        {"DLOG_FILTER=Noisy:E,*:I", "noisy error\nother info\nquiet fatal\n"},
        {"DLOG_FILTER=Quiet:S,Other:W", "noisy debug\nnoisy error\n"},
        {"DLOG_MIN_PRIO=W DLOG_FILTER=Other:D", "noisy error\nother debug\nother info\nquiet fatal\n"},
        {"DLOG_FILTER=*:F", "quiet fatal\n"},
    };
    for (const auto& [environment, expected] : kCases)
        EXPECT_EQ(Messages(ProbeOutput(environment, lines)), expected) << environment;
    const std::string warned = ProbeOutput("DLOG_FILTER=Other,Noisy:X,*:I", lines);
    EXPECT_NE(warned.find("dlog: ignoring the DLOG_FILTER entry \"Other\""), std::string::npos) << warned;
    EXPECT_NE(warned.find("\"Noisy:X\""), std::string::npos) << warned;
}
