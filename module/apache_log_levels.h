// Where the gateway's six log levels land among Apache's (see docs/logging.md).
#pragma once

#include "base/apache_shim.h"
#include "base/log.h"

namespace korvex::apache_log {

// error 6 -> error, notable state 5 -> notice, notable request 4 -> info, trace 3 -> debug,
// child-initialisation trace 2 -> trace1, anything lower -> trace2. Levels above the error
// level are errors too.
constexpr int apache_level(int korvex_level) {
    if (korvex_level >= KORVEX_LOG_ERROR) return APLOG_ERR;
    switch (korvex_level) {
        case KORVEX_LOG_STATE: return APLOG_NOTICE;
        case KORVEX_LOG_REQUEST: return APLOG_INFO;
        case KORVEX_LOG_TRACE: return APLOG_DEBUG;
        case KORVEX_LOG_CHILD: return APLOG_TRACE1;
        default: return APLOG_TRACE2;
    }
}

}  // namespace korvex::apache_log
