#!/usr/bin/env bash
# Runs the benchmark driver on the release console; adds the armhf console's
# size when the cross compiler is installed.
set -eu
build=${1:-build}
arm=()
if command -v arm-linux-gnueabihf-g++ >/dev/null 2>&1 &&
   tools/fetch-arm-nettle.sh "$build/release-arm/nettle"; then
  cmake -S . -B "$build/release-arm" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm-linux-gnueabihf.cmake" \
    -DTRELLIS_TESTS=OFF >/dev/null
  cmake --build "$build/release-arm" --target trellis-maintain -j"$(nproc)" >/dev/null
  arm=(--arm-console "$build/release-arm/trellis-maintain")
fi
exec "$build/release/bench/trellis-bench" --console "$build/release/trellis-maintain" \
  --mkcard "$build/release/trellis-mkcard" --out "$build/bench" --runs 7 "${arm[@]}"
