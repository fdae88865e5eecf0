// Wi-Fi settings: the radio's role, the access-point and station SSIDs and passphrases,
// the regulatory country region, the site survey, and the platform daemon's Wi-Fi
// service. No setter commits except the country region: "wificommit" applies a batch.
#include <cstdio>
#include <string_view>

#include "base/absent_text.h"
#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/site_survey.h"
#include "commands/system/text_utils.h"
#include "commands/system/value_checks.h"
#include "dbus/list_queries.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "nvram.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;
namespace check = korvex::check;

// nvram keys of the platform daemon.
constexpr char kWifiModeKey[] = "WifiMode";
constexpr char kApSsidKey[] = "SSID1";
constexpr char kStaSsidKey[] = "STA_SSID1";
constexpr char kApPassphraseKey[] = "WPAPSK";
constexpr char kStaPassphraseKey[] = "STA_WPAPSK";

// One refusal for SSIDs and passphrases alike; clients match this text.
constexpr char kTooLong[] = "ssid string length must small than 32<br>";

// An SSID prints the platform's reply to the set, a passphrase the value itself.
constexpr StoreRule kApSsid =
    store_key(kApSsidKey).printing(Echo::kSetReply).accepting_only(check::wifi_text_length, kTooLong);
constexpr StoreRule kStaSsid =
    store_key(kStaSsidKey).printing(Echo::kSetReply).accepting_only(check::wifi_text_length, kTooLong);
constexpr StoreRule kApPassphrase =
    store_key(kApPassphraseKey).printing(Echo::kValue).accepting_only(check::wifi_text_length, kTooLong);
constexpr StoreRule kStaPassphrase =
    store_key(kStaPassphraseKey).printing(Echo::kValue).accepting_only(check::wifi_text_length, kTooLong);

// Arguments of the Wi-Fi service calls.
constexpr char kStaGetSsid[] = "getSSID";
constexpr char kWifiCommitArgument[] = "commit";
constexpr char kApRole[] = "ap";
constexpr char kStaRole[] = "sta";
constexpr char kCarrierScript[] = "wifi_carrier.sh &";

// The country region lives in section 1 of the platform's own nvram library, not in the
// platform daemon's store.
constexpr int kCountryRegionSection = 1;
constexpr char kCountryRegionKey[] = "CountryRegion";

bool is_country_region(int region) { return (region >= 0 && region <= 7) || region == 31; }

// The stored role for a requested one (already lower-cased); anything unknown is "AP".
const char *wifi_role(const char *requested) {
    const std::string_view role(requested);
    if (role == "sta") return "STA";
    if (role == "off") return "OFF";
    return "AP";
}

}  // namespace

int wifiScan(request_rec *r, char *) { return korvex::survey::print_survey(r, popen, pclose); }

int getSSIDList(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    for (SsidNode *node : korvex::ring<SsidNode>(korvex_dbus_message_wifi_ssid_refresh(r))) {
        if (node->ssid == nullptr) continue;
        KLOG(KORVEX_LOG_TRACE, "ssid: %s<br>", node->ssid);
        ap_rprintf(r, "%s<br>", trimwhitespace(node->ssid));
    }
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

// Every value succeeds: an unknown role quietly becomes the access point.
int setWifiMode(request_rec *r, char *value) {
    stringToLowerCase(value);
    KLOG(KORVEX_LOG_TRACE, "enter %s, value: '%s'\n", __func__, value);
    korvex::nvram_set(r, kWifiModeKey, wifi_role(value));
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

int getWifiMode(request_rec *r, char *) { return print_nvram(r, kWifiModeKey, __func__); }
int setAPSSID(request_rec *r, char *value) { return store(r, value, kApSsid, __func__); }
int getAPSSID(request_rec *r, char *) { return print_nvram(r, kApSsidKey, __func__); }
int set_STA_SSID(request_rec *r, char *value) { return store(r, value, kStaSsid, __func__); }
int get_STA_SSID(request_rec *r, char *) { return print_nvram(r, kStaSsidKey, __func__); }
int setAPPassword(request_rec *r, char *value) { return store(r, value, kApPassphrase, __func__); }
int getAPPassword(request_rec *r, char *) { return print_nvram(r, kApPassphraseKey, __func__); }
int setSTAPassword(request_rec *r, char *value) { return store(r, value, kStaPassphrase, __func__); }
int getSTAPassword(request_rec *r, char *) { return print_nvram(r, kStaPassphraseKey, __func__); }

int linkStatusToAP(request_rec *r, char *) { return relay(r, kStaGetSsid, peer::kWifiStaCommand, Reply::kAlways, __func__); }

// Stored as "%d" of the number read, so " 5" and "05" are stored as "5", and committed at once.
int set_wifi_country_region(request_rec *, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    int region = 0;
    if (std::sscanf(value, "%d", &region) != 1 || !is_country_region(region)) {
        KLOG(KORVEX_LOG_TRACE, "leave %s, refused\n", __func__);
        return 0;
    }
    char text[16];
    std::snprintf(text, sizeof text, "%d", region);
    if (nvram_bufset(kCountryRegionSection, kCountryRegionKey, text) != 0 ||
        nvram_commit(kCountryRegionSection) != 0) {
        KLOG(KORVEX_LOG_ERROR, "cannot store %s=%s\n", kCountryRegionKey, text);
    }
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}

int get_wifi_country_region(request_rec *r, char *) {
    ap_rprintf(r, "%s<br>", korvex::or_absent(nvram_bufget(kCountryRegionSection, kCountryRegionKey)));
    return 1;
}

// The only Wi-Fi command whose result follows the daemon: applied (1 or more) or not.
int wifiCommit(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const int applied = apache_dbus_send_str_ret_int(r, kWifiCommitArgument, &peer::kWifiModeCommit);
    KLOG(KORVEX_LOG_TRACE, "leave %s, ret: %d\n", __func__, applied);
    return applied >= 1 ? 1 : 0;
}

int wifiCarrier(request_rec *r, char *) {
    korvex::shape::run_shell(r, peer::kDoSystem3s, kCarrierScript);
    return 1;
}

int getWifiApMd5(request_rec *r, char *) { return print_text_call(r, kApRole, peer::kWifiModeGetMd5, __func__); }
int getWifiStaMd5(request_rec *r, char *) { return print_text_call(r, kStaRole, peer::kWifiModeGetMd5, __func__); }
