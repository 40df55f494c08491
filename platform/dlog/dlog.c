/* Host stand-in for the platform log: one line per call, written whole. */
#define _GNU_SOURCE
#include "dlog.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#define DLOG_EXPORT __attribute__((visibility("default")))

/* Room for a line of ordinary length on the stack; longer lines go to the heap. */
enum { STACK_LINE_SIZE = 1024 };
/* "YYYY-MM-DD hh:mm:ss.mmm " */
enum { TIMESTAMP_LENGTH = 24 };

typedef enum { OUTPUT_STDERR, OUTPUT_FILE, OUTPUT_SYSLOG, OUTPUT_NONE } output_kind;

static struct {
    output_kind kind;
    int fd;
    int min_prio;
} g_config;

static pthread_once_t g_config_once = PTHREAD_ONCE_INIT;

static const char PRIORITY_LETTERS[] = "??VDIWEF";
static const char* const BUFFER_NAMES[] = {"main", "radio", "system", "apps"};

static int priority_from_text(const char* text) {
    if (!text || !text[0] || text[1]) return DLOG_DEBUG;
    if (text[0] >= '0' + DLOG_VERBOSE && text[0] <= '0' + DLOG_FATAL) return text[0] - '0';
    const char* letter = strchr(PRIORITY_LETTERS + DLOG_VERBOSE, text[0] & ~0x20);
    return letter ? (int)(letter - PRIORITY_LETTERS) : DLOG_DEBUG;
}

static int open_log_file(const char* path) {
    int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    return fd >= 0 ? fd : STDERR_FILENO;
}

static void read_config(void) {
    const char* output = getenv("DLOG_OUTPUT");
    g_config.kind = OUTPUT_STDERR;
    g_config.fd = STDERR_FILENO;
    g_config.min_prio = priority_from_text(getenv("DLOG_MIN_PRIO"));
    if (!output) return;
    if (strncmp(output, "file:", 5) == 0 && output[5]) {
        g_config.kind = OUTPUT_FILE;
        g_config.fd = open_log_file(output + 5);
    } else if (strcasecmp(output, "syslog") == 0) {
        g_config.kind = OUTPUT_SYSLOG;
    } else if (strcasecmp(output, "none") == 0) {
        g_config.kind = OUTPUT_NONE;
    }
}

static int syslog_priority(int prio) {
    static const int levels[] = {LOG_DEBUG, LOG_DEBUG, LOG_DEBUG, LOG_DEBUG, LOG_INFO, LOG_WARNING, LOG_ERR, LOG_CRIT};
    return levels[prio];
}

static void format_timestamp(char out[TIMESTAMP_LENGTH + 1]) {
    struct timespec now;
    struct tm local;
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    strftime(out, TIMESTAMP_LENGTH + 1, "%Y-%m-%d %H:%M:%S", &local);
    snprintf(out + 19, TIMESTAMP_LENGTH + 1 - 19, ".%03u ", (unsigned)(now.tv_nsec / 1000000L) % 1000u);
}

/* Writes the whole line, normally with one write(2); returns bytes written or -errno. */
static int write_line(const char* line, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t n = write(g_config.fd, line + done, length - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -errno;
        done += (size_t)n;
    }
    return (int)done;
}

static int emit_line(int prio, const char* line, size_t length) {
    if (g_config.kind != OUTPUT_SYSLOG) return write_line(line, length);
    /* syslog stamps its own time; the line without its trailing newline follows. */
    int message_length = (int)(length - TIMESTAMP_LENGTH - 1);
    syslog(syslog_priority(prio), "%.*s", message_length, line + TIMESTAMP_LENGTH);
    return message_length;
}

static int format_header(char* out, size_t size, const char* stamp, int log_id, int prio, const char* tag) {
    return snprintf(out, size, "%s%c/%s(%d:%d) %s: ", stamp, PRIORITY_LETTERS[prio], tag, (int)getpid(), (int)gettid(),
                    BUFFER_NAMES[log_id]);
}

/* Formats header, message and, when the message lacks one, a newline into a
 * stack buffer, or into a heap buffer of the exact size when the line is
 * longer, then emits the line. */
__attribute__((format(printf, 4, 0))) static int format_and_emit(int log_id, int prio, const char* tag, const char* fmt,
                                                                 va_list args) {
    char stack_line[STACK_LINE_SIZE];
    char stamp[TIMESTAMP_LENGTH + 1];
    format_timestamp(stamp);
    int header = format_header(stack_line, sizeof stack_line, stamp, log_id, prio, tag);
    if (header < 0) return -EINVAL;

    va_list again;
    va_copy(again, args);
    size_t room = (size_t)header < sizeof stack_line ? sizeof stack_line - (size_t)header : 0;
    int message = vsnprintf(room ? stack_line + header : NULL, room, fmt, args);
    size_t length = (size_t)header + (size_t)message;
    char* line = stack_line;
    if (message >= 0 && length + 2 > sizeof stack_line) {
        line = malloc(length + 2);
        if (line) {
            format_header(line, (size_t)header + 1, stamp, log_id, prio, tag);
            vsnprintf(line + header, (size_t)message + 1, fmt, again);
        }
    }
    va_end(again);
    if (message < 0) return -EINVAL;
    if (!line) return -ENOMEM;

    if (message == 0 || line[length - 1] != '\n') line[length++] = '\n';
    int result = emit_line(prio, line, length);
    if (line != stack_line) free(line);
    return result;
}

DLOG_EXPORT int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    if (!tag || !fmt || log_id < LOG_ID_MAIN || log_id >= LOG_ID_MAX || prio < DLOG_VERBOSE || prio > DLOG_FATAL)
        return -EINVAL;
    pthread_once(&g_config_once, read_config);
    if (g_config.kind == OUTPUT_NONE || prio < g_config.min_prio) return 0;

    va_list args;
    va_start(args, fmt);
    int result = format_and_emit(log_id, prio, tag, fmt, args);
    va_end(args);
    return result;
}
