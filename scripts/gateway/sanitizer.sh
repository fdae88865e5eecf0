# shellcheck shell=bash
# Sourced by scripts/gateway.sh; uses its globals (RUN_DIR, SANITIZE, ...).

# --- sanitizer mode --------------------------------------------------------------------

# The libraries preloaded into the server: Debian's apache2 is not built with ASan, so an
# instrumented module only loads when the ASan runtime is the first library of the process.
# KORVEX_SERVER_PRELOAD (colon-separated paths) replaces the default: gcc's libasan and
# libubsan.
sanitizer_preload() {
    if [ -n "${KORVEX_SERVER_PRELOAD:-}" ]; then
        echo "$KORVEX_SERVER_PRELOAD"
        return 0
    fi
    local compiler="${CC:-gcc}" list="" name path
    command -v "$compiler" >/dev/null || compiler=gcc
    for name in libasan.so libubsan.so; do
        path="$("$compiler" -print-file-name="$name" 2>/dev/null || true)"
        # gcc prints the bare name when it does not know the library.
        if [ -z "$path" ] || [ "$path" = "$name" ] || [ ! -e "$path" ]; then
            die "cannot find $name (set KORVEX_SERVER_PRELOAD)"
        fi
        path="$(readlink -f "$path")"
        list="${list:+$list:}$path"
    done
    echo "$list"
}

# Runtime options for one process kind (server or sim): reports go to files
# RUN_DIR/sanitizer/<kind>-<asan|ubsan>.<pid>, which nothing else ever writes.
sanitizer_env() { # KIND -> NAME=VALUE lines
    local dir="$RUN_DIR/sanitizer"
    # Leak checks stay off: Apache's pools and libdbus keep memory until exit by design.
    # Apache installs its own handlers for fatal signals; ASan keeps its own instead, so a
    # crash or an abort (libdbus refusing its arguments, say) leaves a report with a stack.
    local asan="detect_leaks=0:halt_on_error=1:abort_on_error=0:handle_abort=1:allow_user_segv_handler=0"
    echo "ASAN_OPTIONS=$asan:log_path=$dir/$1-asan"
    # (log_path is honoured only where UBSan runs without ASan; see collect_ubsan_reports.)
    echo "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=0:log_path=$dir/$1-ubsan"
}

# UBSan ignores its log_path when it shares the process with ASan and writes to standard
# error, that is into the logs. Once the processes are gone, its reports (lines
# "FILE:LINE:COLUMN: runtime error: ..." and the stack after them) are copied from the logs
# into RUN_DIR/sanitizer/ like every other report. Log records start with "[" (Apache's
# time stamp, or "[korvex:" for a module record written to standard error).
collect_ubsan_reports() {
    [ "${SANITIZE:-0}" = 1 ] && [ -d "$RUN_DIR/sanitizer" ] || return 0
    local log report
    for log in error.log httpd.stderr sim.log; do
        [ -s "$RUN_DIR/logs/$log" ] || continue
        report="$RUN_DIR/sanitizer/ubsan-in-$log"
        grep -a -E -A 12 '^[^[ ]+:[0-9]+:[0-9]+: runtime error: ' "$RUN_DIR/logs/$log" >"$report" || rm -f "$report"
    done
}
