#!/usr/bin/env bash
# Plants one-line faults in the programs, one at a time, and runs the host
# suite against each: a fault that every test lets pass is a hole in the
# tests. Each fault is a slip a developer could make: a bound off by one,
# a check or a flush dropped, the wrong descriptor, a 64-bit value cut to
# 32 bits. Not part of `make test`: run it by hand after changing tests or
# the code the faults sit in (it rebuilds and reruns the suite per fault).
#
# Usage: tools/plant-faults.sh [-n] [BUILD_DIR] [NAME_REGEX]
#   -n  only check that every fault's text stands once in its file
# Exit status: 0 when every fault planted was caught, 1 when one was not,
# 2 when a fault could not be planted or did not build.
set -u
cd "$(dirname "$0")/.." || exit 2
dry=0
[ "${1:-}" = "-n" ] && { dry=1; shift; }
build=${1:-build}
only=${2:-.}
jobs=$(nproc 2>/dev/null || echo 2)

# name @@ file @@ text as it stands @@ what it becomes
faults=$(cat <<'EOF'
write-index-at-bound @@ check/record_checks.cc @@ head.writeFileIndex[c] <= head.maxFileNum @@ head.writeFileIndex[c] < head.maxFileNum
position-at-bound @@ format/aux_context.cc @@ position.segmentNum <= head.maxSegmentNum @@ position.segmentNum < head.maxSegmentNum
crc-tables-swapped @@ repair/journal_text.cc @@ crc = kCrc.t[3][crc & 0xFF] ^ kCrc.t[2][(crc >> 8) & 0xFF] ^ @@ crc = kCrc.t[2][crc & 0xFF] ^ kCrc.t[3][(crc >> 8) & 0xFF] ^
journal-of-smaller-device @@ repair/journal_read.cc @@ record.deviceSize != deviceSize @@ record.deviceSize > deviceSize
journal-not-flushed @@ repair/journal.cc @@ sys.fsync(gJournal.fd) != 0 @@ false
journal-lock-on-device @@ repair/journal.cc @@ sys.flock(fd, LOCK_EX | LOCK_NB) @@ sys.flock(deviceFd, LOCK_EX | LOCK_NB)
device-lock-shared @@ base/device.cc @@ sys.flock(fd, LOCK_EX | LOCK_NB) @@ sys.flock(fd, LOCK_SH | LOCK_NB)
read-only-when-set @@ console/console.cc @@ setReadOnly(readOnlyText == "1") @@ setReadOnly(!readOnlyText.empty())
torn-record-kept @@ repair/journal.cc @@ sys.ftruncate(fd, static_cast<int64_t>(scan.wholeLength)) != 0 @@ false
inventory-unclamped @@ format/segment_facts.cc @@ const int pictures = pictureCount(info); @@ const int pictures = info.validNum;
backup-count-unchecked @@ check/check.cc @@ &&
        backup->inUse == primary->inUse; @@ ;
differences-uncounted @@ check/record_fields.cc @@ if (differing > kShownDifferences) { @@ if (false) {
segment-index-one-off @@ format/index_layout.cc @@ const uint32_t segmentIndex = segmentNum - 1; @@ const uint32_t segmentIndex = segmentNum;
aux-region-misplaced @@ format/index_layout.cc @@ return idxFileSize + base - kAuxRegionSize; @@ return idxFileSize + base - kAuxRegionSize + kAuxHeadSize;
context-without-head @@ format/index_layout.cc @@ return auxHeadOffset(base, idxFileSize, auxNum) + kAuxHeadSize + @@ return auxHeadOffset(base, idxFileSize, auxNum) +
index-file-halved @@ format/device_layout.cc @@ head.idxFileSize = indexArea >> 2; @@ head.idxFileSize = indexArea >> 1;
offset-cut-to-32-bits @@ format/index_layout.cc @@ uint64_t{fileIndex} * dataFileBlockSize(kind, maxSegmentNum) @@ static_cast<uint32_t>(fileIndex * dataFileBlockSize(kind, maxSegmentNum))
megabytes-from-one @@ base/output.cc @@ if (bytes > 1048576) { @@ if (bytes >= 1048576) {
zone-sign-lost @@ base/output.cc @@ seconds < 0 && hours == 0 @@ seconds < 0 && hours == 1
time-high-half-used @@ base/output.cc @@ const time_t low = static_cast<int32_t>(static_cast<uint32_t>(seconds)); @@ const time_t low = static_cast<time_t>(seconds);
dump-rows-of-eight @@ base/output.cc @@ if (i % 16 == 0) { @@ if (i % 8 == 0) {
delete-byte-raw @@ base/output.cc @@ byte < 0x20 || byte == 0x7f || @@ byte < 0x20 ||
kilohertz-at-1000 @@ format/rec_data_file_info.cc @@ if (hertz < 1000) @@ if (hertz <= 1000)
masks-past-nul @@ format/rec_data_file_info.cc @@ const size_t used = strnlen(info.flag, sizeof info.flag); @@ const size_t used = sizeof info.flag;
picture-start-one-more @@ format/jpg_data_file_info.cc @@ for (int i = 0; i < index && i < kMaxImageDetails; ++i) { @@ for (int i = 0; i <= index && i < kMaxImageDetails; ++i) {
pictures-unclamped @@ format/jpg_data_file_info.h @@ return info.validNum < kMaxImageDetails ? info.validNum : kMaxImageDetails; @@ return info.validNum;
number-zero-admitted @@ format/index_file_head.cc @@ if (value >= 1 && value <= bound) return true; @@ if (value <= bound) return true;
aux-past-region @@ format/aux_context.cc @@ auxNumBound(header.maxAuxNumber)) || @@ header.maxAuxNumber) ||
iframe-part-entry @@ format/iframe_index.cc @@ static_cast<uint32_t>(info->iFrameInfoSize / sizeof(tr_IFrameIndex)); @@ static_cast<uint32_t>((info->iFrameInfoSize + 31) / sizeof(tr_IFrameIndex));
short-source-kept @@ extract/segment_extract.cc @@ if (copy.remaining != 0) { @@ if (copy.remaining != 0 && copy.end != CopyEnd::kEndOfFile) {
picture-at-fragment-end @@ extract/picture_extract.cc @@ if (before + size > info->fragmentSize) { @@ if (before + size >= info->fragmentSize) {
picture-zero-admitted @@ extract/picture_extract.cc @@ if (picNum == 0 || picNum > last) { @@ if (picNum > last) {
output-follows-links @@ extract/output_file.cc @@ O_WRONLY | O_NOFOLLOW | O_NONBLOCK @@ O_WRONLY | O_NONBLOCK
output-over-source @@ extract/output_file.cc @@ sameFile(st_, sourceSt)) { @@ false) {
switch-on-small-card @@ repair/aux_switch.cc @@ if (trellisHead.idxFileSize < kAuxRegionSize) return 0; @@ 
restore-rewrites-restored @@ repair/restore.cc @@ if (found == record.before) { @@ if (false) {
restore-past-change @@ repair/restore.cc @@ if (outcome == Outcome::kChanged && !options.force) { @@ if (outcome == Outcome::kChanged && options.force) {
unchanged-fields-shown @@ repair/change_lines.cc @@ if (before == after) continue; @@ 
long-line-not-failed @@ console/console.cc @@ if (source.refused()) failed = true; @@ 
json-without-mode @@ console/options.cc @@ if (options->json && @@ if (false &&
repair-unsafe-as-safe @@ repair/card_repair.cc @@ fix->safe = finding.passes != finding.twinPasses; @@ fix->safe = true;
mark-despite-differences @@ repair/card_repair.cc @@ if (finding.unequal > 0) { @@ if (false) {
mark-beside-abnormal-twin @@ repair/card_repair.cc @@ if (!finding.twinNormal) { @@ if (false) {
repair-all-fixed-as-some @@ repair/card_repair.cc @@ if (left == 0) return kRepairAllFixed; @@ if (left == 0) return kRepairSomeFixed;
repair-device-not-flushed @@ repair/record_writer.cc @@ if (sys.fsync(fd) != 0) { @@ if (false) {
restore-torn-write-refused @@ repair/restore.cc @@ while (written < found.size() && found[written] == record.after[written]) { @@ while (false) {
repair-usage-abbreviated @@ console/options.cc @@ word.size() >= 6 && @@ word.size() >= 7 &&
typed-line-whole @@ console/console.cc @@ std::max<size_t>(size, 2) - 1) @@ std::max<size_t>(size, 2))
completion-files-not-in-use @@ console/completion.cc @@ if (dataHead.inUse != 0) found.push_back(f); @@ found.push_back(f);
unjournalled-warned-always @@ repair/journal.cc @@ gWarnUnjournalled = false;
    err( @@ err(
html-less-than-raw @@ report/html.cc @@ html += "&lt;"; @@ html += "<";
walk-head-taken-as-info @@ format/segment_walk.cc @@ if (reader->take(kDataFileHeadSize) == nullptr) return !reader->failed(); @@ if (false) return !reader->failed();
walk-takes-unused @@ format/segment_walk.cc @@ if (segmentInUse(info) && !visit(f, s, info)) return true; @@ if (!visit(f, s, info)) return true;
report-cut-short-inverted @@ report/timeline.cc @@ if (cutShort) columns[last].cutShort = true; @@ if (!cutShort) columns[last].cutShort = true;
typo-case-sensitive @@ maintain/command_words.cc @@ std::tolower(static_cast<unsigned char>(a[i - 1])) == @@ static_cast<unsigned char>(a[i - 1]) ==
number-wraps @@ maintain/dispatch.cc @@ if (value > INT_MAX) return INT_MAX; @@ 
tab-not-separator @@ console/line_parser.cc @@ return c == '\0' || c == ' ' || c == '\t' ? 1 : 0; @@ return c == '\0' || c == ' ' ? 1 : 0;
extent-at-end @@ check/record_checks.cc @@ sizes->size(where.file->kind, where.first, &size) && end > size @@ sizes->size(where.file->kind, where.first, &size) && end >= size
backup-unchecked @@ check/check.cc @@ check(backupPlace, b); @@ 
descriptor-zero-kept @@ base/device.cc @@ if (fd > 0) { @@ if (fd >= 0) {
data-file-any-kind @@ base/stream.cc @@ if (examined && !S_ISREG(st.st_mode)) { @@ if (false) {
writer-not-held @@ maintain/dispatch.cc @@ const SignalsHeld held; @@ 
command-without-numbers @@ maintain/dispatch.cc @@ for (int i = 0; i < argumentsOf(row.args).count && i < 2; ++i) { @@ for (int i = 0; i < 0; ++i) {
sample-flip-both @@ mkcard/sample_content.cc @@ if (!file.def->backup && fileNum == plan_.flippedRecFile && @@ if (fileNum == plan_.flippedRecFile &&
EOF
)

status=0
results=""
report() { results+=$(printf '%-28s %s' "$1" "$2")$'\n'; }
# One entry per fault: a line that starts "<name> @@ " opens it, and its
# text may run on over the lines after it.
entries() {
  printf '%s\n' "$faults" | perl -0777 -ne '
    for (split /\n(?=\S+ @@ )/) {
      my @f = split / ?@@ ?/, $_, 4;
      s/\n\z// for @f;
      print join("\0", @f), "\0";
    }'
}
while IFS= read -r -d '' name && IFS= read -r -d '' file &&
      IFS= read -r -d '' FAULT_FROM && IFS= read -r -d '' FAULT_TO; do
  export FAULT_FROM FAULT_TO
  [[ $name =~ $only ]] || continue
  count=$(perl -0ne '$n = () = /\Q$ENV{FAULT_FROM}\E/g; print $n' "$file" 2>/dev/null)
  if [ "$count" != 1 ]; then
    report "$name" "NOT PLANTED: its text stands ${count:-0} times in $file"
    status=2
    continue
  fi
  [ $dry = 1 ] && { report "$name" "found in $file"; continue; }
  cp -p "$file" "$file.unfaulted"
  perl -0pi -e 's/\Q$ENV{FAULT_FROM}\E/$ENV{FAULT_TO}/' "$file"
  if ! cmake --build "$build" -j"$jobs" </dev/null >"$build/fault.log" 2>&1; then
    report "$name" "DOES NOT BUILD ($file)"
    status=2
  elif ctest --test-dir "$build" -j"$jobs" --stop-on-failure --timeout 300 \
         </dev/null >"$build/fault.log" 2>&1; then
    report "$name" "SURVIVED every test ($file)"
    [ $status = 0 ] && status=1
  else
    caught=$(grep -m1 -E '\*\*\*(Failed|Timeout|Exception)' "$build/fault.log" |
             sed -E 's/^.*Test +#[0-9]+: ([^ ]+).*$/\1/')
    report "$name" "caught by ${caught:-the suite}"
  fi
  mv "$file.unfaulted" "$file"
  touch "$file"
done < <(entries)
[ $dry = 1 ] || cmake --build "$build" -j"$jobs" >/dev/null 2>&1
printf '%s' "$results"
exit $status
