// Time and NTP: the NTP client's switch, server and interval, the time zone chosen from the
// platform's numbered zone table, the clock, and the position used by the application's
// astronomical clock. Setters store without committing unless said otherwise.
#include <ctime>
#include <cstring>

#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/update_flag.h"
#include "commands/system/value_checks.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "korvex_utils.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;
namespace check = korvex::check;

constexpr char kNtpDisableKey[] = "NTPDisable";
constexpr char kNtpServerKey[] = "NTPServerIP";
constexpr char kNtpSyncKey[] = "NTPSync";
constexpr char kTimeZoneKey[] = "TimeZone";
constexpr char kTimeZoneNameKey[] = "TZ_name";
// The astronomical-clock keys bear the names of the commands that set them.
constexpr char kLongitudeKey[] = "setastclock_lon";
constexpr char kLatitudeKey[] = "setastclock_lat";

constexpr char kStopNtpClient[] = "killall ntpclient";
constexpr char kStartNtpWaiting[] = "ntp.sh";
constexpr char kStartNtpBackground[] = "ntp.sh &";

constexpr StoreRule kNtpServer = store_key(kNtpServerKey).accepting_only(check::not_empty);
constexpr StoreRule kNtpSync = store_key(kNtpSyncKey).accepting_only(check::leading_positive);
// The application is told the position before the commit; its answer is not looked at.
constexpr StoreRule kLongitude = store_and_commit(kLongitudeKey).telling_before_commit(peer::kAppSetAstClockLon);
constexpr StoreRule kLatitude = store_and_commit(kLatitudeKey).telling_before_commit(peer::kAppSetAstClockLat);

// ctime's fixed form: 24 characters, a line feed and the terminating zero.
constexpr std::size_t kCtimeSize = 26;

}  // namespace

// Only "1" switches the client off; any other value (the empty one included) switches it on
// and waits for the start script up to the time-out.
int disableNTPClient(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    run_shell(r, peer::kDoSystem3s, kStopNtpClient);
    if (std::strcmp(value, "1") == 0) {
        korvex::nvram_set(r, kNtpDisableKey, "1");
    } else {
        korvex::nvram_set(r, kNtpDisableKey, "0");
        run_shell(r, peer::kDoSystem3s, kStartNtpWaiting);
    }
    korvex::nvram_commit(r);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

int setNTPServerHostName(request_rec *r, char *value) { return store(r, value, kNtpServer, __func__); }
int getNTPServerHostName(request_rec *r, char *) { return print_nvram(r, kNtpServerKey, __func__); }
int setNTPSyncTime(request_rec *r, char *value) { return store(r, value, kNtpSync, __func__); }
int getNTPSyncTime(request_rec *r, char *) { return print_nvram(r, kNtpSyncKey, __func__); }

// Zone k (from 1) is entry k - 1 of the platform's table; takes effect at the next commit.
int setTimeZone(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const int zone = korvex::leading_integer(value);
    if (zone < 1 || zone > sdk_tz_count()) {
        KLOG(KORVEX_LOG_TRACE, "leave %s, no zone %d\n", __func__, zone);
        return 0;
    }
    korvex::nvram_set(r, kTimeZoneKey, sdk_tz_get(zone - 1));
    korvex::nvram_set(r, kTimeZoneNameKey, sdk_gmt_get(zone - 1));
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

// The first zone whose string equals the stored one wins; a failed read finds nothing.
int getTimeZone(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    checkupdateflag = 1;
    const char *stored = korvex::nvram_get(r, kTimeZoneKey);
    for (int i = 0; stored != nullptr && i < sdk_tz_count(); ++i) {
        const char *zone = sdk_tz_get(i);
        if (zone != nullptr && std::strcmp(stored, zone) == 0) {
            ap_rprintf(r, "%d<br>", i + 1);
            KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
            return 1;
        }
    }
    KLOG(KORVEX_LOG_TRACE, "leave %s, zone not found\n", __func__);
    return 0;
}

// ctime's text keeps its line feed, so it stands before "<br>".
int getTime(request_rec *r, char *) {
    const std::time_t now = std::time(nullptr);
    char text[kCtimeSize];
    ap_rprintf(r, "%s<br>", ctime_r(&now, text) != nullptr ? text : "");
    return 1;
}

// Restarts the client even when it was switched off ("NTPDisable" is not consulted).
int NTPCommit(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    run_shell(r, peer::kDoSystem5s, kStopNtpClient);
    run_shell(r, peer::kDoSystem5s, kStartNtpBackground);
    korvex::nvram_commit(r);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

int setastclock_lon(request_rec *r, char *value) { return store(r, value, kLongitude, __func__); }
int getastclock_lon(request_rec *r, char *) { return print_nvram(r, kLongitudeKey, __func__); }
int setastclock_lat(request_rec *r, char *value) { return store(r, value, kLatitude, __func__); }
int getastclock_lat(request_rec *r, char *) { return print_nvram(r, kLatitudeKey, __func__); }
