# shellcheck shell=bash
# Sourced by scripts/package/installed_gateway.sh; uses its
# globals (RUN_DIR, PORT, SANITIZE, ...). Started through serve_on_port (ports.sh), which
# reserves the port first.

# --- server -----------------------------------------------------------------------------

# Where this start-up's lines begin in the server's logs (earlier start-ups in the same run
# directory wrote theirs before).
SERVER_LOGS=(httpd.stderr error.log)
declare -A SERVER_LOG_OFFSETS=()

mark_server_logs() {
    local log
    for log in "${SERVER_LOGS[@]}"; do
        SERVER_LOG_OFFSETS[$log]="$(stat -c %s "$RUN_DIR/logs/$log" 2>/dev/null || echo 0)"
    done
}

# Ends a failed start-up: with status 3 when the server's logs of this start-up say that its
# address was in use, whatever the stage it failed at; else dies with MESSAGE.
startup_failed() { # MESSAGE
    local log in_use=0
    for log in "${SERVER_LOGS[@]}"; do
        log_tail "$RUN_DIR/logs/$log"
        if [ -f "$RUN_DIR/logs/$log" ] &&
            tail -c "+$((${SERVER_LOG_OFFSETS[$log]:-0} + 1))" "$RUN_DIR/logs/$log" |
            grep -q -E 'Address already in use|\(98\)|could not bind'; then
            in_use=1
        fi
    done
    if [ "$in_use" = 1 ]; then
        echo "$(basename "$0"): port $PORT is in use ($1)" >&2
        exit 3
    fi
    die "$1"
}

start_server() {
    mark_server_logs
    local -a server_env=(env "DBUS_SYSTEM_BUS_ADDRESS=unix:path=$RUN_DIR/bus/socket"
        "KORVEX_LOG_LEVEL=$(platform_log_level "$LOG_LEVEL")" "KORVEX_NVRAM_DIR=$RUN_DIR/nvram-sections"
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
        init="$(first_child "$!")" || startup_failed "the server namespace did not start"
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
        is_running server || startup_failed "the server exited during start-up"
        # Our own index page proves it is this server that answers on the port.
        if [ "$(curl -s --noproxy '*' --max-time 2 "http://127.0.0.1:$PORT/" 2>/dev/null || true)" = "$index" ]; then
            return 0
        fi
        sleep 0.1
    done
    startup_failed "the server did not answer on 127.0.0.1:$PORT within ${WAIT_SECONDS}s"
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
