// The log stand-in, writing to the file that DLOG_OUTPUT names (CMakeLists.txt sets it).
#include <dlog.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

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
