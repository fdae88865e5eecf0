#!/usr/bin/env bash
# Unpacks the target's headers and libraries into a sysroot:
#   scripts/cross-sysroot.sh ARCH DIR
# The packages are fetched with "apt-get download PKG:ARCH" (ARCH must be a dpkg foreign
# architecture: scripts/install-cross-deps.sh) and extracted with dpkg-deb, never
# installed: apache2-dev and the libraries' -dev packages cannot sit next to the host's.
# The C library and libstdc++ come from the cross toolchain (/usr/<triplet>), not from here.
# DIR/.complete records the package list; a sysroot with the same list is kept.
set -euo pipefail

arch="${1:?usage: cross-sysroot.sh ARCH DIR}"
dir="${2:?usage: cross-sysroot.sh ARCH DIR}"

# Headers and link libraries of the build, then every shared library those load (LDAP
# because apr-util's pkg-config entry links it).
packages=(apache2-dev libapr1-dev libaprutil1-dev libdbus-1-dev libjansson-dev libgtest-dev
    libapr1 libaprutil1 libdbus-1-3 libjansson4
    libuuid1 libcrypt1 libdb5.3 libexpat1 libgdbm6 libssl3
    libsystemd0 libcap2 libgcrypt20 libgpg-error0 liblz4-1 liblzma5 libzstd1
    libldap-dev libldap-2.5-0 libsasl2-2 libgnutls30 libp11-kit0 libidn2-0 libunistring2
    libtasn1-6 libnettle8 libhogweed6 libgmp10 libffi8)

stamp="$dir/.complete"
wanted="$arch ${packages[*]}"
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$wanted" ]; then
    exit 0
fi

rm -rf "$dir"
mkdir -p "$dir/debs"
chmod 777 "$dir/debs" # apt downloads as its own unprivileged user
(cd "$dir/debs" && apt-get download -q "${packages[@]/%/:$arch}") >"$dir/download.log" 2>&1 ||
    { cat "$dir/download.log" >&2; echo "cross-sysroot: download failed" >&2; exit 1; }
for deb in "$dir"/debs/*.deb; do
    dpkg-deb -x "$deb" "$dir"
done
rm -rf "$dir/debs"
# Links that name an absolute path (libdbus-1.so -> /lib/...) would lead to the host.
find "$dir" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -sfn "$dir$(readlink "$link")" "$link"
done
echo "$wanted" >"$stamp"
