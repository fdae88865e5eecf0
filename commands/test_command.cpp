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

// True once the client has closed its side of the connection: nobody waits for the answer.
bool client_gone(request_rec *r) {
    if (r->connection->aborted) return true;
    apr_socket_t *socket = ap_get_conn_socket(r->connection);
    int at_eof = 0;
    return socket != nullptr && apr_socket_atreadeof(socket, &at_eof) == APR_SUCCESS && at_eof != 0;
}

}  // namespace

int testAPI(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const int count = std::atoi(value);
    if (count > kMaxCount) {
        KLOG(KORVEX_LOG_ERROR, "test count %d is over %d\n", count, kMaxCount);
        return 0;
    }
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
