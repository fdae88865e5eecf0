#!/usr/bin/env bash
# "make run": one gateway on 127.0.0.1:$PORT until Ctrl-C (PORT=auto: on a free port).
set -euo pipefail

source_dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
gateway="$source_dir/scripts/gateway.sh"
port="${PORT:-8080}"
run_dir="${KORVEX_RUN_ROOT:-/var/tmp/korvex-runs}/make-run"

mkdir -p "$(dirname "$run_dir")"
chmod 755 "$(dirname "$run_dir")" 2>/dev/null || true
if [ -d "$run_dir" ]; then
    bash "$gateway" down "$run_dir"
    rm -rf "$run_dir"
fi

stop() {
    trap - INT TERM
    echo
    echo "Stopping the gateway..."
    bash "$gateway" down "$run_dir"
    exit "${1:-0}"
}
trap 'stop 0' INT TERM

bash "$gateway" up "$run_dir" --port "$port" --owner-pid "$$" \
    --build-dir "${KORVEX_BUILD_DIR:-$source_dir/build}" --log-level "${KORVEX_LOG_LEVEL:-notice}"
server_pid="$(sed -n 's/^SERVER_PID=//p' "$run_dir/env")"
port="$(sed -n 's/^PORT=//p' "$run_dir/env")"

log_level="$(sed -n 's/^LOG_LEVEL=//p' "$run_dir/env")"
echo "Gateway running on 127.0.0.1:$port (run directory $run_dir, error log $run_dir/logs/error.log"
echo "at LogLevel korvex:$log_level; KORVEX_LOG_LEVEL=debug make run for every request's trace)."
echo "Try:"
echo "curl 'http://127.0.0.1:$port/network.cgi?test=0'"
echo "Developer console: http://127.0.0.1:$port/korvex-console/"
echo "Press Ctrl-C to stop."

while kill -0 "$server_pid" 2>/dev/null; do
    sleep 1 &
    wait $! || true
done
echo "The server exited; see $run_dir/logs/error.log" >&2
stop 1
