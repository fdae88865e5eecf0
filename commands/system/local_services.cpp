// Services of the gateway itself: the Z-Wave daemon's radio module, the FTP and Telnet
// daemons, the cloud socket connection (address, port, security; restarted as the
// "icloud" service) and the test-mode flag.
#include <cstring>

#include "base/absent_text.h"
#include "base/log.h"
#include "commands/command_shapes.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "korvex_utils.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;

constexpr char kZwaveModuleKey[] = "zwaveModule";
constexpr char kFtpdKey[] = "enableFtpd";
constexpr char kSocketAddrKey[] = "socketAddr";
constexpr char kSocketPortKey[] = "socketPort";
constexpr char kSocketSecKey[] = "socketSec";
constexpr char kTestModeKey[] = "testmode";

// The Z-Wave daemon runs on the USB stick for "usb" (exactly), else on the serial module.
constexpr char kUsbModule[] = "usb";
constexpr char kStopSdk[] = "killall korvex-sdk";
constexpr char kStartSdkOnUsb[] = "korvex-sdk -u /dev/ttyACM0 &";
constexpr char kStartSdkOnSerial[] = "korvex-sdk -u /dev/ttyS0 &";

constexpr ServiceSwitch kFtpd{"ftpd.sh &", "killall inetd", &peer::kDoSystem5s};
constexpr ServiceSwitch kTelnetd{"telnetd &", "killall telnetd", &peer::kDoSystem5s};

// Stored (and committed but for "socketSec"), then printed as the platform reads the key back.
constexpr StoreRule kSocketAddr = store_and_commit(kSocketAddrKey).printing(Echo::kStoredValue);
constexpr StoreRule kSocketPort = store_and_commit(kSocketPortKey).printing(Echo::kStoredValue);
constexpr StoreRule kSocketSec = store_key(kSocketSecKey).printing(Echo::kStoredValue);
constexpr StoreRule kTestMode = store_and_commit(kTestModeKey).printing(Echo::kStoredValue);

// Room for a dotted IPv4 address and its terminating zero.
constexpr std::size_t kAddressTextSize = 16;

void set_sdk_supervision(request_rec *r, int suspend) {
    apache_dbus_send_int_ret_int(r, suspend, &peer::kWatchdogStopTracking);
}

}  // namespace

// The watchdog's supervision of the Z-Wave daemon is suspended for exactly the span in
// which the daemon is stopped and started again on the chosen module.
int setZwaveModule(request_rec *r, char *value) {
    korvex::nvram_set(r, kZwaveModuleKey, value);
    const char *stored = korvex::nvram_get(r, kZwaveModuleKey);
    set_sdk_supervision(r, peer::kStopTrackingSuspend);
    run_shell(r, peer::kDoSystem5s, kStopSdk);
    const bool usb = stored != nullptr && std::strcmp(stored, kUsbModule) == 0;
    run_shell(r, peer::kDoSystem5s, usb ? kStartSdkOnUsb : kStartSdkOnSerial);
    korvex::nvram_commit(r);
    set_sdk_supervision(r, peer::kStopTrackingResume);
    return print_reply(r, stored, Reply::kAlways);
}

int getZwaveModule(request_rec *r, char *) { return print_nvram(r, kZwaveModuleKey, __func__); }

// The value is stored and committed whatever it is; only "1" and "0" switch the daemon,
// any other value fails.
int enableFtpd(request_rec *r, char *value) {
    korvex::nvram_set(r, kFtpdKey, value);
    const char *stored = korvex::nvram_get(r, kFtpdKey);
    korvex::nvram_commit(r);
    const int ret = switch_service(r, korvex::or_absent(stored), kFtpd);
    print_reply(r, stored, Reply::kAlways);
    return ret;
}

int enableTelnetd(request_rec *r, char *value) { return switch_service(r, value, kTelnetd); }

int setSocketAddr(request_rec *r, char *value) { return store(r, value, kSocketAddr, __func__); }
int setSocketPort(request_rec *r, char *value) { return store(r, value, kSocketPort, __func__); }
int getSocketPort(request_rec *r, char *) { return print_nvram(r, kSocketPortKey, __func__); }
int setSocketSec(request_rec *r, char *value) { return store(r, value, kSocketSec, __func__); }
int getSocketSec(request_rec *r, char *) { return print_nvram(r, kSocketSecKey, __func__); }

// A host name prints twice: as stored, then as resolved. A stored address resolves to
// itself and prints once.
int getSocketAddr(request_rec *r, char *) {
    const char *stored = korvex::nvram_get(r, kSocketAddrKey);
    print_reply(r, stored, Reply::kAlways);
    char resolved[kAddressTextSize] = {};
    if (stored != nullptr && chainX_nslookup(stored, resolved, sizeof resolved) == 0 &&
        std::strcmp(resolved, stored) != 0) {
        print_reply(r, resolved, Reply::kAlways);
    }
    return 1;
}

int socketCommit(request_rec *r, char *) {
    korvex::nvram_commit(r);
    apache_dbus_send_str_ret_int(r, peer::kRestartCloudArgument, &peer::kRestartService);
    return 1;
}

int settestmode(request_rec *r, char *value) { return store(r, value, kTestMode, __func__); }
int gettestmode(request_rec *r, char *) { return print_nvram(r, kTestModeKey, __func__); }
