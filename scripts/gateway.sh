#!/usr/bin/env bash
# Starts and stops one private gateway (bus, simulator, Apache with the module) that
# lives entirely in one run directory. See docs/running.md.
set -euo pipefail

SCRIPT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/$(basename "${BASH_SOURCE[0]}")"
SOURCE_DIR="$(cd "$(dirname "$SCRIPT")/.." && pwd)"
APACHE_BIN="${APACHE_BIN:-/usr/sbin/apache2}"
APACHE_MODULES="${APACHE_MODULES:-/usr/lib/apache2/modules}"
SERVER_ACCOUNT="www-data"
WAIT_SECONDS="${KORVEX_WAIT_SECONDS:-30}"
# Opt-in sanitizer mode (KORVEX_SANITIZE=1 or "up --sanitize"), for a tree built with
# -fsanitize=address,undefined: see "Sanitizer runs" in docs/running.md.
SANITIZE="${KORVEX_SANITIZE:-0}"

usage() {
    cat <<'EOF'
usage: gateway.sh COMMAND RUN_DIR [ARGS]
  up RUN_DIR [--port N] [--mpm prefork|worker|event] [--no-bus] [--log-level N]
             [--owner-pid PID] [--build-dir DIR] [--tmp-dir NAME]... [--sanitize]
                        start bus, simulator and server; return once the server answers
                        (--tmp-dir: a directory NAME in the server's private /tmp, made
                        before the server starts; isolation only; --sanitize: as
                        KORVEX_SANITIZE=1, the server runs with the ASan runtime preloaded
                        and every sanitizer report lands in RUN_DIR/sanitizer/)
  down RUN_DIR          stop everything started for RUN_DIR
  bus-stop RUN_DIR      stop simulator and bus (the server keeps running)
  bus-start RUN_DIR     start bus and simulator again on the same socket
  sim-stop RUN_DIR      stop the simulator alone (the bus and the server keep running)
  sim-start RUN_DIR     start the simulator again on the running bus
  sim-restart RUN_DIR   both, for healing a fault injected into the simulator
  spawn RUN_DIR NAME    start a sleeping process whose argv[0] is NAME; prints its id
  unspawn RUN_DIR ID    stop a process started by spawn
  hostname RUN_DIR      print the host name the server sees
Facts about a running gateway are in RUN_DIR/env.
EOF
}

die() {
    echo "gateway.sh: $*" >&2
    exit 1
}

# --- process records: "pid starttime" so that a reused pid is never signalled --------

start_time() {
    local stat
    stat="$(cat "/proc/$1/stat" 2>/dev/null)" || return 1
    stat="${stat##*) }"
    # Fields after the command name: state is 1st, starttime is 20th.
    local -a fields
    read -r -a fields <<<"$stat"
    [ "${fields[0]}" != "Z" ] || return 1
    echo "${fields[19]}"
}

record_pid() { # NAME PID
    local started
    # A process that is already gone gets a record that never matches; callers report it.
    started="$(start_time "$2")" || started=gone
    echo "$2 $started" >"$RUN_DIR/pids/$1"
}

# Prints the pid of record NAME if that very process still runs.
live_pid() {
    local file="$RUN_DIR/pids/$1" pid started
    [ -f "$file" ] || return 1
    read -r pid started <"$file" || return 1
    [ "$(start_time "$pid" 2>/dev/null)" = "$started" ] || return 1
    echo "$pid"
}

is_running() { live_pid "$1" >/dev/null; }

# Sends TERM, waits up to SECONDS, then KILL.
stop_record() { # NAME SECONDS
    local pid
    if pid="$(live_pid "$1")"; then
        kill -TERM "$pid" 2>/dev/null || true
        local deadline=$((SECONDS + $2))
        while is_running "$1" && [ "$SECONDS" -lt "$deadline" ]; do sleep 0.1; done
        if is_running "$1"; then
            echo "gateway.sh: $1 ($pid) ignored SIGTERM, killing it" >&2
            kill -KILL "$pid" 2>/dev/null || true
            deadline=$((SECONDS + 5))
            while is_running "$1" && [ "$SECONDS" -lt "$deadline" ]; do sleep 0.05; done
        fi
    fi
    rm -f "$RUN_DIR/pids/$1"
}

