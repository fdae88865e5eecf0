#include "commands/oom_row.h"

#include "base/absent_text.h"

namespace korvex {

const char *format_oom_row(apr_pool_t *pool, const char *score, uint32_t pid, const char *name) {
    return apr_psprintf(pool, "%4s %4u %s<br>", or_absent(score), static_cast<unsigned>(pid),
                        or_absent(name));
}

}  // namespace korvex
