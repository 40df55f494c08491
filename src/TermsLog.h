// Logging macros of the library: every line goes through the platform log as
//   "<source file>: <function>(<line>) > <colour><message>\033[0m\n".
// A source file defines LOG_TAG before including this header. Messages are
// always string literals; outside texts travel only as format arguments.
#ifndef TERMS_LOG_H
#define TERMS_LOG_H

#include <dlog.h>

#ifndef LOG_TAG
#error "define LOG_TAG before including TermsLog.h"
#endif

#define TLOG_COLOUR_WHITE "\033[37m"
#define TLOG_COLOUR_GREEN "\033[32m"
#define TLOG_COLOUR_YELLOW "\033[33m"
#define TLOG_COLOUR_RED "\033[31m"
#define TLOG_COLOUR_RESET "\033[0m"

#define TLOG_WRITE_FOR(function, logId, prio, colour, fmt, ...)                                              \
    __dlog_print((logId), (prio), LOG_TAG, "%s: %s(%d) > " colour fmt TLOG_COLOUR_RESET "\n", __FILE_NAME__, \
                 (function), __LINE__, ##__VA_ARGS__)

// Each level in two forms: the line names the function it is written in, or
// (the _FOR form) the function a helper writes it for.

// Main buffer.
#define TLOG_TRACE_FOR(fn, fmt, ...) TLOG_WRITE_FOR(fn, LOG_ID_MAIN, DLOG_DEBUG, TLOG_COLOUR_WHITE, fmt, ##__VA_ARGS__)
#define TLOG_INFO_TRACE_FOR(fn, fmt, ...) \
    TLOG_WRITE_FOR(fn, LOG_ID_MAIN, DLOG_INFO, TLOG_COLOUR_WHITE, fmt, ##__VA_ARGS__)
#define TLOG_INFO_FOR(fn, fmt, ...) TLOG_WRITE_FOR(fn, LOG_ID_MAIN, DLOG_INFO, TLOG_COLOUR_GREEN, fmt, ##__VA_ARGS__)
#define TLOG_WARN_FOR(fn, fmt, ...) TLOG_WRITE_FOR(fn, LOG_ID_MAIN, DLOG_WARN, TLOG_COLOUR_RED, fmt, ##__VA_ARGS__)
#define TLOG_NOTICE_FOR(fn, fmt, ...) TLOG_WRITE_FOR(fn, LOG_ID_MAIN, DLOG_WARN, TLOG_COLOUR_YELLOW, fmt, ##__VA_ARGS__)
#define TLOG_ERROR_FOR(fn, fmt, ...) TLOG_WRITE_FOR(fn, LOG_ID_MAIN, DLOG_ERROR, TLOG_COLOUR_RED, fmt, ##__VA_ARGS__)
// System buffer, error priority: the reports that belong in the system log.
#define TLOG_SYSTEM_FOR(fn, fmt, ...) TLOG_WRITE_FOR(fn, LOG_ID_SYSTEM, DLOG_ERROR, TLOG_COLOUR_RED, fmt, ##__VA_ARGS__)

#define TLOG_TRACE(fmt, ...) TLOG_TRACE_FOR(__func__, fmt, ##__VA_ARGS__)
#define TLOG_INFO_TRACE(fmt, ...) TLOG_INFO_TRACE_FOR(__func__, fmt, ##__VA_ARGS__)
#define TLOG_INFO(fmt, ...) TLOG_INFO_FOR(__func__, fmt, ##__VA_ARGS__)
#define TLOG_WARN(fmt, ...) TLOG_WARN_FOR(__func__, fmt, ##__VA_ARGS__)
#define TLOG_NOTICE(fmt, ...) TLOG_NOTICE_FOR(__func__, fmt, ##__VA_ARGS__)
#define TLOG_ERROR(fmt, ...) TLOG_ERROR_FOR(__func__, fmt, ##__VA_ARGS__)
#define TLOG_SYSTEM(fmt, ...) TLOG_SYSTEM_FOR(__func__, fmt, ##__VA_ARGS__)

#endif  // TERMS_LOG_H
