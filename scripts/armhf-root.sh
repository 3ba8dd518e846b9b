#!/bin/sh
# Unpacks Debian's armhf packages of the libraries the program and its tests link into the directory
# given ($1), for cross-building and for running under qemu-arm. Unpacked rather than installed with
# dpkg's multiarch: that needs each shared library at the same version for both architectures, which
# fails whenever the host has an update that the armhf index has not (or cannot fetch). Needs armhf in
# apt's lists (`dpkg --add-architecture armhf && apt-get update`); runs as any user.
set -e
ROOT=$1
TOP_PACKAGES="libpng-dev libtiff-dev libcairo2-dev libpango1.0-dev libfreetype-dev libfontconfig-dev libgtest-dev"
# Architecture-independent headers those need, and the JSON library (headers only).
COMMON_PACKAGES="nlohmann-json3-dev libeigen3-dev x11proto-dev x11proto-core-dev x11proto-render-dev xtrans-dev"

# The libraries with everything they depend on; the C library's headers and objects come with the cross
# compiler, and tools (dpkg, perl) are not needed.
armhf_packages() {
    apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks --no-replaces \
        --no-enhances $(for p in $TOP_PACKAGES; do echo "$p:armhf"; done) |
        sed -n 's/^\(\(lib\|gir1\.2-\|zlib\|uuid\)[^ ]*\):armhf$/\1/p' |
        grep -vx 'libc6-dev\|libc-dev-bin\|libcrypt-dev\|libnsl-dev\|libtirpc-dev' | sort -u
}

list=$(armhf_packages)
stamp="$ROOT/.packages"
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "$list" ] && exit 0
[ -n "$list" ] || { echo "apt knows no armhf packages: run as root: dpkg --add-architecture armhf && apt-get update"; exit 1; }
debs="$ROOT.debs"
rm -rf "$ROOT" "$debs"
mkdir -p "$ROOT" "$debs"
echo "Unpacking $(echo "$list" | wc -l) armhf packages into $ROOT"
(cd "$debs" && apt-get download -q $(for p in $list; do echo "$p:armhf"; done) $COMMON_PACKAGES >/dev/null)
for deb in "$debs"/*.deb; do dpkg-deb -x "$deb" "$ROOT"; done
# qemu-arm looks a path up in the tree first: the host's font configuration and fonts serve (they are
# the same for any architecture), and the 32-bit font caches stay in the tree.
rm -rf "$ROOT/etc/fonts" "$ROOT/usr/share/fonts"
mkdir -p "$ROOT/var/cache/fontconfig"
rm -rf "$debs"
echo "$list" >"$stamp"
