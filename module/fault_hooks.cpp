#include "module/fault_hooks.h"

#include <cstring>
#include <stdexcept>

namespace korvex::fault {

#ifdef KORVEX_FAULT_HOOKS
void after_serve(request_rec *r) {
    const char *asked = apr_table_get(r->headers_in, kHeader);
    if (asked != nullptr && std::strcmp(asked, kThrowAfterServe) == 0) throw std::runtime_error("injected fault");
}
#else
void after_serve(request_rec *) {}
#endif

}  // namespace korvex::fault
