// Faults that tests can inject into a running server, to check what the module does when
// something inside it fails. Built in only with KORVEX_FAULT_HOOKS (the development tree's
// default; packages are built without), and then triggered only by a request header.
#pragma once

#include "base/apache_shim.h"

namespace korvex::fault {

// The request header that asks for a fault, and its one value: throw an exception once the
// resource has written its answer.
inline constexpr char kHeader[] = "X-Korvex-Fault";
inline constexpr char kThrowAfterServe[] = "throw-after-serve";

// Throws std::runtime_error("injected fault") when the request asks for it and the hooks
// are built in; does nothing otherwise.
void after_serve(request_rec *r);

}  // namespace korvex::fault