first_child() { # PID -> first child pid, waiting for it to appear
    local deadline=$((SECONDS + 10)) children
    while [ "$SECONDS" -lt "$deadline" ]; do
        children="$(cat "/proc/$1/task/$1/children" 2>/dev/null || true)"
        if [ -n "$children" ]; then
            echo "${children%% *}"
            return 0
        fi
        [ -d "/proc/$1" ] || return 1
        sleep 0.05
    done
    return 1
}

log_tail() { # FILE
    if [ -s "$1" ]; then
        echo "--- last lines of $1:" >&2
        tail -n 25 "$1" >&2
    fi
}

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
# into RUN_DIR/sanitizer/ like every other report. Module trace lines start with "[korvex:".
collect_ubsan_reports() {
    [ "${SANITIZE:-0}" = 1 ] && [ -d "$RUN_DIR/sanitizer" ] || return 0
    local log report
    for log in error.log httpd.stderr sim.log; do
        [ -s "$RUN_DIR/logs/$log" ] || continue
        report="$RUN_DIR/sanitizer/ubsan-in-$log"
        grep -a -E -A 12 '^[^[ ]+:[0-9]+:[0-9]+: runtime error: ' "$RUN_DIR/logs/$log" >"$report" || rm -f "$report"
    done
}

# --- run directory ---------------------------------------------------------------------

fill_template() { # TEMPLATE OUTPUT
    local text
    text="$(cat "$1")"
    text="${text//@RUN_DIR@/$RUN_DIR}"
    text="${text//@PORT@/$PORT}"
    text="${text//@MPM@/$MPM}"
    text="${text//@APACHE_MODULES@/$APACHE_MODULES}"
    printf '%s\n' "$text" >"$2"
}

use_isolation() {
    [ "${KORVEX_ISOLATION:-1}" != 0 ] && [ "$(id -u)" = 0 ] && id "$SERVER_ACCOUNT" >/dev/null 2>&1 &&
        command -v unshare >/dev/null && command -v setpriv >/dev/null && command -v nsenter >/dev/null
}

# Recording stand-ins for programs the server runs itself; never the real ones.
write_stand_ins() {
    local bin="$RUN_DIR/bin"
    mkdir -p "$bin"
    cat >"$bin/iwpriv" <<EOF
#!/bin/sh
# Stand-in for the Wi-Fi driver tool: records its arguments, prints a site survey.
echo "iwpriv \$*" >>"$RUN_DIR/stubs.log"
case "\$*" in
*get_site_survey*) cat "$RUN_DIR/stubs/site_survey.txt" ;;
esac
EOF
    cat >"$bin/reboot" <<EOF
#!/bin/sh
# Stand-in for reboot: records its arguments and does nothing else.
echo "reboot \$*" >>"$RUN_DIR/stubs.log"
EOF
    chmod 755 "$bin/iwpriv" "$bin/reboot"
}

