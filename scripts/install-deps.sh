#!/usr/bin/env bash
# Installs the Debian packages needed to build, run and test, when any is missing.
set -euo pipefail

packages=(apache2 apache2-dev libdbus-1-dev libjansson-dev libcurl4-openssl-dev libgtest-dev
    cmake g++ make pkg-config util-linux curl clang libclang-rt-14-dev
    debhelper dpkg-dev fakeroot lintian python3 strace chromium)
# Debian 12 splits the bus daemon into its own package; older releases ship it in "dbus".
command -v dbus-daemon >/dev/null || packages+=(dbus-daemon)
# The API reference's linter and renderer and the console's browser test run on node
# (docs/api/package.json); Debian's, unless a node and npm are there already.
command -v node >/dev/null || packages+=(nodejs)
command -v npm >/dev/null || packages+=(npm)

# The suite also builds for the board (mipsel): its cross toolchain and emulator.
bash "$(dirname "${BASH_SOURCE[0]}")/install-cross-deps.sh" mipsel

# shellcheck source=lib/packages.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/packages.sh"
find_missing_packages
[ "${#missing[@]}" -eq 0 ] && exit 0

if [ "$(id -u)" != 0 ]; then
    echo "install-deps: missing packages: ${missing[*]} (run as root or install them)" >&2
    exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# Package scripts must not start a system-wide Apache on port 80.
policy=/usr/sbin/policy-rc.d
if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
    trap 'rm -f "$policy"' EXIT
fi
# A foreign architecture's index that fails to download must not stop the host's install.
apt-get update -q || echo "install-deps: apt-get update reported errors, going on" >&2
if ! apt-get install -y -q --no-install-recommends "${missing[@]}"; then
    [[ " ${missing[*]} " == *" dbus-daemon "* ]] || exit 1
    # A release without the split package.
    apt-get install -y -q --no-install-recommends "${missing[@]/#dbus-daemon/dbus}"
fi
