#!/bin/sh
# Makes docs/report.png: the sample card's report, rendered.
#   tools/report-png.sh [BUILD_DIR]
set -eu
cd "$(dirname "$0")/.."
root=$PWD
build=$(cd "${1:-build}" && pwd)
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
"$build/trellis-mkcard" --size 1G --time 1709622489 --sample media card.img \
  >/dev/null
status=0
"$build/trellis-maintain" -d card.img -m media --report report.html ||
  status=$?
# The sample card has problems: status 1.
test "$status" -eq 1
"$root/tools/render-report.sh" report.html "$root/docs/report.png"
