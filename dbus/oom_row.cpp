#include "dbus/oom_row.h"

namespace korvex {

namespace {
const char *text_or_null_marker(const char *text) { return text != nullptr ? text : "(null)"; }
}  // namespace

const char *format_oom_row(apr_pool_t *pool, const char *score, uint32_t pid, const char *name) {
    return apr_psprintf(pool, "%4s %4u %s<br>", text_or_null_marker(score), static_cast<unsigned>(pid),
                        text_or_null_marker(name));
}

}  // namespace korvex
