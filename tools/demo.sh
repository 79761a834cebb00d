#!/usr/bin/env bash
# Builds a sample card under BUILD/demo/ with trellis-mkcard (a 1 GiB sparse
# image and its media directory, recordings that started an hour ago) and
# starts the console on it. The console ends at `exit` or at the end of its
# input, so `make demo < /dev/null` runs it through and exits 0.
set -eu
build=${1:-build}
demo=$build/demo
for program in trellis-mkcard trellis-maintain; do
  if [ ! -x "$build/$program" ]; then
    echo "demo: $build/$program is missing; run 'make' first" >&2
    exit 1
  fi
done

rm -rf -- "$demo"
mkdir -p -- "$demo"
"$build/trellis-mkcard" --size 1G --time $(( $(date +%s) - 3600 )) \
  --sample "$demo/media" "$demo/card.img"

cat <<EOF

Commands worth trying at the prompt ('maintain' alone lists all 38):
  maintain TrellisHead                the storage head at byte 51200
  maintain recIndexFileHead           the record index file's header
  maintain picBackUpIndexFileHead     a backup marked abnormal: magic word in red
  maintain recDataFileHead 1          a full data file, read-only (yellow)
  maintain recDataFileInfo 2 3        an incomplete segment
  maintain recDataFileInfo 2 4        a segment not in use
  maintain recDataFileInfo 3 2        a dataOffset with a flipped bit...
  maintain recBackUpDataFileInfo 3 2  ...and the right one in the backup
  maintain recIFrameInfo 1 1          the I-frame table of a segment
  maintain recIndexFileAux 1 1        an auxiliary context and its positions
  maintain picDataFileInfo 1 2        three alarm pictures
  maintain onePic 1 2 1               saves $demo/media/00001_0002_01.jpg
  exit

The whole card at once, after the console (or instead of it):
  $build/trellis-maintain -d $demo/card.img -m $demo/media --check
  $build/trellis-maintain -d $demo/card.img -m $demo/media --list

EOF
exec "$build/trellis-maintain" -d "$demo/card.img" -m "$demo/media"
