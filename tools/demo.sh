#!/usr/bin/env bash
# Creates a sample card under BUILD/demo/ and starts the console on it.
set -eu
build=${1:-build}
demo=$build/demo
mkdir -p "$demo/media"
image=$demo/card.img
if [ ! -f "$image" ]; then
  truncate -s 256M "$image"
fi
echo "Sample card: $image (media directory $demo/media)"
echo "Try: maintain TrellisHead | maintain recIndexFileHead | maintain | exit"
TRELLIS_DEVICE=$image TRELLIS_MEDIA_DIR=$demo/media exec "$build/trellis-maintain"
