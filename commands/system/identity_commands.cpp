// Device identity and housekeeping: host name, customer name and language, the model,
// software version and uptime, reboot, configuration reset and reading any nvram key.
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "base/absent_text.h"
#include "base/log.h"
#include "commands/command_shapes.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;

constexpr char kHostNameKey[] = "HostName";
constexpr char kCustomerNameKey[] = "customerName";
constexpr char kLanguageKey[] = "language";

// The customer whose name is marked before the line break; every other is marked after it.
constexpr char kMarkedCustomer[] = "Zentro";

constexpr StoreRule kHostName = store_and_commit(kHostNameKey);
constexpr StoreRule kCustomerName = store_and_commit(kCustomerNameKey);
constexpr StoreRule kLanguage = store_and_commit(kLanguageKey);

// Stores and commits the value, then makes it the system host name. The result of
// sethostname is not looked at: without the privilege it fails and the command is done.
int store_as_host_name(request_rec *r, const char *value, const StoreRule &rule, const char *func) {
    store(r, value, rule, func);
    if (sethostname(value, std::strlen(value)) != 0) {
        KLOG_AS(KORVEX_LOG_TRACE, func, "sethostname failed\n");
    }
    return 1;
}

}  // namespace

int setHostName(request_rec *r, char *value) { return store_as_host_name(r, value, kHostName, __func__); }
int getHostName(request_rec *r, char *) { return print_nvram(r, kHostNameKey, __func__); }

// The language becomes the system host name too, exactly as a host name would.
int set_language(request_rec *r, char *value) { return store_as_host_name(r, value, kLanguage, __func__); }
int get_language(request_rec *r, char *) { return print_nvram(r, kLanguageKey, __func__); }

// The gateway restarts to take the customer's settings; the platform's answer is not looked at.
int setCustomerName(request_rec *r, char *value) {
    store(r, value, kCustomerName, __func__);
    apache_dbus_send_int_ret_int(r, peer::kPlatformRebootArgument, &peer::kPlatformReboot);
    return 1;
}

int getCustomerName(request_rec *r, char *) {
    const char *name = korvex::nvram_get(r, kCustomerNameKey);
    if (name != nullptr && std::strcmp(name, kMarkedCustomer) == 0) {
        ap_rprintf(r, "%s m<br>", name);
    } else {
        ap_rprintf(r, "%s<br> n", korvex::or_absent(name));
    }
    return 1;
}

int getPlatform(request_rec *r, char *) { return print_reply(r, gateway_model(r), Reply::kAlways); }

int getSWVersion(request_rec *r, char *) {
    print_reply(r, korvex::string_message(r, peer::kSdkProcessName, peer::kSdkFirmwareVersion), Reply::kAlways);
    return print_reply(r, korvex::string_message(r, peer::kSdkProcessName, peer::kSdkFirmwareDate), Reply::kAlways);
}

int uptime(request_rec *r, char *) {
    struct sysinfo info;
    std::memset(&info, 0, sizeof info);
    sysinfo(&info);
    ap_rprintf(r, "%ld<br>", static_cast<long>(info.uptime));
    return 1;
}

// The logo LED tells the user the gateway is going down; the server itself runs "reboot".
int systemReboot(request_rec *r, char *) {
    dbus_control_LED(r, peer::kLedLogo, peer::kLedOn, peer::kSdkLed.dest, peer::kSdkLed.ifac);
    if (std::system("reboot") != 0) {
        KLOG(KORVEX_LOG_ERROR, "reboot failed\n");
    }
    return 1;
}

int resetConfig(request_rec *r, char *value) {
    apache_dbus_send_str_ret_int(r, value, &peer::kConfigReset);
    return 1;
}

int getNVRAM(request_rec *r, char *value) { return print_nvram(r, value, __func__); }
