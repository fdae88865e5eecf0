#include "commands/app/timezone_mapping.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "korvex_utils.h"

namespace korvex {

TimeZoneTable platform_timezone_table() { return TimeZoneTable{sdk_tz_count, sdk_tz_get}; }

int timezone_number(const char *stored, const TimeZoneTable &table) {
    if (stored == nullptr) {
        return 0;
    }
    char number[16];
    const char *current = stored;
    for (int i = 0; i < table.count(); ++i) {
        const char *zone = table.name(i);
        if (zone != nullptr && std::strcmp(current, zone) == 0) {
            std::snprintf(number, sizeof number, "%d", i + 1);
            current = number;
        }
    }
    return std::atoi(current);
}

int timezone_number(const char *stored) { return timezone_number(stored, platform_timezone_table()); }

}  // namespace korvex
