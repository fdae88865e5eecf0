#!/usr/bin/env bash
# The API reference's tools, pinned in docs/api/package.json and package-lock.json:
#   api-docs.sh install              npm ci into docs/api/node_modules (when missing or stale)
#   api-docs.sh lint SPEC            @redocly/cli lint of the OpenAPI document
#   api-docs.sh html SPEC OUT.html   @redocly/cli build-docs, then the viewer inlined (no CDN)
# Exits 77 when node or npm is missing (a test then skips); scripts/install-deps.sh installs them.
set -euo pipefail

source_dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
tools="$source_dir/docs/api"

if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
    echo "api-docs: node and npm are needed (scripts/install-deps.sh installs Debian's nodejs and npm)" >&2
    exit 77
fi

install_tools() {
    # One installation at a time: tests running in parallel share the folder.
    exec 9>"$tools/.npm-install.lock"
    flock 9
    local stamp="$tools/node_modules/.korvex-lock-copy"
    if [ ! -f "$stamp" ] || ! cmp -s "$stamp" "$tools/package-lock.json"; then
        (cd "$tools" && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error) >&2
        cp "$tools/package-lock.json" "$stamp"
    fi
    flock -u 9
}

redocly() {
    "$tools/node_modules/.bin/redocly" "$@"
}

case "${1:-}" in
install)
    install_tools
    ;;
lint)
    [ $# -eq 2 ] || { echo "usage: $0 lint SPEC" >&2; exit 2; }
    install_tools
    # The recommended rules; any error or warning fails.
    redocly lint --format=stylish --max-problems=200 "$2" 2>&1 | tee "$2.lint.log"
    if grep -qE '(error|warning) ' "$2.lint.log"; then
        echo "api-docs: the linter reported problems" >&2
        exit 1
    fi
    ;;
html)
    [ $# -eq 3 ] || { echo "usage: $0 html SPEC OUT.html" >&2; exit 2; }
    install_tools
    redocly build-docs "$2" --disableGoogleFont --title "Korvex gateway web API" -o "$3.tmp" >&2
    python3 "$tools/inline_redoc.py" "$3.tmp" "$tools/node_modules/redoc/bundles/redoc.standalone.js"
    mv "$3.tmp" "$3"
    echo "api-docs: $3 ($(stat -c %s "$3") bytes)"
    ;;
*)
    echo "usage: $0 install | lint SPEC | html SPEC OUT.html" >&2
    exit 2
    ;;
esac
