# shellcheck shell=bash
# Sourced by scripts/gateway.sh; uses its globals (RUN_DIR, SANITIZE, ...).

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
