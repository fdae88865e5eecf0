// Maps the stored "TimeZone" text to the zone number a client expects: the 1-based
// position of the zone in the platform's time-zone table, or the text read as a number.
#pragma once

namespace korvex {

// A time-zone table: its size and the name of zone i (0-based; null when out of range).
struct TimeZoneTable {
    int (*count)();
    const char *(*name)(int i);
};

// The platform's own table (sdk_tz_count / sdk_tz_get).
TimeZoneTable platform_timezone_table();

// Walks the whole table (the size is asked anew before each step); whenever the current
// text equals zone i's name it becomes the decimal text of i + 1, and the walk goes on
// comparing that text with the remaining names. The result is atoi of the final text:
// a known name gives its 1-based position, anything else the number it starts with (0
// when it does not start with digits). A null text gives 0.
int timezone_number(const char *stored, const TimeZoneTable &table);
int timezone_number(const char *stored);

}  // namespace korvex
