#!/bin/sh
# Renders a card report as a browser shows it, into a PNG, with Debian's
# chromium run headless (no JavaScript is needed: the report has none):
#   tools/render-report.sh REPORT.html OUT.png
# Exit status 127 when chromium is not installed.
set -eu
if ! command -v chromium >/dev/null 2>&1; then
  echo "chromium is not installed (apt-get install chromium)" >&2
  exit 127
fi
html=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
# A profile of its own, and no sandbox: CI runs as root.
HOME=$home chromium --headless --no-sandbox --disable-gpu --hide-scrollbars \
  --disable-javascript --user-data-dir="$home/profile" --window-size=1000,1250 \
  --screenshot="$2" "file://$html" >/dev/null 2>&1
test -s "$2"
