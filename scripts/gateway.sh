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
  up RUN_DIR [--port N|auto] [--first-port N] [--mpm prefork|worker|event] [--no-bus]
             [--log-level LEVEL] [--owner-pid PID] [--build-dir DIR] [--module FILE]
             [--tmp-dir NAME]... [--sanitize]
                        start bus, simulator and server; return once the server answers
                        (--port auto: a free port, reserved while the server lives,
                        and another one when the server finds it taken; --first-port:
                        with auto, the port tried first, without checking for listeners;
                        --log-level: the module's level, 1-6 or an Apache level name,
                        default notice; --module: the mod_korvex.so to load, default
                        the build directory's (the tests load BUILD_DIR/fault-hooks/
                        mod_korvex.so, which has the test-only fault hooks);
                        --tmp-dir: a directory NAME in the server's
                        private /tmp, made before the server starts; isolation only;
                        --sanitize: as KORVEX_SANITIZE=1, the server runs with the ASan
                        runtime preloaded and every sanitizer report lands in
                        RUN_DIR/sanitizer/)
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

# Process records, the sanitizer mode, the server and the stand-in processes live in
# files of their own (scripts/gateway/).
# shellcheck source=gateway/log_level.sh
source "$SOURCE_DIR/scripts/gateway/log_level.sh"
# shellcheck source=gateway/process_records.sh
source "$SOURCE_DIR/scripts/gateway/process_records.sh"
# shellcheck source=gateway/sanitizer.sh
source "$SOURCE_DIR/scripts/gateway/sanitizer.sh"
# shellcheck source=gateway/server.sh
source "$SOURCE_DIR/scripts/gateway/server.sh"
# shellcheck source=gateway/ports.sh
source "$SOURCE_DIR/scripts/gateway/ports.sh"
# shellcheck source=gateway/stand_ins.sh
source "$SOURCE_DIR/scripts/gateway/stand_ins.sh"

# --- run directory ---------------------------------------------------------------------

fill_template() { # TEMPLATE OUTPUT
    local text
    text="$(cat "$1")"
    text="${text//@RUN_DIR@/$RUN_DIR}"
    text="${text//@PORT@/$PORT}"
    text="${text//@MPM@/$MPM}"
    text="${text//@LOG_LEVEL@/$LOG_LEVEL}"
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
    local build_dir="$1" module="$2"
    [ -f "$module" ] || die "$module is missing: build first"
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
    cp "$module" "$RUN_DIR/lib/mod_korvex.so"
    cp "$build_dir/platform/libkorvex_platform.so" "$RUN_DIR/lib/"
    chmod 644 "$RUN_DIR"/lib/*
    fill_template "$SOURCE_DIR/conf/bus.conf.in" "$RUN_DIR/bus.conf"
    printf '<html><body><h1>korvex gateway</h1><p>run %s</p></body></html>\n' \
        "$(basename "$RUN_DIR")" >"$RUN_DIR/htdocs/index.html"
    printf 'static file behind a foreign handler\n' >"$RUN_DIR/htdocs/foreign.cgi"
    : >"$RUN_DIR/stubs.log"
    chmod 666 "$RUN_DIR/stubs.log"
    write_stand_ins
    cp "$SOURCE_DIR/conf/site_survey.txt" "$RUN_DIR/stubs/site_survey.txt"
    chmod 644 "$RUN_DIR/stubs/site_survey.txt"
    # The developer console at /korvex-console/ (built into BUILD/console by the
    # korvex_console target; an empty folder when the build has none).
    rm -rf "$RUN_DIR/console"
    mkdir -p "$RUN_DIR/console"
    if [ -d "$build_dir/console" ]; then cp "$build_dir"/console/* "$RUN_DIR/console/"; fi
    cp "$SOURCE_DIR/conf/apache/korvex-console.conf" "$RUN_DIR/korvex-console.conf"
    chmod 755 "$RUN_DIR/console"
    chmod 644 "$RUN_DIR/korvex-console.conf" "$RUN_DIR"/console/* 2>/dev/null || true
    if [ "$ISOLATION" = namespaces ]; then
        chown "$SERVER_ACCOUNT:$SERVER_ACCOUNT" "$RUN_DIR"/{logs,run,nvram-sections,stubs.log}
    fi
}

# The server's configuration, for the port it is about to be started on.
write_httpd_conf() {
    fill_template "$SOURCE_DIR/conf/httpd.conf.in" "$RUN_DIR/httpd.conf"
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
        # The lock that reserves the port for this gateway's server (scripts/gateway/ports.sh).
        if [[ "$PORT" =~ ^[0-9]+$ ]]; then env_line PORT_LOCK "$(port_lock_file "$PORT")"; fi
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

# --- up, down, watch --------------------------------------------------------------------

up() {
    PORT=8080 MPM=prefork LOG_LEVEL=notice BUILD_DIR="${KORVEX_BUILD_DIR:-$SOURCE_DIR/build}"
    local with_bus=1 owner="" first_port="" module=""
    local -a tmp_dirs=()
    while [ $# -gt 0 ]; do
        case "$1" in
        --port) PORT="$2"; shift 2 ;;
        --first-port) first_port="$2"; shift 2 ;;
        --mpm) MPM="$2"; shift 2 ;;
        --no-bus) with_bus=0; shift ;;
        --log-level) LOG_LEVEL="$2"; shift 2 ;;
        --owner-pid) owner="$2"; shift 2 ;;
        --build-dir) BUILD_DIR="$2"; shift 2 ;;
        --module) module="$2"; shift 2 ;;
        --tmp-dir) tmp_dirs+=("$2"); shift 2 ;;
        --sanitize) SANITIZE=1; shift ;;
        *) die "unknown option $1" ;;
        esac
    done
    case "$MPM" in prefork | worker | event) ;; *) die "unknown MPM $MPM" ;; esac
    case "$SANITIZE" in 0 | 1) ;; *) die "KORVEX_SANITIZE must be 0 or 1" ;; esac
    LOG_LEVEL="$(apache_log_level "$LOG_LEVEL")" || die "bad log level (1-6 or an Apache level name)"
    [[ "$PORT" =~ ^([0-9]+|auto)$ ]] || die "bad port $PORT"
    [[ "$first_port" =~ ^[0-9]*$ ]] || die "bad first port $first_port"
    [ -z "$first_port" ] || [ "$PORT" = auto ] || die "--first-port needs --port auto"
    BUILD_DIR="$(cd "$BUILD_DIR" && pwd)" || die "no build directory"
    case "$RUN_DIR" in /tmp | /tmp/*) die "RUN_DIR must not be under /tmp (the server gets a private /tmp)" ;; esac
    if use_isolation; then ISOLATION=namespaces; else ISOLATION=none; fi
    if is_running server || is_running bus; then die "$RUN_DIR already runs a gateway"; fi
    mkdir -p "$RUN_DIR"

    prepare_run_dir "$BUILD_DIR" "${module:-$BUILD_DIR/mod_korvex.so}"
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
    # The port's lock is inherited by the server: it stays reserved while the server lives.
    serve_on_port "$PORT" "$first_port" write_httpd_conf
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
