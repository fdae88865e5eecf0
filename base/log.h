// Logging helpers: every record goes through the platform's korvex_log_write with the
// calling function's name, the source line and the module's tag.
#pragma once

#include "korvex_log.h"

#define KORVEX_LOG_TAG "apache"

// Logs under the name of the enclosing function.
#define KLOG(level, ...) korvex_log_write((level), __func__, __LINE__, KORVEX_LOG_TAG, __VA_ARGS__)

// Logs under an explicit function name (for shared helpers that act for a named handler).
#define KLOG_AS(level, func, ...) korvex_log_write((level), (func), __LINE__, KORVEX_LOG_TAG, __VA_ARGS__)
