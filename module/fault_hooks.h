// Faults that tests can inject into a running server, to check what the module does when
// something inside it fails. Built in only with KORVEX_FAULT_HOOKS (the development tree's
// default; packages are built without), and then triggered only by a request header.
#pragma once

#include "base/apache_shim.h"

namespace korvex::fault {

// The request header that asks for a fault, and its values: throw an exception once the
// resource has written its answer; write one log record at each of the module's levels;
// forget which destinations stopped answering before the request is served (so that one
// test's silent daemon does not hold back the next test).
inline constexpr char kHeader[] = "X-Korvex-Fault";
inline constexpr char kThrowAfterServe[] = "throw-after-serve";
inline constexpr char kLogEveryLevel[] = "log-every-level";
inline constexpr char kForgetSilentPeers[] = "forget-silent-peers";
// Skip the firmware update's pause after its memory purge, so that a test can send
// hundreds of uploads.
inline constexpr char kNoPurgePause[] = "no-purge-pause";

// Acts on kForgetSilentPeers when the hooks are built in; does nothing otherwise.
void before_serve(request_rec *r);

// The pause after the firmware update's memory purge: `normal`, or none when the request
// asks for kNoPurgePause and the hooks are built in.
apr_interval_time_t purge_pause(request_rec *r, apr_interval_time_t normal);

// When the request asks for it and the hooks are built in: throws
// std::runtime_error("injected fault"), or writes "record at level N" at levels 1 to 6 and
// then an error record with a backslash, a tab and a non-ASCII byte. Does nothing otherwise.
void after_serve(request_rec *r);

}  // namespace korvex::fault
