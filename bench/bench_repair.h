// The repair on the check's populated 64 GiB card: --repair -n against
// --check of the clean card, and a repair that rewrites the whole data-file
// area of the backup record index file (cleared before each run; the
// primary's copies are written back over it) against cat of the bytes the
// check reads, with its journal, which then restores the cleared area.
#ifndef TRELLIS_BENCH_BENCH_REPAIR_H_
#define TRELLIS_BENCH_BENCH_REPAIR_H_

#include <cstdint>
#include <string>

namespace tr {
namespace bench {

struct RepairFigures {
  double repairN = 0;      // median seconds, --repair -n of the clean card
  double check = 0;        // median seconds, --check of the same card
  long repairNRssKiB = 0;  // the largest of the runs
  double rewrite = 0;      // median seconds, the backup area rewritten
  double cat = 0;          // median seconds, cat of the bytes the check reads
  long rewriteRssKiB = 0;
  uint64_t rewritten = 0;     // bytes of the backup's data-file area
  uint64_t journalBytes = 0;  // of one run
  bool restored = false;      // the journal put the cleared area back
};

bool measureRepair(const std::string& console, const std::string& out,
                   int runs, RepairFigures* figures);

}  // namespace bench
}  // namespace tr

#endif  // TRELLIS_BENCH_BENCH_REPAIR_H_
