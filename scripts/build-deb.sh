#!/usr/bin/env bash
# Builds the Debian packages from the working tree into OUT_DIR (default build-deb/) and
# runs lintian on them. The tree is copied first because dpkg-buildpackage writes its
# results next to the source directory. See docs/packaging.md.
#   build-deb.sh [--if-stale] [OUT_DIR]     --if-stale: only when OUT_DIR has no module
#                                           package or a file of the tree is newer than it
set -euo pipefail

SOURCE_DIR="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if_stale=0
if [ "${1:-}" = --if-stale ]; then
    if_stale=1
    shift
fi
OUT_DIR="${1:-$SOURCE_DIR/build-deb}"
JOBS="${KORVEX_DEB_JOBS:-2}"

mkdir -p "$OUT_DIR"
OUT_DIR="$(cd "$OUT_DIR" && pwd)"

# True when OUT_DIR has no module package or a file of the tree changed after it was built.
packages_stale() {
    local deb
    # shellcheck disable=SC2012 # the package names have no odd characters
    deb="$(ls -t "$OUT_DIR"/libapache2-mod-korvex_*.deb 2>/dev/null | head -n 1)"
    [ -n "$deb" ] || return 0
    # shellcheck disable=SC2016 # expanded by the inner shell
    [ -n "$(cd "$SOURCE_DIR" && git ls-files -z --cached --others --exclude-standard |
        xargs -0 -r sh -c 'for f; do [ ! -e "$f" ] || [ ! "$f" -nt "$0" ] || echo "$f"; done' "$deb" |
        head -n 1)" ]
}
if [ "$if_stale" = 1 ] && ! packages_stale; then
    exit 0
fi
echo "build-deb: building the packages into $OUT_DIR"
src="$OUT_DIR/src"
rm -rf "$src" "$OUT_DIR"/*.deb "$OUT_DIR"/*.changes "$OUT_DIR"/*.buildinfo
mkdir -p "$src"
# shellcheck disable=SC2016 # expanded by the inner shell
# Tracked and new files of the working tree, without build directories or git data.
(cd "$SOURCE_DIR" && git ls-files -z --cached --others --exclude-standard |
    xargs -0 -r sh -c 'for f; do [ -e "$f" ] && printf "%s\0" "$f"; done' sh |
    tar --null -T - -cf -) | tar -xf - -C "$src"

# The API reference: the OpenAPI document and its HTML rendering (npm tools of
# docs/api/package.json, installed in the working tree), which the package installs under
# /usr/share/doc/libapache2-mod-korvex/. Made here because the package build fetches nothing.
version="$(sed -n '1s/^[^(]*(\([0-9.]*\).*/\1/p' "$SOURCE_DIR/debian/changelog")"
mkdir -p "$src/docs/api/dist"
python3 "$SOURCE_DIR/docs/api/openapi.py" "$SOURCE_DIR/registry/commands.json" "$version" \
    "$src/docs/api/dist/korvex-api.openapi.json"
bash "$SOURCE_DIR/scripts/api-docs.sh" html "$src/docs/api/dist/korvex-api.openapi.json" \
    "$src/docs/api/dist/korvex-api.html" || {
    [ $? -eq 77 ] && echo "build-deb: node and npm are needed for the HTML reference" >&2
    exit 1
}

(cd "$src" && DEB_BUILD_OPTIONS="parallel=$JOBS" dpkg-buildpackage -b -us -uc) >"$OUT_DIR/build.log" 2>&1 || {
    tail -n 60 "$OUT_DIR/build.log" >&2
    echo "build-deb: dpkg-buildpackage failed (log: $OUT_DIR/build.log)" >&2
    exit 1
}
changes="$(ls "$OUT_DIR"/*.changes)"
# Errors fail the build; warnings and notes are shown.
lintian --fail-on error --info "$changes" | tee "$OUT_DIR/lintian.log"
ls -l "$OUT_DIR"/*.deb
