// Host stand-in for the platform's time-zone table. Numbering is stable: new zones are
// only ever appended, so a zone number stored by a client keeps its meaning.
#include "korvex_utils.h"

namespace {

struct Zone {
    const char *tz;   // value stored under "TimeZone"
    const char *gmt;  // value stored under "TZ_name"
};

constexpr Zone kZones[] = {
    {"UCT_-12", "(GMT-12:00) International Date Line West"},
    {"UCT_-11", "(GMT-11:00) Midway Island, Samoa"},
    {"UCT_-10", "(GMT-10:00) Hawaii"},
    {"NAS_-09", "(GMT-09:00) Alaska"},
    {"PST_-08", "(GMT-08:00) Pacific Time (US & Canada)"},
    {"MST_-07", "(GMT-07:00) Mountain Time (US & Canada)"},
    {"CST_-06", "(GMT-06:00) Central Time (US & Canada)"},
    {"UCT_-05", "(GMT-05:00) Bogota, Lima, Quito"},
    {"EST_-05", "(GMT-05:00) Eastern Time (US & Canada)"},
    {"AST_-04", "(GMT-04:00) Atlantic Time (Canada)"},
    {"UCT_-04", "(GMT-04:00) Caracas, La Paz"},
    {"NST_-3.5", "(GMT-03:30) Newfoundland"},
    {"EBS_-03", "(GMT-03:00) Brasilia"},
    {"UCT_-02", "(GMT-02:00) Mid-Atlantic"},
    {"EUT_-01", "(GMT-01:00) Azores"},
    {"GMT_000", "(GMT) Dublin, Edinburgh, Lisbon, London"},
    {"MET_001", "(GMT+01:00) Amsterdam, Berlin, Rome, Stockholm, Vienna"},
    {"EET_002", "(GMT+02:00) Athens, Helsinki, Istanbul, Kyiv"},
    {"IST_003", "(GMT+03:00) Moscow, Nairobi, Riyadh"},
    {"IRT_3.5", "(GMT+03:30) Tehran"},
    {"UCT_004", "(GMT+04:00) Abu Dhabi, Muscat"},
    {"AFT_4.5", "(GMT+04:30) Kabul"},
    {"UCT_005", "(GMT+05:00) Islamabad, Karachi, Tashkent"},
    {"UCT_5.5", "(GMT+05:30) Chennai, Kolkata, Mumbai, New Delhi"},
    {"NPT_5.75", "(GMT+05:45) Kathmandu"},
    {"UCT_006", "(GMT+06:00) Almaty, Dhaka"},
    {"MMT_6.5", "(GMT+06:30) Yangon"},
    {"UCT_007", "(GMT+07:00) Bangkok, Hanoi, Jakarta"},
    {"CST_008", "(GMT+08:00) Beijing, Hong Kong, Singapore, Taipei"},
    {"JST_009", "(GMT+09:00) Osaka, Sapporo, Tokyo, Seoul"},
    {"CST_9.5", "(GMT+09:30) Adelaide, Darwin"},
    {"UCT_010", "(GMT+10:00) Brisbane, Canberra, Melbourne, Sydney"},
    {"UCT_011", "(GMT+11:00) Magadan, Solomon Islands"},
    {"UCT_012", "(GMT+12:00) Auckland, Fiji, Wellington"},
    {"TOT_013", "(GMT+13:00) Nuku'alofa"},
    // Arizona keeps standard time all year and shares Mountain Time's string: a stored
    // "MST_-07" reads back as zone 6, the first entry with that string.
    {"MST_-07", "(GMT-07:00) Arizona"},
};

constexpr int kZoneCount = static_cast<int>(sizeof kZones / sizeof kZones[0]);

}  // namespace

extern "C" int sdk_tz_count(void) { return kZoneCount; }

extern "C" const char *sdk_tz_get(int i) {
    return (i >= 0 && i < kZoneCount) ? kZones[i].tz : nullptr;
}

extern "C" const char *sdk_gmt_get(int i) {
    return (i >= 0 && i < kZoneCount) ? kZones[i].gmt : nullptr;
}
