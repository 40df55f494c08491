// Defines __dlog_print for the test program; see LogCapture.h.
#include "LogCapture.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>

namespace testbed {
namespace {

std::mutex g_Mutex;
int g_ActiveCaptures = 0;
std::vector<LogLine> g_Lines;

bool EchoRequested() {
    static const bool echo = getenv("TESTBED_LOG_ECHO") != nullptr;
    return echo;
}

bool IsLineNumber(const std::string& text) {
    const size_t digits = !text.empty() && text[0] == '-' ? 1 : 0;
    return text.size() > digits && text.find_first_not_of("0123456789", digits) == std::string::npos;
}

// Length of the colour code "\033[<digits>m" at `pos`, or 0.
size_t ColourLength(const std::string& text, size_t pos) {
    if (text.compare(pos, 2, "\033[") != 0) return 0;
    const size_t end = text.find_first_not_of("0123456789", pos + 2);
    return end != std::string::npos && end > pos + 2 && text[end] == 'm' ? end + 1 - pos : 0;
}

// Splits "<file>: <function>(<line>) > <colour><message>\033[0m\n"; a line of
// another layout keeps its whole text as the message. No regular expression:
// messages may be very long.
void ParseLayout(LogLine& line) {
    const std::string& text = line.text;
    line.message = text;
    line.line = -1;
    const size_t fileEnd = text.find(':');
    if (fileEnd == std::string::npos || text.compare(fileEnd, 2, ": ") != 0) return;
    for (size_t close = text.find(") > ", fileEnd); close != std::string::npos; close = text.find(") > ", close + 1)) {
        const size_t open = text.rfind('(', close);
        if (open == std::string::npos || open < fileEnd + 2) return;
        const std::string number = text.substr(open + 1, close - open - 1);
        if (!IsLineNumber(number)) continue;
        line.file = text.substr(0, fileEnd);
        line.function = text.substr(fileEnd + 2, open - fileEnd - 2);
        line.line = std::stoi(number);
        size_t pos = close + 4;
        const size_t colour = ColourLength(text, pos);
        line.colour = text.substr(pos, colour);
        pos += colour;
        std::string message = text.substr(pos);
        if (!message.empty() && message.back() == '\n') message.pop_back();
        const std::string reset = "\033[0m";
        if (message.size() >= reset.size() && message.compare(message.size() - reset.size(), reset.size(), reset) == 0)
            message.erase(message.size() - reset.size());
        line.message = message;
        return;
    }
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
