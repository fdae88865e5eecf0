// Before the server writes its access log for a request to one of the module's resources,
// the request line and query string it logs lose every secret value (see
// module/secret_query.h): the gateway's pages send passwords as GET queries.
#pragma once

namespace korvex::access_log {

void register_hooks();

}  // namespace korvex::access_log
