// Exported flag that other gateway programs read from the loaded module.
#pragma once

#include "base/export.h"

// 0 at load; set to 1 each time the time-zone query runs.
extern "C" KORVEX_EXPORT int checkupdateflag;
