# shellcheck shell=bash
# Sourced by scripts/package/installed_gateway.sh; uses its globals (RUN_DIR, SANITIZE, ...).

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
            echo "package-test: $1 ($pid) ignored SIGTERM, killing it" >&2
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
