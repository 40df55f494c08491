// Defines __dlog_print for the test program; see LogCapture.h.
#include "LogCapture.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <regex>

namespace testbed {
namespace {

std::mutex g_Mutex;
int g_ActiveCaptures = 0;
std::vector<LogLine> g_Lines;

bool EchoRequested() {
    static const bool echo = getenv("TESTBED_LOG_ECHO") != nullptr;
    return echo;
}

// Splits "<file>: <function>(<line>) > <colour><message>\033[0m\n".
void ParseLayout(LogLine& line) {
    static const std::regex layout(R"(^([^:]*): (.*)\((-?\d+)\) > (\x1b\[\d+m)?([\s\S]*?)(\x1b\[0m)?\n?$)");
    std::smatch match;
    if (!std::regex_match(line.text, match, layout)) {
        line.message = line.text;
        line.line = -1;
        return;
    }
    line.file = match[1];
    line.function = match[2];
    line.line = std::stoi(match[3]);
    line.colour = match[4];
    line.message = match[5];
}

std::string Format(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int size = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string text(size > 0 ? size : 0, '\0');
    if (size > 0) vsnprintf(text.data(), text.size() + 1, fmt, args);
    return text;
}

}  // namespace

LogCapture::LogCapture() {
    std::lock_guard<std::mutex> lock(g_Mutex);
    if (g_ActiveCaptures++ == 0) g_Lines.clear();
}

LogCapture::~LogCapture() {
    std::lock_guard<std::mutex> lock(g_Mutex);
    --g_ActiveCaptures;
}

std::vector<LogLine> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(g_Mutex);
    return g_Lines;
}

std::vector<LogLine> LogCapture::WithMessage(const std::string& message) const {
    std::vector<LogLine> found;
    for (const LogLine& line : Lines()) {
        if (line.message == message) found.push_back(line);
    }
    return found;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(g_Mutex);
    g_Lines.clear();
}

}  // namespace testbed

extern "C" __attribute__((visibility("default"), format(printf, 4, 5))) int __dlog_print(int log_id, int prio,
                                                                                          const char* tag,
                                                                                          const char* fmt, ...) {
    if (!tag || !fmt) return -22;
    va_list args;
    va_start(args, fmt);
    testbed::LogLine line{log_id, prio, tag, testbed::Format(fmt, args), {}, {}, 0, {}, {}};
    va_end(args);
    testbed::ParseLayout(line);
    if (testbed::EchoRequested()) std::cerr << '[' << prio << '/' << tag << '/' << log_id << "] " << line.text;
    std::lock_guard<std::mutex> lock(testbed::g_Mutex);
    const int size = static_cast<int>(line.text.size());
    if (testbed::g_ActiveCaptures > 0) testbed::g_Lines.push_back(std::move(line));
    return size;
}
