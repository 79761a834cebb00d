#!/bin/sh
# Fails when a file includes a header of a folder above its own. The folders
# layer bottom up: base, format, extract and check (side by side), repair
# above check (a repair follows the check),
# export above extract, report above check, maintain, console. The programs built beside the console (mkcard, bench)
# stand on format; a test may include what the folder it tests may, and its
# support, which the fuzz harnesses share.
# Usage: tools/check-layers.sh [SOURCE_DIR]
cd "${1:-$(dirname "$0")/..}" || exit 2

allowed() {
  case "$1" in
    base) echo "base" ;;
    format) echo "base format" ;;
    extract) echo "base format extract" ;;
    repair) echo "base format check repair" ;;
    check) echo "base format check" ;;
    export) echo "base format extract export" ;;
    maintain) echo "base format extract repair check maintain" ;;
    report) echo "base format check report" ;;
    console) echo "base format extract repair check export report maintain console" ;;
    mkcard) echo "base format mkcard" ;;
    bench) echo "base format bench" ;;
    fuzz) echo "base format extract repair check export report maintain console fuzz tests" ;;
    support) echo "base format tests" ;;
    *) return 1 ;;
  esac
}

status=0
for file in $(find base format extract repair check export report maintain console mkcard bench \
                   fuzz tests -name '*.cc' -o -name '*.h' | sort); do
  folder=${file%%/*}
  [ "$folder" = tests ] && folder=$(echo "$file" | cut -d/ -f2)
  own=$(allowed "$folder") || continue
  [ "${file%%/*}" = tests ] && own="$own tests"
  for target in $(sed -n 's|^#include "\([a-z_]*\)/.*|\1|p' "$file" | sort -u); do
    case " $own " in
      *" $target "*) ;;
      *) echo "$file includes $target/, above its own layer"; status=1 ;;
    esac
  done
done
exit $status
