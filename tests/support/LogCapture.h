// Captures every line logged through __dlog_print in this test program.
//
// Linking testbed_logcapture defines __dlog_print in the executable, which takes precedence over the log stand-in for
// the library and everything else in the process (ordinary ELF interposition). Lines are recorded while at least one
// LogCapture object lives.
#ifndef TESTBED_LOG_CAPTURE_H
#define TESTBED_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace testbed {

struct LogLine {
    int logId;
    int prio;
    std::string tag;
    std::string text;      // the whole formatted line, colour codes included
    std::string function;  // from "<file>: <function>(<line>) > "
    int line;
    std::string colour;   // the escape sequence right after "> ", e.g. "\033[32m"
    std::string message;  // the text between the colour code and "\033[0m\n"
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    // Lines whose message equals `message` exactly.
    std::vector<LogLine> WithMessage(const std::string& message) const;
    size_t Count(const std::string& message) const { return WithMessage(message).size(); }
    void Clear();
};

}  // namespace testbed

#endif
