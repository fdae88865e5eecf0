// One line of the out-of-memory score listing: "%4s %4u %s<br>" with score, pid, name.
#pragma once

#include <cstdint>

#include "base/apache_shim.h"

namespace korvex {

// The row in pool. A field the watchdog did not send (null) is written "(null)", as the
// formatter writes any absent text.
const char *format_oom_row(apr_pool_t *pool, const char *score, uint32_t pid, const char *name);

}  // namespace korvex
