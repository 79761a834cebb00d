#include "repair/restore.h"

#include <cstdint>
#include <iterator>
#include <map>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "repair/journal.h"

namespace tr {
namespace {

enum class Outcome { kRestored, kSkipped, kChanged, kFailed };

std::string describe(const JournalRecord& record) {
  return formatString("record %u (%s, %s): %zu bytes at %llu", record.number,
                      record.time.c_str(), record.command.c_str(),
                      record.after.size(),
                      static_cast<unsigned long long>(record.offset));
}

int refuse(const std::string& path, const std::string& why) {
  err("restore: undo journal %s: %s; nothing restored\n",
      escapedText(path, kLineEscaped).c_str(), why.c_str());
  return -1;
}

// The first byte where the device differs from what the record wrote.
void reportChanged(const JournalRecord& record, const std::string& found) {
  size_t at = 0;
  while (found[at] == record.after[at]) ++at;
  err("%s: changed since: byte %llu (offset + %zu) holds 0x%02x, the "
      "journal expects 0x%02x; not restored\n",
      describe(record).c_str(),
      static_cast<unsigned long long>(record.offset + at), at,
      static_cast<unsigned char>(found[at]),
      static_cast<unsigned char>(record.after[at]));
}

// A dry run writes nothing, yet each record must meet the device as the
// newer records would have left it: what they would have written is kept
// here, as ranges that never overlap (the older record's bytes replacing
// the newer's, as the replay would), and laid over what is read. Only a dry
// run keeps it; a restore holds one record at a time.
using Overlay = std::map<uint64_t, std::string>;

// The first range that ends after `offset`.
Overlay::iterator firstAfter(Overlay* overlay, uint64_t offset) {
  auto it = overlay->upper_bound(offset);
  if (it != overlay->begin()) {
    auto before = std::prev(it);
    if (before->first + before->second.size() > offset) return before;
  }
  return it;
}

void layOver(Overlay* overlay, uint64_t offset, std::string* found) {
  const uint64_t end = offset + found->size();
  for (auto it = firstAfter(overlay, offset);
       it != overlay->end() && it->first < end; ++it) {
    for (size_t i = 0; i < it->second.size(); ++i) {
      const uint64_t at = it->first + i;
      if (at >= offset && at < end) (*found)[at - offset] = it->second[i];
    }
  }
}

void keepWrite(Overlay* overlay, uint64_t offset, const std::string& bytes) {
  const uint64_t end = offset + bytes.size();
  for (auto it = firstAfter(overlay, offset);
       it != overlay->end() && it->first < end;) {
    const uint64_t start = it->first;
    const std::string old = std::move(it->second);
    it = overlay->erase(it);
    if (start < offset) overlay->emplace(start, old.substr(0, offset - start));
    if (start + old.size() > end) {
      it = overlay->emplace(end, old.substr(end - start)).first;
    }
  }
  (*overlay)[offset] = bytes;
}

// One record against the open device; a dry run notes in `overlay` what it
// would write. kFailed: the device routines have reported and closed the
// device.
Outcome replay(int fd, const JournalRecord& record, bool dryRun,
               Overlay* overlay) {
  std::string found(record.after.size(), '\0');
  if (_tr_maintainReadDevice(fd, record.offset, &found[0], found.size(),
                             nullptr, kReadSeekTitle, true) == -1) {
    return Outcome::kFailed;
  }
  if (dryRun) layOver(overlay, record.offset, &found);
  if (found == record.before) {
    out("%s: already holds its old bytes; skipped\n", describe(record).c_str());
    return Outcome::kSkipped;
  }
  // A write that stopped part way left the start of its bytes and the old
  // ones after them: what the console wrote too.
  size_t written = 0;
  while (written < found.size() && found[written] == record.after[written]) {
    ++written;
  }
  if (found.compare(written, std::string::npos, record.before, written,
                    std::string::npos) != 0) {
    reportChanged(record, found);
    return Outcome::kChanged;
  }
  if (dryRun) {
    keepWrite(overlay, record.offset, record.before);
  } else if (_tr_maintainWriteDevice(fd, record.offset, record.before.data(),
                                     record.before.size(), true) == -1) {
    return Outcome::kFailed;
  }
  out("%s: %s%s\n", describe(record).c_str(),
      dryRun ? "would be restored" : "restored",
      written < found.size()
          ? formatString(" (its write had stopped after %zu bytes)", written)
                .c_str()
          : "");
  return Outcome::kRestored;
}

// A descriptor closed at scope end.
struct Held {
  int fd;
  ~Held() {
    if (fd != -1) sys.close(fd);
  }
};

}  // namespace

int restoreJournal(const std::string& path, const RestoreOptions& options) {
  std::string error;
  const Held journal{openJournalToRead(path, &error)};
  if (journal.fd == -1) return refuse(path, error);
  if (readOnly() && !options.dryRun) {
    reportReadOnly("restore");
    return -1;
  }
  // Like a writing command, the replay holds the device locked for itself
  // (the read-write open takes the lock) and is not cut short by Ctrl-C.
  const SignalsHeld held;
  const int fd = _tr_maintainOpenDevice(
      options.dryRun ? DeviceMode::kReadOnly : DeviceMode::kReadWrite);
  if (fd == -1) return -1;
  uint64_t size = 0;
  if (measureDevice(fd, &size) == -1) return -1;
  JournalScan scan;
  if (scanJournal(journal.fd, size, &scan, &error) == -1) {
    _tr_maintainCloseDevice(fd, false);
    return refuse(path, error);
  }
  if (scan.tornTail) {
    err("undo journal %s: the incomplete record at its end (from byte %llu) "
        "is ignored\n",
        escapedText(path, kLineEscaped).c_str(),
        static_cast<unsigned long long>(scan.wholeLength));
  }
  size_t counts[3] = {0, 0, 0};  // restored, skipped, changed
  Overlay overlay;
  uint64_t end = scan.wholeLength;
  for (uint32_t number = scan.records; number >= 1; --number) {
    JournalRecord record;
    uint64_t start = 0;
    if (readJournalRecordBefore(journal.fd, end, number, &record, &start,
                                &error) == -1) {
      _tr_maintainCloseDevice(fd, false);
      return refuse(path, error);
    }
    end = start;
    const Outcome outcome = replay(fd, record, options.dryRun, &overlay);
    if (outcome == Outcome::kFailed) return -1;
    ++counts[static_cast<int>(outcome)];
    if (outcome == Outcome::kChanged && !options.force) {
      err("restore stopped at record %u: it and every older record are left "
          "as they are (--force restores the others)\n",
          number);
      break;
    }
  }
  if (_tr_maintainCloseDevice(fd, true) == -1) return -1;
  out("%zu %s, %zu skipped, %zu changed since\n", counts[0],
      options.dryRun ? "would be restored" : "restored", counts[1], counts[2]);
  return counts[2] == 0 ? 0 : -1;
}

}  // namespace tr
