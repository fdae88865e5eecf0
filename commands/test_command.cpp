// "test": exercises the bus path by sending n "getdevice" requests to the Z-Wave SDK daemon.
#include <cstdlib>

#include "base/log.h"
#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "registry/handlers.h"

namespace {

constexpr char kGetDeviceRequest[] = "{\"control\":{\"cmd\":\"getdevice\",\"uid\":256}}";

// At about 0.2 ms a request on a healthy bus, the bound keeps one command under a few
// seconds; a larger count is refused rather than holding a worker for hours.
constexpr int kMaxCount = 10000;

// True once the connection is really gone: a write to it failed (Apache then marks it
// aborted), or the client's side answered the bytes already sent with a reset, which is
// what a closed socket does. A client that only finished sending (shutdown of its write
// side, end of input) still reads, and gets the whole answer.
bool client_gone(request_rec *r) {
    if (r->connection->aborted) return true;
    apr_socket_t *socket = ap_get_conn_socket(r->connection);
    if (socket == nullptr) return false;
    apr_pollfd_t probe{};
    probe.p = r->pool;
    probe.desc_type = APR_POLL_SOCKET;
    probe.desc.s = socket;
    apr_int32_t ready = 0;
    // Error and hang-up are reported whatever is asked for; neither comes from a half-close.
    return apr_poll(&probe, 1, &ready, 0) == APR_SUCCESS && (probe.rtnevents & (APR_POLLERR | APR_POLLHUP)) != 0;
}

}  // namespace

int testAPI(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const int count = std::atoi(value);
    if (count > kMaxCount) {
        KLOG(KORVEX_LOG_ERROR, "test count %d is over %d\n", count, kMaxCount);
        return 0;
    }
    // The answer's head (and whatever earlier commands printed) goes out before the
    // first request: a client that has closed its socket answers it with a reset, so the
    // loop below sees the client gone after one request instead of after all of them.
    if (count > 0) ap_rflush(r);
    for (int i = 0; i < count; ++i) {
        if (client_gone(r)) {
            KLOG(KORVEX_LOG_STATE, "client gone after %d of %d test requests\n", i, count);
            break;
        }
        korvex::string_message(r, kGetDeviceRequest, korvex::peer::kSdkJsonCommand);
    }
    ap_rprintf(r, "in %s, value: %s<br>", "testAPI", value);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}