prepare_run_dir() {
    local build_dir="$1"
    [ -f "$build_dir/mod_korvex.so" ] || die "$build_dir/mod_korvex.so is missing: build first"
    [ -f "$build_dir/platform/libkorvex_platform.so" ] || die "$build_dir/platform/libkorvex_platform.so is missing"
    mkdir -p "$RUN_DIR"/{bus,logs,run,tmp,htdocs,lib,pids,stubs,nvram-sections}
    rm -f "$RUN_DIR"/logs/*
    if [ "$SANITIZE" = 1 ]; then
        # Written by the server's account and by ours; reports of an earlier run go away.
        rm -rf "$RUN_DIR/sanitizer"
        mkdir -p "$RUN_DIR/sanitizer"
        chmod 1777 "$RUN_DIR/sanitizer"
    fi
    chmod 755 "$RUN_DIR" "$RUN_DIR"/{bus,logs,run,htdocs,lib,stubs}
    chmod 1777 "$RUN_DIR/tmp"
    # Copies keep the server independent of where the tree lives (it may be hidden under
    # the server's private /tmp, or unreadable for the server's account).
    cp "$build_dir/mod_korvex.so" "$build_dir/platform/libkorvex_platform.so" "$RUN_DIR/lib/"
    chmod 644 "$RUN_DIR"/lib/*
    fill_template "$SOURCE_DIR/conf/httpd.conf.in" "$RUN_DIR/httpd.conf"
    fill_template "$SOURCE_DIR/conf/bus.conf.in" "$RUN_DIR/bus.conf"
    printf '<html><body><h1>korvex gateway</h1><p>run %s</p></body></html>\n' \
        "$(basename "$RUN_DIR")" >"$RUN_DIR/htdocs/index.html"
    printf 'static file behind a foreign handler\n' >"$RUN_DIR/htdocs/foreign.cgi"
    : >"$RUN_DIR/stubs.log"
    chmod 666 "$RUN_DIR/stubs.log"
    write_stand_ins
    cp "$SOURCE_DIR/conf/site_survey.txt" "$RUN_DIR/stubs/site_survey.txt"
    chmod 644 "$RUN_DIR/stubs/site_survey.txt"
    if [ "$ISOLATION" = namespaces ]; then
        chown "$SERVER_ACCOUNT:$SERVER_ACCOUNT" "$RUN_DIR"/{logs,run,nvram-sections,stubs.log}
    fi
}

# Directories in the server's private /tmp that must exist before it starts (for example
# one that takes the name of a file the server wants to create).
make_tmp_dirs() { # NAME...
    local name
    for name in "$@"; do
        [[ "$name" =~ ^[A-Za-z0-9._-]+$ ]] || die "bad --tmp-dir name: $name"
        [ "$ISOLATION" = namespaces ] || die "--tmp-dir needs isolation (the server would share the host's /tmp)"
        mkdir -p "$RUN_DIR/tmp/$name"
    done
}

env_line() { # KEY VALUE
    if [[ "$2" =~ ^[A-Za-z0-9_./:=,+@-]*$ ]]; then
        echo "$1=$2"
    else
        printf '%s=%q\n' "$1" "$2"
    fi
}

write_env() {
    local server_user tmp_dir
    if [ "$ISOLATION" = namespaces ]; then
        server_user="$SERVER_ACCOUNT"
        tmp_dir="$RUN_DIR/tmp"
    else
        server_user="$(id -un)"
        tmp_dir=/tmp
    fi
    {
        env_line RUN_DIR "$RUN_DIR"
        env_line PORT "$PORT"
        env_line MPM "$MPM"
        env_line LOG_LEVEL "$LOG_LEVEL"
        env_line SANITIZE "$SANITIZE"
        env_line ISOLATION "$ISOLATION"
        env_line SERVER_USER "$server_user"
        env_line SERVER_TMP "$tmp_dir"
        env_line BUS_ADDRESS "unix:path=$RUN_DIR/bus/socket"
        env_line ERROR_LOG "$RUN_DIR/logs/error.log"
        env_line ACCESS_LOG "$RUN_DIR/logs/access.log"
        env_line STUB_LOG "$RUN_DIR/stubs.log"
        env_line NVRAM_FILE "$RUN_DIR/nvram.conf"
        env_line NVRAM_DIR "$RUN_DIR/nvram-sections"
        env_line SERVER_PID "$(live_pid server || true)"
        env_line BUS_PID "$(live_pid bus || true)"
        env_line SIM_PID "$(live_pid sim || true)"
    } >"$RUN_DIR/env.tmp"
    mv "$RUN_DIR/env.tmp" "$RUN_DIR/env"
}

load_env() {
    [ -f "$RUN_DIR/env" ] || die "$RUN_DIR/env is missing: was 'up' run?"
    PORT="$(sed -n 's/^PORT=//p' "$RUN_DIR/env")"
    MPM="$(sed -n 's/^MPM=//p' "$RUN_DIR/env")"
    LOG_LEVEL="$(sed -n 's/^LOG_LEVEL=//p' "$RUN_DIR/env")"
    SANITIZE="$(sed -n 's/^SANITIZE=//p' "$RUN_DIR/env")"
    SANITIZE="${SANITIZE:-0}"
    ISOLATION="$(sed -n 's/^ISOLATION=//p' "$RUN_DIR/env")"
    BUILD_DIR="$(cat "$RUN_DIR/build_dir")"
}

# --- bus and simulator ------------------------------------------------------------------

# await_path TEST PATH RECORD LOG MESSAGE: waits (bounded) until [ TEST PATH ] holds while
# the process of RECORD runs; otherwise shows the tail of LOG and dies with MESSAGE.
await_path() {
    local test="$1" path="$2" record="$3" log="$4" message="$5"
    local deadline=$((SECONDS + WAIT_SECONDS))
    until [ "$test" "$path" ]; do
        if ! is_running "$record" || [ "$SECONDS" -ge "$deadline" ]; then
            log_tail "$log"
            die "$message"
        fi
        sleep 0.05
    done
}

start_bus() {
    local socket="$RUN_DIR/bus/socket"
    is_running bus && die "the bus of $RUN_DIR already runs"
    rm -f "$socket"
    # A background job of a script is no group leader, so setsid execs without forking.
    setsid dbus-daemon --config-file "$RUN_DIR/bus.conf" --nofork --print-address \
        </dev/null >>"$RUN_DIR/logs/bus.log" 2>&1 &
    record_pid bus "$!"
    await_path -S "$socket" bus "$RUN_DIR/logs/bus.log" "dbus-daemon did not create $socket"
}

start_sim() {
    local sim="$BUILD_DIR/sim/korvex-gateway-sim" ready="$RUN_DIR/sim.ready"
    [ -x "$sim" ] || die "$sim is missing: build first"
    is_running sim && die "the simulator of $RUN_DIR already runs"
    rm -f "$ready"
    local -a sim_env=(env "DBUS_SYSTEM_BUS_ADDRESS=unix:path=$RUN_DIR/bus/socket")
    if [ "$SANITIZE" = 1 ]; then
        local line
        while read -r line; do sim_env+=("$line"); done < <(sanitizer_env sim)
    fi
    setsid "${sim_env[@]}" "$sim" \
        --nvram-file "$RUN_DIR/nvram.conf" \
        --nvram-defaults "$SOURCE_DIR/sim/nvram_defaults.conf" \
        --ready-file "$ready" </dev/null >>"$RUN_DIR/logs/sim.log" 2>&1 &
    record_pid sim "$!"
    await_path -e "$ready" sim "$RUN_DIR/logs/sim.log" "the simulator did not become ready (no $ready)"
}

bus_start() {
    start_bus
    start_sim
    write_env
}

sim_stop() {
    stop_record sim 10
    write_env
}

sim_start() {
    is_running bus || die "the bus of $RUN_DIR does not run"
    start_sim
    write_env
}

bus_stop() {
    stop_record sim 10
    stop_record bus 10
    write_env
}

# --- server -----------------------------------------------------------------------------

start_server() {
    local -a server_env=(env "DBUS_SYSTEM_BUS_ADDRESS=unix:path=$RUN_DIR/bus/socket"
        "KORVEX_LOG_LEVEL=$LOG_LEVEL" "KORVEX_NVRAM_DIR=$RUN_DIR/nvram-sections"
        "PATH=$RUN_DIR/bin:$PATH" "LD_LIBRARY_PATH=$RUN_DIR/lib")
    # The server program itself; in sanitizer mode only it (not the launchers in front of
    # it) gets the preloaded runtime.
    local -a server_cmd=("$APACHE_BIN")
    if [ "$SANITIZE" = 1 ]; then
        local line preload
        preload="$(sanitizer_preload)" || exit 1
        while read -r line; do server_env+=("$line"); done < <(sanitizer_env server)
        server_cmd=(env "LD_PRELOAD=$preload" "$APACHE_BIN")
    fi
    local stderr_log="$RUN_DIR/logs/httpd.stderr"
    if [ "$ISOLATION" = namespaces ]; then
        # Own pid, mount, UTS and IPC namespaces: a private /tmp, host name and /proc.
        # --kill-child ends the namespace if the launcher itself is killed.
        # shellcheck disable=SC2016 # expanded by the inner shell
        setsid "${server_env[@]}" unshare --pid --fork --kill-child --mount-proc --mount --uts --ipc \
            --propagation private sh -c 'run_dir="$1" account="$2" && shift 2 &&
                mount --bind "$run_dir/tmp" /tmp &&
                exec setpriv --reuid="$account" --regid="$account" --init-groups \
                    --inh-caps=+sys_admin --ambient-caps=+sys_admin \
                    "$@" -f "$run_dir/httpd.conf" -D FOREGROUND' \
            sh "$RUN_DIR" "$SERVER_ACCOUNT" "${server_cmd[@]}" </dev/null >>"$stderr_log" 2>&1 &
        record_pid launcher "$!"
        local init
        init="$(first_child "$!")" || {
            log_tail "$stderr_log"
            die "the server namespace did not start"
        }
        record_pid server "$init"
    else
        setsid "${server_env[@]}" "${server_cmd[@]}" -f "$RUN_DIR/httpd.conf" -D FOREGROUND \
            </dev/null >>"$stderr_log" 2>&1 &
        record_pid server "$!"
    fi
    wait_for_server
}

wait_for_server() {
    local deadline=$((SECONDS + WAIT_SECONDS)) index
    index="$(cat "$RUN_DIR/htdocs/index.html")"
    while [ "$SECONDS" -lt "$deadline" ]; do
        if ! is_running server; then
            log_tail "$RUN_DIR/logs/httpd.stderr"
            log_tail "$RUN_DIR/logs/error.log"
            if grep -q 'Address already in use' "$RUN_DIR/logs/httpd.stderr" "$RUN_DIR/logs/error.log" 2>/dev/null; then
                echo "gateway.sh: port $PORT is in use" >&2
                exit 3
            fi
            die "the server exited during start-up"
        fi
        # Our own index page proves it is this server that answers on the port.
        if [ "$(curl -s --noproxy '*' --max-time 2 "http://127.0.0.1:$PORT/" 2>/dev/null || true)" = "$index" ]; then
            return 0
        fi
        sleep 0.1
    done
    log_tail "$RUN_DIR/logs/error.log"
    die "the server did not answer on 127.0.0.1:$PORT within ${WAIT_SECONDS}s"
}

stop_server() {
    local pid
    pid="$(live_pid server)" || pid=""
    stop_record server 15
    if [ "${ISOLATION:-}" = namespaces ]; then
        # The namespace ends with its first process; the launcher follows.
        stop_record launcher 5
    elif [ -n "$pid" ]; then
        # Without namespaces, children of a killed server linger in its process group.
        kill -KILL -- "-$pid" 2>/dev/null || true
    fi
}

# --- stand-in processes -----------------------------------------------------------------

spawn() { # NAME
    local name="$1" pid
    [ -n "$name" ] || die "spawn needs a name"
    # shellcheck disable=SC2016 # expanded by the inner shell
    local -a sleeper=(bash -c 'exec -a "$0" sleep 86400' "$name")
    if [ "$ISOLATION" = namespaces ]; then
        local init
        init="$(live_pid server)" || die "the server does not run"
        setsid nsenter --target "$init" --pid --mount -- "${sleeper[@]}" </dev/null >/dev/null 2>&1 &
        local nsenter_pid=$!
        pid="$(first_child "$nsenter_pid")" || die "spawn of $name failed"
    else
        setsid "${sleeper[@]}" </dev/null >/dev/null 2>&1 &
        pid=$!
    fi
    # Wait for the exec so the server sees the name, not "bash".
    local deadline=$((SECONDS + 10))
    until [ "$(tr '\0' '\n' <"/proc/$pid/cmdline" 2>/dev/null | head -n 1)" = "$name" ]; do
        [ "$SECONDS" -lt "$deadline" ] || die "spawn of $name did not start"
        sleep 0.02
    done
    record_pid "spawned-$pid" "$pid"
    echo "$pid"
}

unspawn() { # ID
    [[ "$1" =~ ^[0-9]+$ ]] || die "bad id: $1"
    [ -f "$RUN_DIR/pids/spawned-$1" ] || die "no process $1 was spawned in $RUN_DIR"
    stop_record "spawned-$1" 5
}

stop_spawned() {
    local file
    for file in "$RUN_DIR"/pids/spawned-*; do
        [ -e "$file" ] || continue
        stop_record "$(basename "$file")" 5
    done
}

server_hostname() {
    if [ "$ISOLATION" = namespaces ]; then
        local init
        init="$(live_pid server)" || die "the server does not run"
        nsenter --target "$init" --uts cat /proc/sys/kernel/hostname
    else
        cat /proc/sys/kernel/hostname
    fi
}

# --- up, down, watch --------------------------------------------------------------------

up() {
    PORT=8080 MPM=prefork LOG_LEVEL=2 BUILD_DIR="${KORVEX_BUILD_DIR:-$SOURCE_DIR/build}"
    local with_bus=1 owner=""
    local -a tmp_dirs=()
    while [ $# -gt 0 ]; do
        case "$1" in
        --port) PORT="$2"; shift 2 ;;
        --mpm) MPM="$2"; shift 2 ;;
        --no-bus) with_bus=0; shift ;;
        --log-level) LOG_LEVEL="$2"; shift 2 ;;
        --owner-pid) owner="$2"; shift 2 ;;
        --build-dir) BUILD_DIR="$2"; shift 2 ;;
        --tmp-dir) tmp_dirs+=("$2"); shift 2 ;;
        --sanitize) SANITIZE=1; shift ;;
        *) die "unknown option $1" ;;
        esac
    done
    case "$MPM" in prefork | worker | event) ;; *) die "unknown MPM $MPM" ;; esac
    case "$SANITIZE" in 0 | 1) ;; *) die "KORVEX_SANITIZE must be 0 or 1" ;; esac
    [[ "$PORT" =~ ^[0-9]+$ ]] || die "bad port $PORT"
    BUILD_DIR="$(cd "$BUILD_DIR" && pwd)" || die "no build directory"
    case "$RUN_DIR" in /tmp | /tmp/*) die "RUN_DIR must not be under /tmp (the server gets a private /tmp)" ;; esac
    if use_isolation; then ISOLATION=namespaces; else ISOLATION=none; fi
    if is_running server || is_running bus; then die "$RUN_DIR already runs a gateway"; fi
    mkdir -p "$RUN_DIR"

    prepare_run_dir "$BUILD_DIR"
    make_tmp_dirs "${tmp_dirs[@]+"${tmp_dirs[@]}"}"
    echo "$BUILD_DIR" >"$RUN_DIR/build_dir"
    write_env
    # Whatever fails from here on, nothing stays behind.
    trap 'down' EXIT
    trap 'exit 1' INT TERM
    if [ -n "$owner" ]; then
        record_pid owner "$owner"
        setsid bash "$SCRIPT" watch "$RUN_DIR" </dev/null >>"$RUN_DIR/logs/watcher.log" 2>&1 &
        record_pid watcher "$!"
    fi
    if [ "$with_bus" = 1 ]; then
        start_bus
        start_sim
    fi
    start_server
    trap - EXIT INT TERM
    write_env
}

down() {
    [ -d "$RUN_DIR/pids" ] || return 0
    if [ -f "$RUN_DIR/env" ] && [ -z "${ISOLATION:-}" ]; then load_env; fi
    local watcher
    if watcher="$(live_pid watcher)" && [ "$watcher" != "$$" ]; then
        kill -TERM -- "-$watcher" 2>/dev/null || true
    fi
    rm -f "$RUN_DIR/pids/watcher"
    stop_spawned
    stop_server
    stop_record sim 10
    stop_record bus 10
    rm -f "$RUN_DIR/pids/owner" "$RUN_DIR/bus/socket"
    collect_ubsan_reports
}

# Runs detached; stops the gateway once the process that asked for it is gone.
watch() {
    while is_running owner; do sleep 1; done
    is_running server || is_running bus || return 0
    echo "gateway.sh: owner of $RUN_DIR is gone, stopping" >&2
    down
}

main() {
    [ $# -ge 2 ] || { usage >&2; exit 2; }
    local command="$1"
    RUN_DIR="$2"
    shift 2
    [ "${RUN_DIR#/}" != "$RUN_DIR" ] || RUN_DIR="$PWD/$RUN_DIR"
    case "$command" in
    up) up "$@" ;;
    down) down ;;
    bus-stop) load_env; bus_stop ;;
    bus-start) load_env; bus_start ;;
    sim-stop) load_env; sim_stop ;;
    sim-start) load_env; sim_start ;;
    sim-restart) load_env; sim_stop; sim_start ;;
    spawn) load_env; spawn "${1:-}" ;;
    unspawn) load_env; unspawn "${1:-}" ;;
    hostname) load_env; server_hostname ;;
    watch) watch ;;
    *) usage >&2; exit 2 ;;
    esac
}

main "$@"
