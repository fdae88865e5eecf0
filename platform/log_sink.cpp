// Host log sink: records go to a registered sink (the web server's own log) when there is
// one, and to standard error, filtered by KORVEX_LOG_LEVEL, when there is none.
#include "korvex_log.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Levels a sink can be asked about: everything below the child trace counts as one level.
constexpr int kLowestLevel = KORVEX_LOG_CHILD - 1;

std::atomic<const korvex_log_sink *> g_sink{nullptr};

int read_threshold() {
    const char *env = std::getenv("KORVEX_LOG_LEVEL");
    if (env == nullptr || *env == '\0') return KORVEX_LOG_TRACE;
    return std::atoi(env);
}

int stderr_threshold() {
    static const int threshold = read_threshold();
    return threshold;
}

// Appends to record (capacity bytes, len used) without overflowing; returns the new length.
size_t append_formatted(char *record, size_t capacity, size_t len, const char *fmt, va_list ap) {
    int body = std::vsnprintf(record + len, capacity - len, fmt, ap);
    if (body <= 0) return len;
    return len + (static_cast<size_t>(body) < capacity - len ? static_cast<size_t>(body) : capacity - len - 1);
}

size_t clamp_prefix(int used, size_t capacity) {
    if (used < 0) return 0;
    return static_cast<size_t>(used) < capacity ? static_cast<size_t>(used) : capacity - 1;
}

void write_to_sink(const korvex_log_sink *sink, int level, const char *func, int line, const char *tag,
                   const char *fmt, va_list ap) {
    char record[2048];
    size_t len = clamp_prefix(std::snprintf(record, sizeof record, "%s:%d %s: ", func ? func : "?", line, tag ? tag : ""),
                              sizeof record);
    len = append_formatted(record, sizeof record, len, fmt, ap);
    // The sink ends the record itself.
    if (len > 0 && record[len - 1] == '\n') record[--len] = '\0';
    sink->write(level, record, len);
}

void write_to_stderr(int level, const char *func, int line, const char *tag, const char *fmt, va_list ap) {
    // One record is one write() so that lines of concurrent processes never interleave.
    char record[2048];
    size_t len = clamp_prefix(std::snprintf(record, sizeof record, "[korvex:%d] [pid %d] %s:%d %s: ", level,
                                            static_cast<int>(getpid()), func ? func : "?", line, tag ? tag : ""),
                              sizeof record);
    if (len == 0) return;
    len = append_formatted(record, sizeof record, len, fmt, ap);
    if (record[len - 1] != '\n') {
        if (len >= sizeof record - 1) len = sizeof record - 2;
        record[len++] = '\n';
    }
    ssize_t ignored = write(STDERR_FILENO, record, len);
    (void)ignored;
}

}  // namespace

extern "C" void korvex_log_set_sink(const korvex_log_sink *sink) { g_sink.store(sink, std::memory_order_release); }

extern "C" int korvex_log_threshold(void) {
    const korvex_log_sink *sink = g_sink.load(std::memory_order_acquire);
    if (sink == nullptr) return stderr_threshold();
    for (int level = kLowestLevel; level <= KORVEX_LOG_ERROR; ++level) {
        if (sink->enabled(level)) return level;
    }
    return KORVEX_LOG_ERROR + 1;
}

extern "C" void korvex_log_write(int level, const char *func, int line, const char *tag,
                                 const char *fmt, ...) {
    const korvex_log_sink *sink = g_sink.load(std::memory_order_acquire);
    if (sink != nullptr ? !sink->enabled(level) : level < stderr_threshold()) return;
    va_list ap;
    va_start(ap, fmt);
    if (sink != nullptr) {
        write_to_sink(sink, level, func, line, tag, fmt, ap);
    } else {
        write_to_stderr(level, func, line, tag, fmt, ap);
    }
    va_end(ap);
}
