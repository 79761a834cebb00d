// The repair that follows the check (--repair): the check's walk, and for
// each of its findings one fix from a catalogue, each backed by evidence
// the card itself holds (docs/REPAIR.md):
//
//   a record whose copy in the index file and in its twin differ, when
//   exactly one copy passes every check: that copy written over the other,
//   whole (safe); when both pass, the primary (not safe: asked, or -y);
//   an index file marked abnormal whose records all equal its twin's, the
//   twin marked normal: its magic word and exception flag set to normal
//   (safe);
//   a storage head that is not the one the device's size gives, on a whole
//   device whose index files lie where that layout puts them: the fields
//   the size decides written (safe);
//   a data file head whose validSegments is not the count of its segments
//   in use: that count written (safe).
//
// Everything else is not fixable, with its reason. Every write goes
// through the undo journal the console keeps, and is made durable before
// the repair reports success.
#ifndef TRELLIS_REPAIR_CARD_REPAIR_H_
#define TRELLIS_REPAIR_CARD_REPAIR_H_

#include <string>

#include "check/check.h"

namespace tr {

enum class RepairMode {
  kAsk,      // at a terminal: "Fix? [y/N]" before each fix
  kNothing,  // -n: the device opened read-only, every fix declined
  kSafe,     // -p: the safe fixes, without asking
  kAll,      // -y: every fix, without asking
};

struct RepairSettings {
  RepairMode mode = RepairMode::kNothing;
  CommandNamer commandFor = nullptr;
  std::string commandLine;  // what the journal records as the command
};

// Exit statuses, as the file-system checkers give them.
constexpr int kRepairClean = 0;       // no problem found
constexpr int kRepairAllFixed = 1;    // problems found, none left
constexpr int kRepairLeft = 4;        // problems left, none fixed
constexpr int kRepairSomeFixed = 5;   // problems fixed, and some left
constexpr int kRepairFailed = 8;      // the card or the journal failed
constexpr int kRepairUsage = 16;      // a bad command line

int runRepair(const RepairSettings& settings);

}  // namespace tr

#endif  // TRELLIS_REPAIR_CARD_REPAIR_H_
