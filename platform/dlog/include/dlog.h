/* Host stand-in for the platform log.
 *
 * One call writes one whole line with one write(2), so lines of several
 * threads and processes never interleave. Where lines go is read once from
 * the environment (see the project README):
 *   DLOG_OUTPUT    stderr (default) | file:<path> (appended; stderr when it
 *                  cannot be opened) | syslog | none
 *   DLOG_MIN_PRIO  lowest priority written: a number 2..7 or one of
 *                  V D I W E F (default D)
 *   DLOG_FILTER    lowest priority per tag, "tag:P,tag:P,*:P" (P as above,
 *                  or S for none of the tag's lines); "*" stands for every
 *                  tag without an entry and replaces DLOG_MIN_PRIO
 *   DLOG_COLOR     always | never | auto (default): whether the colour codes
 *                  in messages are kept; auto keeps them only when the
 *                  output is a terminal (stripped for files, pipes, syslog)
 * A line reads
 *   YYYY-MM-DD hh:mm:ss.mmm P/tag(pid:tid) buffer: message
 * with local time, the priority letter and the buffer name (main, radio,
 * system, apps); the message is kept exactly as formatted (colour codes
 * aside, see DLOG_COLOR) and a newline is added only when it does not end
 * with one. With syslog output the line
 * goes to syslog(3) without the time stamp.
 */
#ifndef DLOG_H
#define DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

typedef enum { LOG_ID_MAIN = 0, LOG_ID_RADIO = 1, LOG_ID_SYSTEM = 2, LOG_ID_APPS = 3, LOG_ID_MAX } log_id_t;

typedef enum {
    DLOG_UNKNOWN = 0,
    DLOG_DEFAULT = 1,
    DLOG_VERBOSE = 2,
    DLOG_DEBUG = 3,
    DLOG_INFO = 4,
    DLOG_WARN = 5,
    DLOG_ERROR = 6,
    DLOG_FATAL = 7,
    DLOG_SILENT = 8
} log_priority;

/* Returns the number of bytes written (0 when the line is filtered out or
 * output is off), or a negative errno: -EINVAL for a null tag or format, an
 * unknown log id or priority. */
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif /* DLOG_H */
