// The whole-card commands that run beside the console: the inventory
// (--list), what the card holds, and the check (--check), what is wrong
// with it. Both read the device named by the platform (TRELLIS_DEVICE or
// -d) and the data files of the media directory, go through every index
// record in large sequential reads with memory that does not grow with the
// card, and print a report on standard output: text lines, or JSON Lines.
#ifndef TRELLIS_CHECK_CHECK_H_
#define TRELLIS_CHECK_CHECK_H_

#include <string>

#include "format/index_files.h"
#include "format/segment_filter.h"

namespace tr {

// The console line that prints the record at a place ("maintain
// recBackUpDataFileInfo 3 2"), "" for none: the command table's answer,
// which lies above the check.
using CommandNamer = std::string (*)(const RecordPlace& place);

struct CheckSettings {
  bool json = false;  // JSON Lines instead of text
  // Adds to each problem the command that shows its record, when set.
  CommandNamer commandFor = nullptr;
  SegmentFilter filter;  // what --list lists
};

// Exit statuses of both commands.
constexpr int kCardClean = 0;       // no problem found, or all listed
constexpr int kCardProblems = 1;    // problems found, or a part not listed
constexpr int kCardUnreadable = 2;  // the device could not be read
constexpr int kCardUsage = 2;       // the filters cannot be applied

// One line per data file in use (or marked invalid or full) and then one
// per segment in use, of the record and the picture index file, and a
// total line for each. The backups are left to the check.
int runInventory(const CheckSettings& settings);
// Every problem of the storage head and the four index files, one line
// each, then a summary line.
int runCheck(const CheckSettings& settings);

}  // namespace tr

#endif  // TRELLIS_CHECK_CHECK_H_
