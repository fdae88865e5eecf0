# shellcheck shell=bash
# Sourced by scripts/package/installed_gateway.sh; uses its
# globals (PORT, ...), die, and start_server / stop_server of scripts/gateway/server.sh.

# --- ports ------------------------------------------------------------------------------
#
# A port belongs to one private server from the moment it is chosen until the last of the
# server's processes is gone: PORT_LOCK_DIR/PORT.lock is flock'ed on a descriptor that the
# server inherits, so the lock lasts exactly as long as the server (nothing has to remove
# it, and a killed gateway frees its port with its last process). Every script that starts
# a server takes the lock before it looks at the port, so two gateways never choose the same
# one. A program outside these scripts may still take a port between the check and the
# server's bind; the server then fails with "Address already in use" and serve_on_port starts
# it again on another port.

PORT_LOCK_DIR="${KORVEX_PORT_LOCK_DIR:-/var/tmp/korvex-ports}"
# Below Linux's default range of ephemeral ports (32768-60999), so that the local port of a
# client's connection never takes the port of a server about to start.
PORT_RANGE="${KORVEX_PORT_RANGE:-20000-32767}"
# Start-ups of one server that may find their port taken before it gives up.
PORT_ATTEMPTS=8
PORT_LOCK_FD=""

port_lock_file() { # PORT
    echo "$PORT_LOCK_DIR/$1.lock"
}

# Takes the lock of PORT on a new descriptor (PORT_LOCK_FD), which every process started
# from now on inherits; fails when another gateway holds it.
reserve_port() { # PORT
    local file
    file="$(port_lock_file "$1")"
    release_port
    if [ ! -d "$PORT_LOCK_DIR" ]; then
        mkdir -p "$PORT_LOCK_DIR"
        # Shared by the gateways of every account.
        chmod 1777 "$PORT_LOCK_DIR" 2>/dev/null || true
    fi
    if [ ! -e "$file" ]; then
        : >>"$file" || die "cannot create $file"
        chmod 666 "$file" 2>/dev/null || true
    fi
    # Read-only is enough for flock, and works on a lock file of another account.
    exec {PORT_LOCK_FD}<"$file"
    flock -n "$PORT_LOCK_FD" && return 0
    release_port
    return 1
}

# Closes this shell's descriptor of the lock; a server that inherited it keeps the port.
release_port() {
    [ -n "$PORT_LOCK_FD" ] || return 0
    exec {PORT_LOCK_FD}<&-
    PORT_LOCK_FD=""
}

# True when a socket can bind to 127.0.0.1:PORT as the server's does (SO_REUSEADDR): nothing
# listens on the port, on that address or on all of them.
port_is_free() { # PORT
    if command -v python3 >/dev/null; then
        python3 -c 'import socket, sys
s = socket.socket()
s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", int(sys.argv[1])))' "$1" 2>/dev/null
    else
        [ -z "$(ss -Hltn "sport = :$1" 2>/dev/null)" ]
    fi
}

# The one way a free port is chosen: a port of PORT_RANGE that no other gateway holds and
# nothing listens on, reserved (reserve_port) and left in PORT. FIRST, when given, is tried
# first and without the bind check, so that the server's own bind decides: a test hook for
# a port taken behind the check's back.
reserve_free_port() { # [FIRST]
    local low="${PORT_RANGE%-*}" high="${PORT_RANGE#*-}" candidate tries
    if [ -n "${1:-}" ] && reserve_port "$1"; then
        PORT="$1"
        return 0
    fi
    for ((tries = 0; tries < 500; tries++)); do
        candidate=$((low + (RANDOM * 32768 + RANDOM) % (high - low + 1)))
        reserve_port "$candidate" || continue
        if port_is_free "$candidate"; then
            PORT="$candidate"
            return 0
        fi
        release_port
    done
    return 1
}

# Starts the server (start_server) on a reserved port; WRITE_CONF [ARGS...] runs first to
# write the server's configuration for PORT. REQUESTED is a port, or "auto" for a free one
# (reserve_free_port, FIRST as there; "" for none). Whatever stage a start-up fails at, when
# the server's logs say that the address was in use (start_server exits with status 3) an
# "auto" start goes on with another port, up to PORT_ATTEMPTS times; a requested port that
# is taken, or reserved by another gateway, ends the script with status 3. Any other failure
# ends it with the failure's status. Returns with PORT set and its lock held.
serve_on_port() { # REQUESTED FIRST WRITE_CONF [ARGS...]
    local requested="$1" first="$2" attempt status
    shift 2
    for ((attempt = 1; attempt <= PORT_ATTEMPTS; attempt++)); do
        if [ "$requested" = auto ]; then
            reserve_free_port "$first" || die "no free port in $PORT_RANGE"
            first=""
        else
            PORT="$requested"
            if ! reserve_port "$PORT"; then
                echo "$(basename "$0"): port $PORT is reserved by another gateway" >&2
                exit 3
            fi
        fi
        "$@"
        # In a subshell of its own, so that a failure ends this start-up and not the script;
        # as an asynchronous command, so that errexit holds inside it.
        status=0
        (start_server) &
        wait $! || status=$?
        [ "$status" != 0 ] || return 0
        stop_server
        release_port
        if [ "$status" != 3 ] || [ "$requested" != auto ]; then exit "$status"; fi
        echo "$(basename "$0"): trying another port" >&2
    done
    die "every one of $PORT_ATTEMPTS ports was taken before the server could bind it"
}
