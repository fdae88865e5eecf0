// "test": exercises the bus path by sending n "getdevice" requests to the Z-Wave SDK daemon.
#include <cstdlib>

#include "dbus/peer_catalog.h"
#include "dbus/primitives.h"
#include "base/log.h"
#include "registry/handlers.h"

namespace {
constexpr char kGetDeviceRequest[] = "{\"control\":{\"cmd\":\"getdevice\",\"uid\":256}}";
}

int testAPI(request_rec *r, char *value) {
    KLOG(KORVEX_LOG_TRACE, "enter %s\n", __func__);
    const int count = std::atoi(value);
    for (int i = 0; i < count; ++i) korvex::string_message(r, kGetDeviceRequest, korvex::peer::kSdkJsonCommand);
    ap_rprintf(r, "in %s, value: %s<br>", "testAPI", value);
    KLOG(KORVEX_LOG_TRACE, "leave %s\n", __func__);
    return 1;
}
