// PPPoE settings: the switch, the account name and password, and the restart of the PPPoE
// client on the WAN port. Of the setters only the password commits by itself.
#include "base/secrets.h"
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

constexpr char kEnableKey[] = "PPPoE_Enable";
constexpr char kUserNameKey[] = "PPPoE_UserName";
constexpr char kPasswordKey[] = "PPPoE_PassWord";

constexpr StoreRule kEnable = store_key(kEnableKey).accepting_only(check::leading_zero_or_one);
constexpr StoreRule kUserName = store_key(kUserNameKey).accepting_only(check::not_empty);
constexpr StoreRule kPassword = store_and_commit(kPasswordKey).accepting_only(check::not_empty);

// The client runs on the WAN VLAN with MRU and MTU 1492.
constexpr char kStopClient[] = "killall pppoecd";
constexpr char kStartClient[] =
    "pppoecd eth2.2 -P 1 -u %s -p %s -r 1492 -t 1492 -i 0 -I 30 -N 5 -T 5 -C pppoe_down -k -R";
constexpr char kMasquerade[] = "iptables -t nat -A POSTROUTING -o ppp0 -j MASQUERADE";

// A stored text, or "" when it could not be read.
const char *stored_or_empty(request_rec *r, const char *key) {
    const char *stored = korvex::nvram_get(r, key);
    return stored != nullptr ? stored : "";
}

}  // namespace

int pppoeEnable(request_rec *r, char *value) { return store(r, value, kEnable, __func__); }
int setPPPoEUserName(request_rec *r, char *value) { return store(r, value, kUserName, __func__); }
int setPPPoEPassWord(request_rec *r, char *value) { return store(r, value, kPassword, __func__); }
int getPPPoEEnable(request_rec *r, char *) { return print_nvram(r, kEnableKey, __func__); }
int getPPPoEUserName(request_rec *r, char *) { return print_nvram(r, kUserNameKey, __func__); }
int getPPPoEPassWord(request_rec *r, char *) { return print_nvram(r, kPasswordKey, __func__); }

// Stops any running client, starts one when both name and password are stored ("PPPoE_Enable"
// is not consulted), appends the masquerade rule in every case, and commits.
int pppoeCommit(request_rec *r, char *) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const char *password = stored_or_empty(r, kPasswordKey);
    const char *user_name = stored_or_empty(r, kUserNameKey);
    KLOG(KORVEX_LOG_TRACE, "user name: %s, password: %s\n", user_name, korvex::kMaskedSecret);
    run_shell(r, peer::kDoSystem3s, kStopClient);
    if (*user_name != '\0' && *password != '\0') {
        run_shell(r, peer::kDoSystem30s, kStartClient, {user_name, password});
    }
    run_shell(r, peer::kDoSystem3s, kMasquerade);
    korvex::nvram_commit(r);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}
