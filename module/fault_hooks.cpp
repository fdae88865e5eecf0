#include "module/fault_hooks.h"

#include <cstring>
#include <stdexcept>

#include "dbus/silent_peers.h"

namespace korvex::fault {

#ifdef KORVEX_FAULT_HOOKS
void before_serve(request_rec *r) {
    const char *asked = apr_table_get(r->headers_in, kHeader);
    if (asked != nullptr && std::strcmp(asked, kForgetSilentPeers) == 0) dbus::silent_peers::forget_all();
}

void after_serve(request_rec *r) {
    const char *asked = apr_table_get(r->headers_in, kHeader);
    if (asked != nullptr && std::strcmp(asked, kThrowAfterServe) == 0) throw std::runtime_error("injected fault");
}
#else
void before_serve(request_rec *) {}
void after_serve(request_rec *) {}
#endif

}  // namespace korvex::fault
