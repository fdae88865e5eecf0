// Firmware updates from the update server: status, checks and background downloads by the
// gateway's "checkupdate" program (started through the platform daemon), and the request to
// rewrite the whole flash. A second check or download is refused while one runs.
#include <cstring>

#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/updater_processes.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "dbus/signals.h"
#include "registry/handlers.h"

namespace {

using namespace korvex::shape;
namespace peer = korvex::peer;
namespace updater = korvex::updater;

constexpr char kCheckImageLine[] = "checkupdate -r %s -m %s";
constexpr char kDownloadImageLine[] = "checkupdate -r %s -d /tmp/uImage -m %s&";
constexpr char kCheckFirmwareLine[] = "checkupdate -v %s -m %s";
constexpr char kDownloadFirmwareLine[] = "checkupdate -v %s -d /tmp/uImage -m %s&";
constexpr char kDownloadFirmwareFromLine[] = "checkupdate -v %s -d /tmp/uImage -s %s -m %s&";

// A value of this many characters or more names the update server; shorter ones (the empty
// one included) mean the default server.
constexpr std::size_t kServerMinLength = 4;
// The server name is kept in a 64-byte buffer on the gateway; longer names are refused.
constexpr std::size_t kServerMaxLength = 63;

const char *firmware_version(request_rec *r, const DbusCallSpec &spec) {
    return apache_dbus_send_int_ret_str(r, peer::kWatchdogFwVersionArgument, &spec);
}

}  // namespace

// The status of whichever program runs, "checkupdate" first; "(null)<br>" when none runs.
int getUpdateStatus(request_rec *r, char *) {
    const char *status = nullptr;
    if (updater::check_update_running()) {
        status = apache_dbus_send_int_ret_str(r, peer::kUpdateStatusArgument, &peer::kCheckUpdateStatus);
    } else if (updater::update_running()) {
        status = apache_dbus_send_int_ret_str(r, peer::kUpdateStatusArgument, &peer::kUpdateStatus);
    }
    return print_reply(r, status, Reply::kAlways);
}

// Only a running "update" blocks the image commands; a running check does not.
int checkuImageFromServer(request_rec *r, char *value) {
    if (updater::update_running()) {
        print_number(r, 0);
        return 0;
    }
    const char *model = gateway_model(r);
    return print_number(r, run_shell(r, peer::kDoSystem20s, kCheckImageLine, {value, model}));
}

int updateuImageFromServer(request_rec *r, char *value) {
    if (updater::update_running()) return 0;
    const char *model = gateway_model(r);
    run_shell(r, peer::kDoSystem120s, kDownloadImageLine, {value, model});
    return 1;
}

int checkUpdateFromServer(request_rec *r, char *) {
    if (updater::check_update_running() || updater::update_running()) {
        print_number(r, 0);
        KLOG(KORVEX_LOG_ERROR, "1. checkUpdateFromServer() apr_psprintf fail\n");
        return 0;
    }
    const char *model = gateway_model(r);
    const char *version = firmware_version(r, peer::kWatchdogFwVersionForCheck);
    if (version == nullptr) {
        KLOG(KORVEX_LOG_ERROR, "2. checkUpdateFromServer() apr_psprintf fail\n");
        return 0;
    }
    return print_number(r, run_shell(r, peer::kDoSystem20s, kCheckFirmwareLine, {version, model}));
}

// The value optionally names the update server. A missing firmware version goes into the
// line as the formatter writes an absent text.
int updateFromServer(request_rec *r, char *value) {
    const std::size_t length = std::strlen(value);
    if (length > kServerMaxLength) {
        KLOG(KORVEX_LOG_ERROR, "update server name longer than %zu characters\n", kServerMaxLength);
        return 0;
    }
    if (updater::check_update_running() || updater::update_running()) return 0;
    const char *version = firmware_version(r, peer::kWatchdogFwVersionForUpdate);
    const bool server_given = length >= kServerMinLength;
    const char *model = gateway_model(r);
    if (server_given) {
        run_shell(r, peer::kDoSystem120s, kDownloadFirmwareFromLine, {version, value, model});
    } else {
        run_shell(r, peer::kDoSystem120s, kDownloadFirmwareLine, {version, model});
    }
    return 1;
}

int updateUboot(request_rec *, char *) { return 1; }

int reFlash(request_rec *r, char *value) {
    dbus_signal_rewrite_entire_flash(r, value);
    return 1;
}
