#include "repair/restore.h"

#include <cstdint>
#include <vector>

#include "base/device.h"
#include "base/journal.h"
#include "base/output.h"
#include "base/platform.h"

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
      escapeControlBytes(path).c_str(), why.c_str());
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
// newer records would have left it: their writes are kept here and laid
// over what is read.
struct Overlay {
  uint64_t offset;
  std::string bytes;
};

void layOver(const std::vector<Overlay>& writes, uint64_t offset,
             std::string* found) {
  for (const Overlay& write : writes) {
    for (size_t i = 0; i < write.bytes.size(); ++i) {
      const uint64_t at = write.offset + i;
      if (at >= offset && at - offset < found->size()) {
        (*found)[at - offset] = write.bytes[i];
      }
    }
  }
}

// One record against the open device; a dry run notes in `overlay` what it
// would write. kFailed: the device routines have reported and closed the
// device.
Outcome replay(int fd, const JournalRecord& record, bool dryRun,
               std::vector<Overlay>* overlay) {
  std::string found(record.after.size(), '\0');
  if (_tr_maintainReadDevice(fd, record.offset, &found[0], found.size(),
                             nullptr, kReadSeekTitle, true) == -1) {
    return Outcome::kFailed;
  }
  layOver(*overlay, record.offset, &found);
  if (found == record.before) {
    out("%s: already holds its old bytes; skipped\n",
        describe(record).c_str());
    return Outcome::kSkipped;
  }
  if (found != record.after) {
    reportChanged(record, found);
    return Outcome::kChanged;
  }
  if (dryRun) {
    overlay->push_back({record.offset, record.before});
  } else if (_tr_maintainWriteDevice(fd, record.offset, record.before.data(),
                                     record.before.size(), true) == -1) {
    return Outcome::kFailed;
  }
  out("%s: %s\n", describe(record).c_str(),
      dryRun ? "would be restored" : "restored");
  return Outcome::kRestored;
}

// Whether every record was made on a device of the size the open one has.
// -1 after the report, the device closed.
int checkDeviceSize(int fd, const std::string& path,
                    const JournalContents& contents) {
  uint64_t size = 0;
  if (measureDevice(fd, &size) == -1) return -1;
  std::string why;
  if (checkJournalDevice(contents, size, &why) == 0) return 0;
  _tr_maintainCloseDevice(fd, false);
  return refuse(path, why);
}

}  // namespace

int restoreJournal(const std::string& path, const RestoreOptions& options) {
  JournalContents contents;
  std::string error;
  if (readJournalFile(path, &contents, &error) == -1) return refuse(path, error);
  if (contents.tornTail) {
    err("undo journal %s: the incomplete record at its end (from byte %zu) "
        "is ignored\n",
        escapeControlBytes(path).c_str(), contents.wholeLength);
  }
  if (readOnly() && !options.dryRun) {
    reportReadOnly("restore");
    return -1;
  }
  // Like a writing command, the replay holds the device locked for itself
  // (the read-write open takes the lock) and is not cut short by Ctrl-C.
  const SignalsHeld held;
  const int fd = _tr_maintainOpenDevice(options.dryRun ? DeviceMode::kReadOnly
                                                       : DeviceMode::kReadWrite);
  if (fd == -1) return -1;
  if (checkDeviceSize(fd, path, contents) == -1) return -1;
  size_t counts[3] = {0, 0, 0};  // restored, skipped, changed
  std::vector<Overlay> overlay;
  for (auto it = contents.records.rbegin(); it != contents.records.rend();
       ++it) {
    const Outcome outcome = replay(fd, *it, options.dryRun, &overlay);
    if (outcome == Outcome::kFailed) return -1;
    ++counts[static_cast<int>(outcome)];
    if (outcome == Outcome::kChanged && !options.force) {
      err("restore stopped at record %u: it and every older record are left "
          "as they are (--force restores the others)\n",
          it->number);
      break;
    }
  }
  if (_tr_maintainCloseDevice(fd, true) == -1) return -1;
  out("%zu %s, %zu skipped, %zu changed since\n", counts[0],
      options.dryRun ? "would be restored" : "restored", counts[1], counts[2]);
  return counts[2] == 0 ? 0 : -1;
}

}  // namespace tr
