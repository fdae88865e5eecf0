// Sanitizer mode (KORVEX_SANITIZE=1): the server runs an instrumented module with the
// ASan runtime preloaded, and every report lands in RUN_DIR/sanitizer/.
#pragma once

#include <string>
#include <vector>

namespace korvex::harness {

// The libraries preloaded into the server, colon-separated: $KORVEX_SERVER_PRELOAD, or
// gcc's ($CC's) libasan and libubsan. Debian's apache2 is not built with ASan, so an
// instrumented module only loads when the runtime is the first library of the process.
// Throws when a library cannot be found.
std::string sanitizer_preload();

// ASAN_OPTIONS and UBSAN_OPTIONS for one kind of process ("server", "sim"): reports go to
// RUN_DIR/sanitizer/<kind>-<asan|ubsan>.<pid>.
std::vector<std::string> sanitizer_env(const std::string &run_dir, const std::string &kind);

// UBSan ignores its log_path when it shares the process with ASan and writes to standard
// error, that is into the logs: copies its reports ("FILE:LINE:COLUMN: runtime error: ..."
// and the stack after them) from RUN_DIR/logs/{error.log,httpd.stderr,sim.log} into
// RUN_DIR/sanitizer/ubsan-in-<log>.
void collect_ubsan_reports(const std::string &run_dir);

}  // namespace korvex::harness
