// Change stamps of the application data and the user data (see change_stamp.h).
#include "commands/app/change_stamp.h"

#include <ctime>

#include "dbus/primitives.h"
#include "base/log.h"

extern "C" {
KORVEX_EXPORT int jsonsetall_number = 0;
KORVEX_EXPORT int jsongetuserdata_number = 0;
}

namespace korvex {

namespace {

// stamp := time() truncated to 32 bits; its "%d" text written to the working nvram.
const char *stamp(request_rec *r, int &number, const char *key) {
    number = static_cast<int>(std::time(nullptr));
    const char *text = apr_psprintf(r->pool, "%d", number);
    KLOG(KORVEX_LOG_TRACE, "%s: %s\n", key, text);
    korvex::nvram_set(r, key, text);
    return text;
}

}  // namespace

const char *stamp_application_change(request_rec *r) {
    return stamp(r, jsonsetall_number, kJsonSetAllNumberKey);
}

const char *stamp_user_data_change(request_rec *r) {
    return stamp(r, jsongetuserdata_number, kJsonGetUserdataNumberKey);
}

}  // namespace korvex
