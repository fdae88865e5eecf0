#!/usr/bin/env bash
# Builds mod_korvex.so, the platform library and the unit tests for the board, runs the
# unit tests under the user-mode emulator and checks the module's exports:
#   scripts/cross.sh [--build-only] ARCH [EXPORTS_TEST]      (ARCH: mipsel or armhf)
# The tree is build-cross-ARCH/ (KORVEX_CROSS_BUILD_DIR overrides it), its sysroot in
# build-cross-ARCH/sysroot. EXPORTS_TEST is the host's exports test binary
# (e2e_exports_test of the native tree), run on the cross-built module; without it the
# exports are not checked. Packages: scripts/install-cross-deps.sh ARCH.
set -euo pipefail

build_only=0
if [ "${1:-}" = --build-only ]; then
    build_only=1
    shift
fi
arch="${1:?usage: cross.sh mipsel|armhf [EXPORTS_TEST]}"
exports_test="${2:-}"
case "$arch" in
    mipsel) triplet=mipsel-linux-gnu processor=mips qemu=qemu-mipsel-static ;;
    armhf) triplet=arm-linux-gnueabihf processor=arm qemu=qemu-arm-static ;;
    *) echo "cross: unknown ARCH '$arch' (mipsel or armhf)" >&2; exit 2 ;;
esac
source_dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${KORVEX_CROSS_BUILD_DIR:-$source_dir/build-cross-$arch}"
jobs="${KORVEX_CROSS_JOBS:-2}"

for tool in "$triplet-g++" "$qemu"; do
    command -v "$tool" >/dev/null ||
        { echo "cross: $tool is missing (scripts/install-cross-deps.sh $arch installs it)" >&2; exit 1; }
done

mkdir -p "$build_dir"
build_dir="$(cd "$build_dir" && pwd)"
sysroot="$build_dir/sysroot"
step() { echo "cross($arch): $1 ($(( SECONDS - started )) s)"; }
started=$SECONDS

bash "$source_dir/scripts/cross-sysroot.sh" "$arch" "$sysroot"
step "sysroot ready"

cmake -S "$source_dir" -B "$build_dir" -DCMAKE_TOOLCHAIN_FILE="$source_dir/cmake/cross-toolchain.cmake" \
    -DKORVEX_CROSS_TRIPLET="$triplet" -DKORVEX_CROSS_PROCESSOR="$processor" \
    -DKORVEX_CROSS_SYSROOT="$sysroot" -DKORVEX_CROSS_QEMU="$(command -v "$qemu")" \
    -DAPACHE_INCLUDE_DIR="$sysroot/usr/include/apache2" -DAPACHE_MODULE_DIR=/usr/lib/apache2/modules \
    -DKORVEX_UNIT_TESTS_ONLY=ON -DKORVEX_FAULT_HOOKS=OFF >"$build_dir/configure.log" 2>&1 ||
    { cat "$build_dir/configure.log" >&2; exit 1; }
cmake --build "$build_dir" -j"$jobs" >"$build_dir/build.log" 2>&1 ||
    { tail -60 "$build_dir/build.log" >&2; exit 1; }
step "built mod_korvex.so for $("$triplet-readelf" -h "$build_dir/mod_korvex.so" | sed -n 's/^ *Machine: *//p')"
[ "$build_only" = 0 ] || exit 0

# The unit tests, each run through the emulator (CMAKE_CROSSCOMPILING_EMULATOR).
ctest --test-dir "$build_dir" --output-on-failure -L unit >"$build_dir/unit.log" 2>&1 ||
    { cat "$build_dir/unit.log" >&2; echo "cross($arch): unit tests FAILED" >&2; exit 1; }
step "unit tests passed under $qemu: $(grep -ho '\[  PASSED  \] [0-9]* tests' "$build_dir"/Testing/Temporary/LastTest.log | head -1)"

if [ -n "$exports_test" ]; then
    KORVEX_EXPORTS_MODULE="$build_dir/mod_korvex.so" KORVEX_EXPORTS_NM="$triplet-nm" \
        "$exports_test" >"$build_dir/exports.log" 2>&1 ||
        { cat "$build_dir/exports.log" >&2; echo "cross($arch): exports check FAILED" >&2; exit 1; }
    step "exports of mod_korvex.so checked"
fi
