#!/usr/bin/env bash
# Runs the test suite of a (non-sanitized) build with every program the
# end-to-end tests start (the console, the card builder) under valgrind's
# memcheck.
#
#   tools/valgrind-suite.sh <build dir> [ctest arguments...]
#
# A memcheck error or a leak of any kind makes the program end with status
# 99, which fails the test that started it. Valgrind writes to its own log
# per process, so the programs' standard error stays as the tests expect
# it; afterwards every log must be empty but for the descriptors the
# program inherited from the test: a descriptor the program opened and
# still held at its exit is a failure.
set -uo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 1 ]; then
  echo "usage: $0 <build dir> [ctest arguments...]" >&2
  exit 2
fi
build=$1
shift
if ! command -v valgrind >/dev/null 2>&1; then
  echo "valgrind is not installed (apt-get install valgrind)" >&2
  exit 2
fi

logs=$PWD/$build/valgrind-logs
rm -rf "$logs"
mkdir -p "$logs"
# Some tests run the console as an unprivileged user.
chmod 1777 "$logs"

export TRELLIS_TEST_EXEC_WRAPPER="valgrind --error-exitcode=99 \
--leak-check=full --show-leak-kinds=all --errors-for-leak-kinds=all \
--track-fds=yes -q --suppressions=$PWD/tools/valgrind.supp \
--log-file=$logs/%p.log"
# With a standard descriptor closed, valgrind's own log takes its number
# before the console starts, so that test says nothing about the console.
ctest --test-dir "$build" --output-on-failure -j"${JOBS:-2}" \
  -E 'HazardTest.ClosedStandardDescriptors' "$@"
status=$?

# What a clean log may hold: the table of descriptors open at exit, each
# of them inherited, and valgrind's note that it does not know an ioctl
# (the loop-device tools some tests start).
dirty=0
for log in "$logs"/*.log; do
  [ -e "$log" ] || continue
  if ! awk '
    { sub(/^==[0-9]+== ?/, "") }
    /^FILE DESCRIPTORS: / || /^$/ { next }
    /^Warning: noted but unhandled ioctl / { ioctl = 2; next }
    ioctl > 0 { ioctl--; next }
    /^Open (file descriptor|AF_UNIX socket) / { pending = 1; next }
    pending && /^ *<inherited from parent>$/ { pending = 0; next }
    { bad = 1 }
    END { exit bad }' "$log"; then
    echo "*** valgrind reported in $log:" >&2
    cat "$log" >&2
    dirty=1
  fi
done
count=$(ls "$logs" | wc -l)
echo "valgrind: $count program runs checked, $( [ $dirty -eq 0 ] && echo clean || echo NOT clean)"
if [ $status -ne 0 ] || [ $dirty -ne 0 ]; then exit 1; fi
