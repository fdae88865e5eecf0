#!/usr/bin/env bash
# Installs what a build for the board needs on the host, when any is missing:
#   scripts/install-cross-deps.sh ARCH      (ARCH: mipsel or armhf)
# Debian's cross toolchain for ARCH and the user-mode emulator that runs its unit tests.
# ARCH is added as a foreign dpkg architecture so that apt can fetch the target's
# libraries; scripts/cross-sysroot.sh unpacks those into the build tree rather than
# installing them next to the host's, whose versions they would have to match.
set -euo pipefail

arch="${1:?usage: install-cross-deps.sh mipsel|armhf}"
case "$arch" in
    mipsel | armhf) ;;
    *) echo "install-cross-deps: unknown ARCH '$arch' (mipsel or armhf)" >&2; exit 2 ;;
esac

packages=("crossbuild-essential-$arch" qemu-user-static)

# shellcheck source=lib/packages.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/packages.sh"
find_missing_packages
known=0
dpkg --print-foreign-architectures | grep -qx "$arch" && known=1
[ "${#missing[@]}" -eq 0 ] && [ "$known" -eq 1 ] && exit 0

if [ "$(id -u)" != 0 ]; then
    echo "install-cross-deps: needs root to add architecture $arch and install: ${missing[*]}" >&2
    exit 1
fi

export DEBIAN_FRONTEND=noninteractive
[ "$known" -eq 1 ] || dpkg --add-architecture "$arch"
# An index of one architecture that fails to download (a mirror mid-sync) must not stop
# the install: the packages below are checked for themselves.
apt-get update -q || echo "install-cross-deps: apt-get update reported errors, going on" >&2
if [ "${#missing[@]}" -gt 0 ]; then
    echo "install-cross-deps: installing ${missing[*]}"
    apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
