// Remote access through the P2P services: the TUTK tunnel (P2PTunnelServer) and the Orbweb
// client (orbwebm2m), each switched on by storing its 20-character device identifier and
// off by storing an empty one; the P2P account both services use; the super-user password.
#include <cstring>

#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/value_checks.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "registry/deployment_settings.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;

constexpr char kTutkUuidKey[] = "TUTK_UUID";
constexpr char kOrbwebUuidKey[] = "UUID";
constexpr char kUserNameKey[] = "TUTK_USERNAME";
constexpr char kPasswordKey[] = "TUTK_PASSWORD";
constexpr char kSuPasswordKey[] = "SU_PASSWORD";
constexpr char kSsidKey[] = "SSID1";

constexpr std::size_t kIdentifierLength = 20;

// The account setters store without committing ("p2paccountcommit" applies them). The
// password messages have no line break, unlike the user-name message.
constexpr StoreRule kUserName =
    store_key(kUserNameKey).accepting_only(korvex::check::account_text_length, "username length > 63<br>");
constexpr StoreRule kPassword =
    store_key(kPasswordKey).accepting_only(korvex::check::account_text_length, "password length > 63");
constexpr StoreRule kSuPassword =
    store_key(kSuPasswordKey).accepting_only(korvex::check::account_text_length, "password length > 63");

// The account as both services read it before they start.
struct Account {
    const char *user_name;
    const char *password;
};
Account read_account(request_rec *r) {
    const char *user_name = korvex::nvram_get(r, kUserNameKey);
    return Account{user_name, korvex::nvram_get(r, kPasswordKey)};
}

// One P2P service: the key of its identifier, how it is stopped, and how it is started
// once the identifier is stored (given the platform's answer to the set).
struct P2pService {
    const char *key;
    const char *stop_line;
    // False when the service could not be started.
    bool (*start)(request_rec *r, const char *identifier, const char *stored, const Account &account,
                  const char *ssid);
    bool reads_ssid;
};

// The tunnel starts with the identifier as the platform stored it and the access point's SSID.
bool start_tutk(request_rec *r, const char *, const char *stored, const Account &account, const char *ssid) {
    run_shell(r, peer::kDoSystem30s, "P2PTunnelServer %s %s %s %s&",
              {stored, account.user_name, account.password, ssid});
    return true;
}

// The Orbweb client starts with the identifier as given and the rendezvous server, which
// only the deployment knows: without one configured the client is not started at all.
bool start_orbweb(request_rec *r, const char *identifier, const char *, const Account &account, const char *) {
    const char *host = korvex::deployment::orbweb_host();
    if (host == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "orbwebm2m not started: no rendezvous host configured (KorvexOrbwebHost or %s)\n",
             korvex::deployment::kOrbwebHostVariable);
        return false;
    }
    run_shell(r, peer::kDoSystem30s, "orbwebm2m -H %s %s -B -U %s -P %s &",
              {identifier, host, account.user_name, account.password});
    return true;
}

constexpr P2pService kTutk{kTutkUuidKey, "killall P2PTunnelServer", start_tutk, true};
constexpr P2pService kOrbweb{kOrbwebUuidKey, "killall orbwebm2m", start_orbweb, false};

// 20 characters restart the service with the new identifier; an empty value stops it and
// clears the key; any other length changes nothing and fails. Without an answer to the set
// the service is not started and the command fails.
int set_identifier(request_rec *r, const char *value, const P2pService &service, const char *func) {
    KLOG_AS(KORVEX_LOG_TRACE, func, "enter %s\n", func);
    const std::size_t length = std::strlen(value);
    int ret = 0;
    if (length == kIdentifierLength) {
        run_shell(r, peer::kDoSystem30s, service.stop_line);
        const Account account = read_account(r);
        const char *ssid = service.reads_ssid ? korvex::nvram_get(r, kSsidKey) : nullptr;
        const char *stored = korvex::nvram_set(r, service.key, value);
        korvex::nvram_commit(r);
        if (stored != nullptr) {
            print_reply(r, stored, Reply::kAlways);
            ret = service.start(r, value, stored, account, ssid) ? 1 : 0;
        }
    } else if (length == 0) {
        korvex::nvram_set(r, service.key, "");
        korvex::nvram_commit(r);
        run_shell(r, peer::kDoSystem30s, service.stop_line);
        ret = 1;
    }
    KLOG_AS(KORVEX_LOG_TRACE, func, "leave %s, ret: %d\n", func, ret);
    return ret;
}

}  // namespace

int setTutkUuid(request_rec *r, char *value) { return set_identifier(r, value, kTutk, __func__); }
int getTutkUuid(request_rec *r, char *) { return print_nvram(r, kTutkUuidKey, __func__); }
int setOrbwebUuid(request_rec *r, char *value) { return set_identifier(r, value, kOrbweb, __func__); }
int getOrbwebUuid(request_rec *r, char *) { return print_nvram(r, kOrbwebUuidKey, __func__); }
int getP2Pusername(request_rec *r, char *) { return print_nvram(r, kUserNameKey, __func__); }
int setP2Pusername(request_rec *r, char *value) { return store(r, value, kUserName, __func__); }
int getP2Ppwd(request_rec *r, char *) { return print_nvram(r, kPasswordKey, __func__); }
int setP2Ppwd(request_rec *r, char *value) { return store(r, value, kPassword, __func__); }
int getSUpwd(request_rec *r, char *) { return print_nvram(r, kSuPasswordKey, __func__); }
int setSUpwd(request_rec *r, char *value) { return store(r, value, kSuPassword, __func__); }

int p2pAccountCommit(request_rec *r, char *) {
    korvex::nvram_commit(r);
    apache_dbus_send_str_ret_int(r, peer::kRestartP2PArgument, &peer::kRestartP2P);
    return 1;
}
