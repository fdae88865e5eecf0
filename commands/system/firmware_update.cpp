#include "commands/system/firmware_update.h"

#include "base/log.h"
#include "commands/command_shapes.h"
#include "commands/system/updater_processes.h"
#include "dbus/peer_catalog.h"
#include "dbus/signals.h"
#include "korvex_utils.h"
#include "registry/module_config.h"

namespace {

constexpr char kContentType[] = "text/html;charset=utf-8";
constexpr char kUpdaterLine[] = "update -k %s -m %s -r 3 &";
constexpr char kUpdateStatusPage[] = "<meta http-equiv=\"refresh\" content=\"1;url=/updatestatus.htm\">";
constexpr char kNotStarted[] = "update could not be started";
constexpr int kMemoryPurgeLevel = 25;

// The update is a part of the content handler's "update.cgi": its log lines carry the
// handler's name.
constexpr char kHandlerName[] = "korvex_handler";
#define HLOG(level, ...) KLOG_AS((level), kHandlerName, __VA_ARGS__)

// Holds the process-wide lock on "/tmp/lockHttpd" while one upload is stored and its
// updater started, so that two uploads never write the image at once. Without a lock (it
// could not be created at start-up) uploads go ahead unguarded.
class UploadLock {
public:
    explicit UploadLock(ModuleConfig *config) : mutex_(config != nullptr ? config->mutex : nullptr) {
        if (mutex_ == nullptr) return;
        const apr_status_t status = apr_global_mutex_trylock(mutex_);
        held_ = status == APR_SUCCESS;
        busy_ = APR_STATUS_IS_EBUSY(status);
    }
    ~UploadLock() {
        if (held_) apr_global_mutex_unlock(mutex_);
    }
    UploadLock(const UploadLock &) = delete;
    UploadLock &operator=(const UploadLock &) = delete;
    // Another upload holds the lock.
    bool busy() const { return busy_; }

private:
    apr_global_mutex_t *mutex_;
    bool held_ = false;
    bool busy_ = false;
};

int answer_updating(request_rec *r) {
    HLOG(KORVEX_LOG_STATE, "fw is updating\n");
    ap_rprintf(r, "updating");
    return korvex::http::kOk;
}

// The update was announced ("alive" 1) but no updater follows: the update daemon is told
// so on the same interface.
void withdraw_announcement(request_rec *r) {
    dbus_signal_update_alive(r, 0);
    HLOG(KORVEX_LOG_STATE, "update announcement withdrawn (alive 0): no updater started\n");
}

}  // namespace

namespace korvex::firmware {

int update_from_upload(request_rec *r, ImageReceiver receive_image, apr_interval_time_t purge_pause) {
    ModuleConfig *config = getKorvexData(r);
    if (korvex::updater::update_running()) return answer_updating(r);
    UploadLock lock(config);
    if (lock.busy()) return answer_updating(r);
    HLOG(KORVEX_LOG_STATE, "purging ...\n");
    sys_mem_purge(kMemoryPurgeLevel);
    if (purge_pause > 0) apr_sleep(purge_pause);
    const char *model = korvex::shape::gateway_model(r);
    const DbusCallSpec *updater = &korvex::peer::kDoSystem3s;
    const bool announced = dbus_signal_update_alive(r, 1) == 0;
    const int refused = receive_image(r);
    if (refused != 0) {
        if (announced) withdraw_announcement(r);
        return refused;
    }
    korvex::Delivery delivery = korvex::Delivery::kNotSent;
    korvex::shape::run_shell(r, *updater, kUpdaterLine, {kFirmwareImagePath, model}, &delivery);
    if (delivery == korvex::Delivery::kNotSent) {
        // Nothing will run the updater. A start that went out but was not answered in time
        // may still run it, so that one is answered as started.
        HLOG(KORVEX_LOG_ERROR, "the updater could not be started\n");
        if (announced) withdraw_announcement(r);
        ap_custom_response(r, korvex::http::kServiceUnavailable, kNotStarted);
        return korvex::http::kServiceUnavailable;
    }
    ap_set_content_type(r, kContentType);
    ap_rprintf(r, "%s", kUpdateStatusPage);
    return korvex::http::kOk;
}

}  // namespace korvex::firmware
