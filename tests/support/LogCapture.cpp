// Defines __dlog_print for the test program; see LogCapture.h.
#include "LogCapture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace testbed {
namespace {

std::mutex g_Mutex;
int g_ActiveCaptures = 0;
std::vector<LogLine> g_Lines;

bool IsLineNumber(const std::string& text) {
    const size_t digits = !text.empty() && text[0] == '-' ? 1 : 0;
    return text.size() > digits && text.find_first_not_of("0123456789", digits) == std::string::npos;
}

// Splits "<file>: <function>(<line>) > <colour><message>\033[0m\n"; a line of another layout keeps its whole text as
// the message. No regular expression: messages may be very long.
void ParseLayout(LogLine& line) {
    const std::string& text = line.text;
    line.message = text;
    line.line = -1;
    const size_t fileEnd = text.find(": ");
    const size_t close = fileEnd == std::string::npos ? fileEnd : text.find(") > ", fileEnd);
    const size_t open = close == std::string::npos ? close : text.rfind('(', close);
    if (open == std::string::npos || open < fileEnd + 2) return;
    const std::string number = text.substr(open + 1, close - open - 1);
    if (!IsLineNumber(number)) return;
    line.function = text.substr(fileEnd + 2, open - fileEnd - 2);
    line.line = std::stoi(number);
    size_t start = close + 4;
    if (text.compare(start, 2, "\033[") == 0 && text.find('m', start) != std::string::npos) {
        line.colour = text.substr(start, text.find('m', start) + 1 - start);
        start += line.colour.size();
    }
    size_t end = text.size() - (text.back() == '\n' ? 1 : 0);
    if (end >= start + 4 && text.compare(end - 4, 4, "\033[0m") == 0) end -= 4;
    line.message = text.substr(start, end - start);
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
    std::vector<LogLine> found = Lines();
    found.erase(std::remove_if(found.begin(), found.end(), [&](const LogLine& l) { return l.message != message; }),
                found.end());
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
    char* text = nullptr;
    const int size = vasprintf(&text, fmt, args);
    va_end(args);
    testbed::LogLine line{log_id, prio, tag, size >= 0 ? text : "", {}, 0, {}, {}};
    free(text);
    testbed::ParseLayout(line);
    std::lock_guard<std::mutex> lock(testbed::g_Mutex);
    if (testbed::g_ActiveCaptures > 0) testbed::g_Lines.push_back(std::move(line));
    return size;
}
