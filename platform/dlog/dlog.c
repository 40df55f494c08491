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

/* DLOG_FILTER: up to this many "tag:priority" entries, tags up to this length. */
enum { MAX_FILTERS = 32, MAX_TAG_LENGTH = 63 };

typedef struct {
    char tag[MAX_TAG_LENGTH + 1];
    int min_prio;
} tag_filter;

static struct {
    output_kind kind;
    int fd;
    int min_prio; /* for tags without an entry of their own */
    int keep_colour;
    int filter_count;
    tag_filter filters[MAX_FILTERS];
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

/* A priority as DLOG_FILTER writes it: a letter (S: silent, nothing passes)
 * or a number 2..7; -1 when it is neither. */
static int filter_priority(const char* text, size_t length) {
    if (length != 1) return -1;
    if ((text[0] & ~0x20) == 'S') return DLOG_SILENT;
    if (text[0] >= '0' + DLOG_VERBOSE && text[0] <= '0' + DLOG_FATAL) return text[0] - '0';
    const char* letter = strchr(PRIORITY_LETTERS + DLOG_VERBOSE, text[0] & ~0x20);
    return letter && *letter ? (int)(letter - PRIORITY_LETTERS) : -1;
}

static void add_filter(const char* entry, size_t length) {
    const char* colon = memchr(entry, ':', length);
    size_t tag_length = colon ? (size_t)(colon - entry) : 0;
    int prio = colon ? filter_priority(colon + 1, length - tag_length - 1) : -1;
    if (prio < 0 || tag_length == 0 || tag_length > MAX_TAG_LENGTH || g_config.filter_count == MAX_FILTERS) {
        fprintf(stderr, "dlog: ignoring the DLOG_FILTER entry \"%.*s\" (write TAG:PRIORITY, e.g. dterms-dbus:E)\n",
                (int)length, entry);
        return;
    }
    if (tag_length == 1 && entry[0] == '*') {
        g_config.min_prio = prio;
        return;
    }
    tag_filter* filter = &g_config.filters[g_config.filter_count++];
    memcpy(filter->tag, entry, tag_length);
    filter->tag[tag_length] = '\0';
    filter->min_prio = prio;
}

/* DLOG_FILTER="tag:P,tag:P,*:P": a lowest priority per tag, "*" for the rest. */
static void read_filters(const char* text) {
    while (text && *text) {
        size_t length = strcspn(text, ", ");
        if (length > 0) add_filter(text, length);
        text += length;
        text += strspn(text, ", ");
    }
}

static int min_prio_for(const char* tag) {
    for (int i = 0; i < g_config.filter_count; ++i) {
        if (strcmp(g_config.filters[i].tag, tag) == 0) return g_config.filters[i].min_prio;
    }
    return g_config.min_prio;
}

/* DLOG_COLOR=always|never; by default colour codes reach a terminal only. */
static int keeps_colour(void) {
    const char* colour = getenv("DLOG_COLOR");
    if (colour && strcasecmp(colour, "always") == 0) return 1;
    if (colour && strcasecmp(colour, "never") == 0) return 0;
    return g_config.kind != OUTPUT_SYSLOG && g_config.kind != OUTPUT_NONE && isatty(g_config.fd);
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
    read_filters(getenv("DLOG_FILTER"));
    if (output && strncmp(output, "file:", 5) == 0 && output[5]) {
        g_config.kind = OUTPUT_FILE;
        g_config.fd = open_log_file(output + 5);
    } else if (output && strcasecmp(output, "syslog") == 0) {
        g_config.kind = OUTPUT_SYSLOG;
    } else if (output && strcasecmp(output, "none") == 0) {
        g_config.kind = OUTPUT_NONE;
    }
    g_config.keep_colour = keeps_colour();
}

/* Removes the terminal's colour codes (ESC [ digits and ; ... m) from the
 * line in place; returns the new length. */
static size_t strip_colour(char* line, size_t length) {
    size_t kept = 0;
    for (size_t i = 0; i < length; ++i) {
        if (line[i] == '\033' && i + 1 < length && line[i + 1] == '[') {
            size_t end = i + 2;
            while (end < length && ((line[end] >= '0' && line[end] <= '9') || line[end] == ';')) ++end;
            if (end < length && line[end] == 'm') {
                i = end;
                continue;
            }
        }
        line[kept++] = line[i];
    }
    return kept;
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

    if (!g_config.keep_colour) length = strip_colour(line, length);
    if (length == 0 || line[length - 1] != '\n') line[length++] = '\n';
    int result = emit_line(prio, line, length);
    if (line != stack_line) free(line);
    return result;
}

DLOG_EXPORT int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    if (!tag || !fmt || log_id < LOG_ID_MAIN || log_id >= LOG_ID_MAX || prio < DLOG_VERBOSE || prio > DLOG_FATAL)
        return -EINVAL;
    pthread_once(&g_config_once, read_config);
    if (g_config.kind == OUTPUT_NONE || prio < min_prio_for(tag)) return 0;

    va_list args;
    va_start(args, fmt);
    int result = format_and_emit(log_id, prio, tag, fmt, args);
    va_end(args);
    return result;
}
