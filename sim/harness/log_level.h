// The module's log level, given as one of the gateway's levels (1-6) or as an Apache level
// name, in the two forms the server needs (docs/logging.md).
#pragma once

#include <string>

namespace korvex::harness {

// The Apache level name for "LogLevel korvex:NAME"; "" when text is neither a level
// number nor a level name.
std::string apache_log_level(const std::string &text);
// The lowest gateway level that Apache level name lets through: KORVEX_LOG_LEVEL of the
// server, for records written before the module reaches Apache's log.
int platform_log_level(const std::string &apache_level);

}  // namespace korvex::harness
