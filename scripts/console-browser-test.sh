#!/usr/bin/env bash
# The developer console in Debian's headless chromium against a private gateway:
# tests/browser/console_test.mjs (puppeteer-core, pinned in docs/api/package.json).
# usage: console-browser-test.sh BUILD_DIR
# The screenshot and the test's files stay in BUILD_DIR/browser-artifacts/. Exits 77 (skip)
# only when node or npm is missing.
set -euo pipefail

source_dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$(cd "${1:?usage: $0 BUILD_DIR}" && pwd)"
artifacts="$build_dir/browser-artifacts"

[ -x /usr/bin/chromium ] || { echo "Debian's chromium is missing (scripts/install-deps.sh installs it)" >&2; exit 1; }
bash "$source_dir/scripts/api-docs.sh" install

run_root="${KORVEX_RUN_ROOT:-/var/tmp/korvex-runs}"
mkdir -p "$run_root"
run_dir="$(mktemp -d "$run_root/console.XXXXXX")"
chmod 755 "$run_dir"
gateway="$build_dir/sim/harness/korvex-gateway"
down() { "$gateway" down "$run_dir" >/dev/null 2>&1 || true; rm -rf "$run_dir"; }
trap down EXIT
"$gateway" up "$run_dir" --port auto --owner-pid "$$" --build-dir "$build_dir" \
    >"$run_dir.up.log" 2>&1 || { cat "$run_dir.up.log" >&2; rm -f "$run_dir.up.log"; exit 1; }
rm -f "$run_dir.up.log"
port="$(sed -n 's/^PORT=//p' "$run_dir/env")"

rm -rf "$artifacts"
mkdir -p "$artifacts"
NODE_PATH="$source_dir/docs/api/node_modules" \
    node "$source_dir/tests/browser/console_test.mjs" "http://127.0.0.1:$port" "$artifacts"
