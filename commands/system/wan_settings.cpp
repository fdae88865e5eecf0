// WAN settings: the live addresses of the WAN port as the platform daemon reports them,
// and the stored addressing (DHCP or a static address, netmask, gateway, two DNS servers),
// applied by "commit". Setters store without committing.
#include <cstring>

#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/value_checks.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;
namespace check = korvex::check;

constexpr char kConnectionModeKey[] = "wanConnectionMode";
constexpr char kAddressKey[] = "wan_ipaddr";
constexpr char kNetmaskKey[] = "wan_netmask";
constexpr char kGatewayKey[] = "wan_gateway";
constexpr char kPrimaryDnsKey[] = "wan_primary_dns";
constexpr char kSecondaryDnsKey[] = "wan_secondary_dns";

// Checked values stored as given, uncommitted, printing nothing.
constexpr StoreRule kConnectionMode = store_key(kConnectionModeKey).accepting_only(check::wan_connection_mode);
constexpr StoreRule kAddress = store_key(kAddressKey).accepting_only(check::ipv4_address);
constexpr StoreRule kNetmask = store_key(kNetmaskKey).accepting_only(check::ipv4_address);
constexpr StoreRule kGateway = store_key(kGatewayKey).accepting_only(check::ipv4_address);
constexpr StoreRule kPrimaryDns = store_key(kPrimaryDnsKey).accepting_only(check::ipv4_address);
constexpr StoreRule kSecondaryDns = store_key(kSecondaryDnsKey).accepting_only(check::ipv4_address);

// The WAN service restarts with the committed settings when asked with 1.
constexpr int kInitInternetArgument = 1;

}  // namespace

// Live values: the query value is passed on as it stands; no reply prints nothing and fails.
int getWanIp(request_rec *r, char *value) { return relay(r, value, peer::kNetGetIp, Reply::kRequired, __func__); }
int getWanNetmask(request_rec *r, char *value) {
    return relay(r, value, peer::kNetGetNetmask, Reply::kRequired, __func__);
}
int getWanGateway(request_rec *r, char *value) {
    return relay(r, value, peer::kNetGetGateway, Reply::kRequired, __func__);
}
int getDnsServer(request_rec *r, char *value) { return relay(r, value, peer::kNetGetDns, Reply::kRequired, __func__); }

int getWanConnectMode(request_rec *r, char *) { return print_nvram(r, kConnectionModeKey, __func__); }
int setWanConnectMode(request_rec *r, char *value) { return store(r, value, kConnectionMode, __func__); }
int setWanStaticIP(request_rec *r, char *value) { return store(r, value, kAddress, __func__); }
int setWanGateway(request_rec *r, char *value) { return store(r, value, kGateway, __func__); }
int setWanNetmask(request_rec *r, char *value) { return store(r, value, kNetmask, __func__); }
int setWanDNS(request_rec *r, char *value) { return store(r, value, kPrimaryDns, __func__); }
int setWanDNS2nd(request_rec *r, char *value) { return store(r, value, kSecondaryDns, __func__); }

// "primary;secondary", split as strtok_r splits (empty fields are skipped, a third is
// ignored). A bad address fails the command without keeping the other from being stored.
int setDnsServer(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    int ret = 1;
    char *rest = nullptr;
    const StoreRule *const servers[] = {&kPrimaryDns, &kSecondaryDns};
    char *token = strtok_r(value, ";", &rest);
    for (const StoreRule *server : servers) {
        if (token == nullptr) break;
        if (store(r, token, *server, __func__) != 1) ret = 0;
        token = strtok_r(nullptr, ";", &rest);
    }
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return ret;
}

// The answer of the WAN restart is not looked at.
int wanCommit(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    korvex::nvram_commit(r);
    apache_dbus_send_int_ret_int(r, kInitInternetArgument, &peer::kNetInitInternet);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}
