#include "module/fault_hooks.h"

#include <cstring>
#include <stdexcept>

#include "base/log.h"

namespace korvex::fault {

#ifdef KORVEX_FAULT_HOOKS
namespace {

void log_every_level() {
    for (int level = KORVEX_LOG_CHILD - 1; level <= KORVEX_LOG_ERROR; ++level) {
        KLOG(level, "record at level %d\n", level);
    }
    KLOG(KORVEX_LOG_ERROR, "record with a backslash \\, a tab \t and a byte \xe9\n");
}

}  // namespace

void after_serve(request_rec *r) {
    const char *asked = apr_table_get(r->headers_in, kHeader);
    if (asked == nullptr) return;
    if (std::strcmp(asked, kThrowAfterServe) == 0) throw std::runtime_error("injected fault");
    if (std::strcmp(asked, kLogEveryLevel) == 0) log_every_level();
}
#else
void after_serve(request_rec *) {}
#endif

}  // namespace korvex::fault
