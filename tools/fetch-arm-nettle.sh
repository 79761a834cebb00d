#!/bin/sh
# Puts nettle for the recorder (libnettle.a and its headers, from Debian's
# nettle-dev for armhf) under DEST, where the ARM build looks for it. The
# package is only downloaded and unpacked, never installed: an installed
# armhf package would bring a C library other than the cross toolchain's,
# which the emulator would then load. Needs armhf among dpkg's
# architectures and its package lists:
#   dpkg --add-architecture armhf && apt-get update
# Usage: tools/fetch-arm-nettle.sh DEST
set -eu
dest=${1:?usage: tools/fetch-arm-nettle.sh DEST}
[ -f "$dest/usr/lib/arm-linux-gnueabihf/libnettle.a" ] && exit 0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if ! (cd "$work" && apt-get download nettle-dev:armhf >/dev/null 2>&1); then
  echo "fetch-arm-nettle: cannot download nettle-dev:armhf; add the" >&2
  echo "architecture and its lists first: dpkg --add-architecture armhf &&" >&2
  echo "apt-get update" >&2
  exit 1
fi
mkdir -p "$dest"
dpkg-deb -x "$work"/nettle-dev_*_armhf.deb "$dest"
