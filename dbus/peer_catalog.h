// Every bus name, interface, member and reply time-out the module uses, in one place.
// Handlers name a row of this table; they never spell a bus name or member themselves.
#pragma once

#include "dbus/dbus_types.h"

namespace korvex::peer {

// ---- Bus names of the gateway daemons ----
inline constexpr char kPlatform[] = "com.korvex-labs.www.platform";
inline constexpr char kSdk[] = "com.korvex-labs.www.sdk";
inline constexpr char kApp[] = "com.korvex-labs.www.app";
inline constexpr char kSocket[] = "com.korvex-labs.www.socket";
inline constexpr char kDebuger[] = "com.korvex-labs.www.debuger";
inline constexpr char kCheckUpdate[] = "com.korvex-labs.www.checkupdate";
inline constexpr char kUpdate[] = "com.korvex-labs.www.update";
inline constexpr char kTelldus[] = "com.korvex-labs.www.Telldus";

inline constexpr const char *kAllBusNames[] = {kPlatform,    kSdk,    kApp,    kSocket,
                                               kDebuger,     kCheckUpdate, kUpdate, kTelldus};

// ---- Interfaces ----
inline constexpr char kIfNvram[] = "com.KorvexLabs.platform.nvram";
inline constexpr char kIfAdmin[] = "com.KorvexLabs.platform.admin";
inline constexpr char kIfNet[] = "com.KorvexLabs.platform.net";
inline constexpr char kIfConfig[] = "com.KorvexLabs.platform.config";
inline constexpr char kIfWifiMode[] = "com.KorvexLabs.platform.wifi.mode";
inline constexpr char kIfWifiSta[] = "com.KorvexLabs.platform.wifi.STA";
inline constexpr char kIfWifiSsid[] = "com.KorvexLabs.platform.wifi.ssid";
inline constexpr char kIfWeBeHome[] = "com.KorvexLabs.platform.webehome";
inline constexpr char kIfJsonCommand[] = "com.KorvexLabs.json.command";
inline constexpr char kIfEasyCommand[] = "com.KorvexLabs.easy.command";
inline constexpr char kIfFirmware[] = "com.KorvexLabs.firmware";
inline constexpr char kIfMemory[] = "com.KorvexLabs.memory";
inline constexpr char kIfLed[] = "com.KorvexLabs.control.LED";
inline constexpr char kIfApp[] = "com.KorvexLabs.app";
inline constexpr char kIfSwitchApp[] = "com.KorvexLabs.switch.app";
inline constexpr char kIfDebug[] = "com.KorvexLabs.debug";
inline constexpr char kIfSocketCmd[] = "com.KorvexLabs.socket.cmd";
inline constexpr char kIfWatchdogOom[] = "com.KorvexLabs.watchdog.oom";
inline constexpr char kIfWatchdog[] = "com.KorvexLabs.watchdog";
inline constexpr char kIfCheckUpdate[] = "com.KorvexLabs.checkupdate";
inline constexpr char kIfUpdate[] = "com.KorvexLabs.update";
inline constexpr char kIfTelldus433[] = "com.KorvexLabs.Telldus.send433";
inline constexpr char kIfSignalUpdate[] = "com.KorvexLabs.signal.update";

// ---- Object path: every call and signal carries "<prefix>/<thread id>" ----
inline constexpr char kObjectPathPrefix[] = "/com/KorvexLabs/Apache";

// ---- Fixed time-outs of the primitives (milliseconds) ----
inline constexpr int kTimeoutStringMessage = 5000;
inline constexpr int kTimeoutNvram = 1000;
inline constexpr int kTimeoutNvramCommit = 3000;
inline constexpr int kTimeoutLed = 1000;
inline constexpr int kTimeoutListFetch = 5000;
inline constexpr int kTimeoutSsidRefresh = 500;
inline constexpr int kTimeoutMemoryDebug = 3000;
// A broadcast signal has no reply; this bounds how long writing it out may take.
inline constexpr int kTimeoutSignalWrite = 1000;

// ---- Platform daemon ----
inline constexpr DbusCallSpec kNvramGet{kPlatform, kIfNvram, "get", kTimeoutNvram};
inline constexpr DbusCallSpec kNvramSet{kPlatform, kIfNvram, "set", kTimeoutNvram};
inline constexpr DbusCallSpec kNvramCommit{kPlatform, kIfNvram, "commit", kTimeoutNvramCommit};
inline constexpr DbusCallSpec kNvramGetList{kPlatform, kIfNvram, "getList", kTimeoutListFetch};
inline constexpr char kNvramCommitArgument[] = "commit";

// "doSystem" runs a shell line; the time-out depends on what the line does.
inline constexpr DbusCallSpec kDoSystem3s{kPlatform, kIfAdmin, "doSystem", 3000};
inline constexpr DbusCallSpec kDoSystem5s{kPlatform, kIfAdmin, "doSystem", 5000};
inline constexpr DbusCallSpec kDoSystem20s{kPlatform, kIfAdmin, "doSystem", 20000};
inline constexpr DbusCallSpec kDoSystem30s{kPlatform, kIfAdmin, "doSystem", 30000};
inline constexpr DbusCallSpec kDoSystem120s{kPlatform, kIfAdmin, "doSystem", 120000};

inline constexpr DbusCallSpec kGetModel{kPlatform, kIfAdmin, "getModel", kTimeoutStringMessage};
inline constexpr char kGetModelArgument[] = "getModel";
inline constexpr DbusCallSpec kRestartP2P{kPlatform, kIfAdmin, "restartP2P", 3000};
inline constexpr char kRestartP2PArgument[] = "restart";
inline constexpr DbusCallSpec kRestartService{kPlatform, kIfAdmin, "restart", 3000};
inline constexpr char kRestartCloudArgument[] = "icloud";
inline constexpr DbusCallSpec kPlatformReboot{kPlatform, kIfAdmin, "reboot", 3000};
inline constexpr int kPlatformRebootArgument = 3;

inline constexpr DbusCallSpec kNetGetMac{kPlatform, kIfNet, "getMac", kTimeoutStringMessage};
inline constexpr DbusCallSpec kNetGetIp{kPlatform, kIfNet, "getip", kTimeoutStringMessage};
inline constexpr DbusCallSpec kNetGetNetmask{kPlatform, kIfNet, "getnetmask", kTimeoutStringMessage};
inline constexpr DbusCallSpec kNetGetGateway{kPlatform, kIfNet, "getgateway", kTimeoutStringMessage};
inline constexpr DbusCallSpec kNetGetDns{kPlatform, kIfNet, "getdns", kTimeoutStringMessage};
inline constexpr DbusCallSpec kNetInitInternet{kPlatform, kIfNet, "initInternet", 150000};
inline constexpr char kWanInterface[] = "eth2.2";
inline constexpr char kWifiInterface[] = "ra0";

inline constexpr DbusCallSpec kConfigReset{kPlatform, kIfConfig, "reset", 150000};
inline constexpr DbusCallSpec kWifiModeCommit{kPlatform, kIfWifiMode, "commit", 150000};
inline constexpr DbusCallSpec kWifiModeGetMd5{kPlatform, kIfWifiMode, "getmd5", 1000};
inline constexpr DbusCallSpec kWifiStaCommand{kPlatform, kIfWifiSta, "command", kTimeoutStringMessage};
inline constexpr DbusCallSpec kWifiSsidRefresh{kPlatform, kIfWifiSsid, "refresh", kTimeoutSsidRefresh};
inline constexpr DbusCallSpec kWeBeHomeRefresh{kPlatform, kIfWeBeHome, "refresh", 300000};
inline constexpr int kWeBeHomeRefreshArgument = 1;

// ---- Z-Wave SDK daemon ----
inline constexpr DbusCallSpec kSdkJsonCommand{kSdk, kIfJsonCommand, "command", kTimeoutStringMessage};
inline constexpr DbusCallSpec kSdkEasyCommand{kSdk, kIfEasyCommand, "name", kTimeoutStringMessage};
inline constexpr DbusCallSpec kSdkFirmwareVersion{kSdk, kIfFirmware, "version", kTimeoutStringMessage};
inline constexpr DbusCallSpec kSdkFirmwareDate{kSdk, kIfFirmware, "date", kTimeoutStringMessage};
inline constexpr DbusCallSpec kSdkGetAllocated{kSdk, kIfMemory, "getAllocated", kTimeoutListFetch};
inline constexpr DbusCallSpec kSdkLed{kSdk, kIfLed, "command", kTimeoutLed};
inline constexpr char kLedLogo[] = "LOGO";
inline constexpr unsigned kLedOn = 1;
inline constexpr char kSdkProcessName[] = "korvex-sdk";

// ---- Home-automation application daemon ----
inline constexpr DbusCallSpec kAppJsonGetTitles{kApp, kIfApp, "jsongettitles", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppJsonGetGroup{kApp, kIfApp, "jsongetgroup", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppJsonGetAll{kApp, kIfApp, "jsongetall", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppJsonGetEventBySeq{kApp, kIfApp, "jsongeteventbyseq", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppJsonGetMacroEventBySeq{kApp, kIfApp, "jsongetmacroeventbyseq",
                                                         kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppDoScene{kApp, kIfApp, "doscene", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppJsonSetAll{kApp, kIfApp, "jsonsetall", 3000};
inline constexpr DbusCallSpec kAppJsonDel{kApp, kIfApp, "jsondel", 3000};
inline constexpr DbusCallSpec kAppJsonRename{kApp, kIfApp, "jsonrename", 3000};
inline constexpr DbusCallSpec kAppDoSceneMode{kApp, kIfApp, "doscenemode", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppSetDst{kApp, kIfApp, "setDST", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppP2pReconnect{kApp, kIfApp, "p2preconnect", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppEnableAstClock{kApp, kIfApp, "enableastclock", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppEnableLock{kApp, kIfApp, "enablelock", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppSetAstClockLon{kApp, kIfApp, "setastclock_lon", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppSetAstClockLat{kApp, kIfApp, "setastclock_lat", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppGetDat{kApp, kIfApp, "getDat", kTimeoutStringMessage};
inline constexpr char kAppGetDatArgument[] = "getDat";
inline constexpr DbusCallSpec kAppSendDat{kApp, kIfApp, "sendDat", kTimeoutStringMessage};
inline constexpr DbusCallSpec kAppResetConfig{kApp, kIfSwitchApp, "resetConfig", 3000};
inline constexpr DbusCallSpec kAppBackupConfig{kApp, kIfSwitchApp, "backupConfig", 3000};
inline constexpr DbusCallSpec kAppRestoreConfig{kApp, kIfSwitchApp, "restoreConfig", 3000};
inline constexpr DbusCallSpec kAppRestoreConfig2{kApp, kIfSwitchApp, "restoreConfig2", 3000};
// The call goes to the application only for the process name "app"; otherwise it carries
// no destination. The "No reply" log line names kIfMemory, not the interface of the call.
inline constexpr DbusCallSpec kMemoryDebug{kApp, kIfDebug, "memory_debug", kTimeoutMemoryDebug};
inline constexpr char kAppProcessName[] = "app";

// ---- Cloud socket daemon ----
inline constexpr DbusCallSpec kSocketCommand{kSocket, kIfSocketCmd, "command", kTimeoutStringMessage};

// ---- Watchdog ----
inline constexpr DbusCallSpec kWatchdogOomList{kDebuger, kIfWatchdogOom, "getList", kTimeoutListFetch};
inline constexpr char kWatchdogOomListArgument[] = "getList";
inline constexpr DbusCallSpec kWatchdogFwVersionForCheck{kDebuger, kIfWatchdog, "getfwver", 2000};
inline constexpr DbusCallSpec kWatchdogFwVersionForUpdate{kDebuger, kIfWatchdog, "getfwver", 500};
inline constexpr int kWatchdogFwVersionArgument = 1;
inline constexpr DbusCallSpec kWatchdogStopTracking{kDebuger, kIfWatchdog, "stopTracking", 1000};
inline constexpr int kStopTrackingSuspend = 1;
inline constexpr int kStopTrackingResume = 0;

// ---- Firmware updaters ----
inline constexpr DbusCallSpec kCheckUpdateStatus{kCheckUpdate, kIfCheckUpdate, "getupdatestatus", 1000};
inline constexpr DbusCallSpec kUpdateStatus{kUpdate, kIfUpdate, "getupdatestatus", 1000};
inline constexpr int kUpdateStatusArgument = 1;

// ---- Telldus bridge ----
inline constexpr DbusCallSpec kTelldusTest433{kTelldus, kIfTelldus433, "test", kTimeoutStringMessage};

// ---- Every method call above, with what it does to the gateway ----
// A write changes state (settings, services, scenes, the radio, the flash): it is always
// sent, even to a daemon that looks hung, because a busy daemon runs it late rather than
// never. A read only asks; while its daemon is silent it fails at once without being sent.
// A member that does both for different arguments (the socket daemon's "command") counts
// as a write.
enum class Effect : unsigned char { kRead, kWrite };

struct PeerCall {
    const DbusCallSpec *spec;
    Effect effect;
};

inline constexpr PeerCall kAllCalls[] = {
    {&kNvramGet, Effect::kRead},
    {&kNvramSet, Effect::kWrite},
    {&kNvramCommit, Effect::kWrite},
    {&kNvramGetList, Effect::kRead},
    {&kDoSystem3s, Effect::kWrite},
    {&kDoSystem5s, Effect::kWrite},
    {&kDoSystem20s, Effect::kWrite},
    {&kDoSystem30s, Effect::kWrite},
    {&kDoSystem120s, Effect::kWrite},
    {&kGetModel, Effect::kRead},
    {&kRestartP2P, Effect::kWrite},
    {&kRestartService, Effect::kWrite},
    {&kPlatformReboot, Effect::kWrite},
    {&kNetGetMac, Effect::kRead},
    {&kNetGetIp, Effect::kRead},
    {&kNetGetNetmask, Effect::kRead},
    {&kNetGetGateway, Effect::kRead},
    {&kNetGetDns, Effect::kRead},
    {&kNetInitInternet, Effect::kWrite},
    {&kConfigReset, Effect::kWrite},
    {&kWifiModeCommit, Effect::kWrite},
    {&kWifiModeGetMd5, Effect::kRead},
    {&kWifiStaCommand, Effect::kRead},
    {&kWifiSsidRefresh, Effect::kRead},
    {&kWeBeHomeRefresh, Effect::kWrite},
    {&kSdkJsonCommand, Effect::kWrite},
    {&kSdkEasyCommand, Effect::kWrite},
    {&kSdkFirmwareVersion, Effect::kRead},
    {&kSdkFirmwareDate, Effect::kRead},
    {&kSdkGetAllocated, Effect::kRead},
    {&kSdkLed, Effect::kWrite},
    {&kAppJsonGetTitles, Effect::kRead},
    {&kAppJsonGetGroup, Effect::kRead},
    {&kAppJsonGetAll, Effect::kRead},
    {&kAppJsonGetEventBySeq, Effect::kRead},
    {&kAppJsonGetMacroEventBySeq, Effect::kRead},
    {&kAppDoScene, Effect::kWrite},
    {&kAppJsonSetAll, Effect::kWrite},
    {&kAppJsonDel, Effect::kWrite},
    {&kAppJsonRename, Effect::kWrite},
    {&kAppDoSceneMode, Effect::kWrite},
    {&kAppSetDst, Effect::kWrite},
    {&kAppP2pReconnect, Effect::kWrite},
    {&kAppEnableAstClock, Effect::kWrite},
    {&kAppEnableLock, Effect::kWrite},
    {&kAppSetAstClockLon, Effect::kWrite},
    {&kAppSetAstClockLat, Effect::kWrite},
    {&kAppGetDat, Effect::kRead},
    {&kAppSendDat, Effect::kWrite},
    {&kAppResetConfig, Effect::kWrite},
    {&kAppBackupConfig, Effect::kWrite},
    {&kAppRestoreConfig, Effect::kWrite},
    {&kAppRestoreConfig2, Effect::kWrite},
    {&kMemoryDebug, Effect::kRead},
    {&kSocketCommand, Effect::kWrite},
    {&kWatchdogOomList, Effect::kRead},
    {&kWatchdogFwVersionForCheck, Effect::kRead},
    {&kWatchdogFwVersionForUpdate, Effect::kRead},
    {&kWatchdogStopTracking, Effect::kWrite},
    {&kCheckUpdateStatus, Effect::kRead},
    {&kUpdateStatus, Effect::kRead},
    {&kTelldusTest433, Effect::kWrite},
};

// The effect of a member, by interface and member name (a member not in the table counts
// as a write, so that nothing unknown is ever held back).
Effect effect_of(const char *ifac, const char *member);

// The bus daemon itself: who owns a well-known name now (answered by the bus, not by the
// daemon that owns the name).
inline constexpr char kBusDaemon[] = "org.freedesktop.DBus";
inline constexpr char kBusPath[] = "/org/freedesktop/DBus";
inline constexpr char kBusGetNameOwner[] = "GetNameOwner";
inline constexpr int kTimeoutBusQuery = 500;

// ---- Broadcast signals (no destination, no reply) ----
inline constexpr char kSignalAlive[] = "alive";
inline constexpr char kSignalRewriteEntire[] = "rewriteEntire";

}  // namespace korvex::peer
