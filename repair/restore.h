// Putting a device back as an undo journal (repair/journal.h) says it was:
// the records are replayed newest first, each range getting back the bytes
// it held before its write, but only while the device still holds what that
// write put there. A range that holds something else was changed since (by
// the recorder, by another console); restoring it would destroy that change,
// so the replay stops there unless forced.
#ifndef TRELLIS_REPAIR_RESTORE_H_
#define TRELLIS_REPAIR_RESTORE_H_

#include <string>

namespace tr {

struct RestoreOptions {
  bool force = false;   // report a changed range and go on with the others
  bool dryRun = false;  // say what would be restored, write nothing
};

// Replays the journal at `path` onto deviceName, which is opened once for
// the whole replay. Each record prints one line on standard output: restored
// (or would be), or skipped because the range already holds its old bytes
// (restored before, or the console stopped between journal and device). A
// changed range is reported on standard error with the first byte that
// differs. A journal that is damaged, or was made on a device of another
// size, restores nothing.
//
// 0 when every record was restored or skipped; -1 after a changed range, a
// refusal or a device failure.
int restoreJournal(const std::string& path, const RestoreOptions& options);

}  // namespace tr

#endif  // TRELLIS_REPAIR_RESTORE_H_
