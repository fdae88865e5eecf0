/* Gateway logging library: one call per log line, filtered by level. */
#ifndef KORVEX_LOG_H
#define KORVEX_LOG_H

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

/* Lowest level that is written (from KORVEX_LOG_LEVEL, default 3). */
int korvex_log_threshold(void);

#ifdef __cplusplus
}
#endif
#endif
