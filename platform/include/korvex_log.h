/* Gateway logging library: one call per log line, filtered by level. */
#ifndef KORVEX_LOG_H
#define KORVEX_LOG_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Levels used by the gateway software. */
enum {
    KORVEX_LOG_CHILD = 2,  /* child-initialisation trace */
    KORVEX_LOG_TRACE = 3,  /* trace and debug */
    KORVEX_LOG_REQUEST = 4, /* notable request */
    KORVEX_LOG_STATE = 5,  /* notable state */
    KORVEX_LOG_ERROR = 6   /* error */
};

/* Writes one record: level, function name, source line, tag, then the message.
 * Records below the configured level are dropped before formatting. */
void korvex_log_write(int level, const char *func, int line, const char *tag,
                      const char *fmt, ...) __attribute__((format(printf, 5, 6)));

/* Lowest level that is written: the registered sink's answer, or without a sink
 * KORVEX_LOG_LEVEL (default 3). */
int korvex_log_threshold(void);

/* A destination of records other than standard error (a host process's own log).
 * enabled answers whether records of a level are written at all; it is asked before a
 * record is formatted. write receives the formatted record "func:line tag: message"
 * without its trailing newline, length bytes long and NUL-terminated. Both may be called
 * from any thread. */
struct korvex_log_sink {
    int (*enabled)(int level);
    void (*write)(int level, const char *record, size_t length);
};

/* Sends every later record to sink (which must stay valid until it is replaced); null
 * goes back to standard error filtered by KORVEX_LOG_LEVEL. */
void korvex_log_set_sink(const struct korvex_log_sink *sink);

#ifdef __cplusplus
}
#endif
#endif
