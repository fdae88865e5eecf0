// Host log sink: records go to standard error, which Apache routes into its error log.
#include "korvex_log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int read_threshold() {
    const char *env = std::getenv("KORVEX_LOG_LEVEL");
    if (env == nullptr || *env == '\0') return KORVEX_LOG_TRACE;
    return std::atoi(env);
}

}  // namespace

extern "C" int korvex_log_threshold(void) {
    static const int threshold = read_threshold();
    return threshold;
}

extern "C" void korvex_log_write(int level, const char *func, int line, const char *tag,
                                 const char *fmt, ...) {
    if (level < korvex_log_threshold()) return;

    // One record is one write() so that lines of concurrent processes never interleave.
    char record[2048];
    int used = std::snprintf(record, sizeof record, "[korvex:%d] [pid %d] %s:%d %s: ", level,
                             static_cast<int>(getpid()), func ? func : "?", line, tag ? tag : "");
    if (used < 0) return;
    size_t len = static_cast<size_t>(used) < sizeof record ? static_cast<size_t>(used) : sizeof record - 1;

    va_list ap;
    va_start(ap, fmt);
    int body = std::vsnprintf(record + len, sizeof record - len, fmt, ap);
    va_end(ap);
    if (body > 0) len += static_cast<size_t>(body) < sizeof record - len ? static_cast<size_t>(body)
                                                                       : sizeof record - len - 1;
    if (len == 0 || record[len - 1] != '\n') {
        if (len >= sizeof record - 1) len = sizeof record - 2;
        record[len++] = '\n';
    }
    ssize_t ignored = write(STDERR_FILENO, record, len);
    (void)ignored;
}
