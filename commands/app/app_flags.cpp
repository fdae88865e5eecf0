// Application flags and schedules: each setter stores the command's value under one nvram
// key, commits it, and tells the application (or the Z-Wave SDK daemon) where it must react
// at once; each getter prints the stored text. Values are opaque text: nothing is checked.
#include "commands/app/change_stamp.h"
#include "commands/command_shapes.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "base/log.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;

// The text the SDK daemon gets when the user data or a check-box set changed.
constexpr char kUserDataChange[] = "userdata_change";

// nvram keys.
constexpr char kSceneModeKey[] = "doscenemode";
constexpr char kDstKey[] = "setDST";
constexpr char kP2pReconnectKey[] = "p2preconnect";
constexpr char kUserDataKey[] = "jsonsetuserdata";
constexpr char kCheckboxKey[] = "jsonsetcheckbox";
constexpr char kCheckbox2Key[] = "jsonsetcheckbox2";
constexpr char kSavingTimeKey[] = "setsavingtime";
constexpr char kAstClockKey[] = "enableastclock";
constexpr char kSwitchAllKey[] = "enableswitchall";
constexpr char kTimerKey[] = "enabletimer";
constexpr char kLockKey[] = "enablelock";

constexpr StoreRule kSceneMode = store_and_commit(kSceneModeKey)
                                     .telling_before_commit(peer::kAppDoSceneMode)
                                     .printing(Echo::kNotifyReply, Reply::kRequired);
constexpr StoreRule kDst = store_and_commit(kDstKey).printing(Echo::kSetReply, Reply::kRequired);
constexpr StoreRule kP2pReconnect =
    store_and_commit(kP2pReconnectKey).telling_before_commit(peer::kAppP2pReconnect).printing(Echo::kValue);
constexpr StoreRule kCheckbox = store_and_commit(kCheckboxKey)
                                    .telling_after_commit(peer::kSdkEasyCommand, kUserDataChange)
                                    .printing(Echo::kSetReply);
constexpr StoreRule kCheckbox2 = store_and_commit(kCheckbox2Key)
                                     .telling_after_commit(peer::kSdkEasyCommand, kUserDataChange)
                                     .printing(Echo::kSetReply);
constexpr StoreRule kSavingTime = store_and_commit(kSavingTimeKey).printing(Echo::kSetReply);
constexpr StoreRule kAstClock =
    store_and_commit(kAstClockKey).telling_before_commit(peer::kAppEnableAstClock).printing(Echo::kNotifyReply);
constexpr StoreRule kSwitchAll = store_and_commit(kSwitchAllKey).printing(Echo::kSetReply);
constexpr StoreRule kTimer = store_and_commit(kTimerKey).printing(Echo::kSetReply);
constexpr StoreRule kLock =
    store_and_commit(kLockKey).telling_after_commit(peer::kAppEnableLock).printing(Echo::kSetReply);

}  // namespace

int doScenemode(request_rec *r, char *value) { return store(r, value, kSceneMode, __func__); }
int getdoScenemode(request_rec *r, char *) { return print_nvram(r, kSceneModeKey, __func__); }
int setdst(request_rec *r, char *value) { return store(r, value, kDst, __func__); }

// The application is told the command's value (member "setDST", reply ignored) before the
// stored daylight-saving rule is read back.
int getdst(request_rec *r, char *value) {
    korvex::string_message(r, value, peer::kAppSetDst);
    return print_nvram(r, kDstKey, __func__);
}

int p2pReconnect(request_rec *r, char *value) { return store(r, value, kP2pReconnect, __func__); }
int getp2pReconnect(request_rec *r, char *) { return print_nvram(r, kP2pReconnectKey, __func__); }

// The user data: stored, stamped and committed, then the SDK daemon is told; the new stamp
// (not the data) is printed.
int jsonSetuserdata(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    korvex::nvram_set(r, kUserDataKey, value);
    KLOG(KORVEX_LOG_REQUEST, "@@@@@ jsonsetuserdata\n");
    const char *stamp = korvex::stamp_user_data_change(r);
    korvex::nvram_commit(r);
    korvex::string_message(r, kUserDataChange, peer::kSdkEasyCommand);
    int ret = korvex::shape::print_reply(r, stamp, Reply::kAlways);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return ret;
}

int jsonGetuserdata(request_rec *r, char *) { return print_nvram(r, kUserDataKey, __func__); }
int jsonSetcheckbox(request_rec *r, char *value) { return store(r, value, kCheckbox, __func__); }
int jsonGetcheckbox(request_rec *r, char *) { return print_nvram(r, kCheckboxKey, __func__); }
int jsonSetcheckbox2(request_rec *r, char *value) { return store(r, value, kCheckbox2, __func__); }
int jsonGetcheckbox2(request_rec *r, char *) { return print_nvram(r, kCheckbox2Key, __func__); }
int setSavingTime(request_rec *r, char *value) { return store(r, value, kSavingTime, __func__); }
int getSavingTime(request_rec *r, char *) { return print_nvram(r, kSavingTimeKey, __func__); }
int enableastclock(request_rec *r, char *value) { return store(r, value, kAstClock, __func__); }
int getenableastclock(request_rec *r, char *) { return print_nvram(r, kAstClockKey, __func__); }
int enableswitchall(request_rec *r, char *value) { return store(r, value, kSwitchAll, __func__); }
int enabletimer(request_rec *r, char *value) { return store(r, value, kTimer, __func__); }
int enablelock(request_rec *r, char *value) { return korvex::shape::store_if_changed(r, value, kLock, __func__); }
int getenablelock(request_rec *r, char *) { return print_nvram(r, kLockKey, __func__); }
