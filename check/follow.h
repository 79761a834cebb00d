// The check, followed: the walk of --check hands each of its findings, the
// problems of one record read beside its twin's copy with the bytes and
// places a fix needs, to a follower (the repair), which may fix it. The
// walk then goes on as the card will be once the fix is made, so that what
// it counts afterwards (the segments in use of a data file, whether an
// index file still differs from its twin) counts the fixed records.
#ifndef TRELLIS_CHECK_FOLLOW_H_
#define TRELLIS_CHECK_FOLLOW_H_

#include <cstdint>
#include <string>
#include <vector>

#include "check/report.h"
#include "format/card.h"
#include "format/index_files.h"
#include "format/record_fields.h"

namespace tr {

enum class FindingKind {
  kStorageHead,    // the storage head on the device against the layout
  kRecordPair,     // an index record and its twin's copy
  kIndexFileMark,  // one index file's abnormal mark, once its kind is walked
  kValidSegments,  // a data file head's count of the segments in use
  kUnfixable,      // the device itself: too small for index files
};

struct Finding {
  FindingKind kind;
  // The record's fields (kRecordPair, kValidSegments, kIndexFileMark).
  const RecordFields* fields = nullptr;
  // The record's place: the primary's of a pair, the index file's header
  // for a mark.
  RecordPlace place = {RecordKind::kDevice, nullptr, 0, 0};
  uint64_t offset = 0;                   // where the record lies
  const unsigned char* bytes = nullptr;  // as the walk holds it
  bool passes = true;                    // no problem of its own
  // The twin's copy read alongside; twinBytes null when none was (index
  // files of different dimensions are each walked on their own). For
  // kValidSegments, set only when the twin's head is the same and counts
  // the same, so that one fix holds for both.
  const IndexFileDef* twinFile = nullptr;
  uint64_t twinOffset = 0;
  const unsigned char* twinBytes = nullptr;
  bool twinPasses = true;
  // An index file header pair differs in more than the abnormal mark.
  bool differs = false;
  uint32_t count = 0;  // kValidSegments: segment infos in use
  // kIndexFileMark: records of the kind that still differ from the twin's
  // (kNotCompared when the two were not walked side by side), and whether
  // the twin's own mark is normal.
  uint64_t unequal = 0;
  bool twinNormal = false;
  std::vector<ReportedProblem> problems;  // as reported, in order
};

constexpr uint64_t kNotCompared = UINT64_MAX;

// Which copy of a record pair the card holds once the follower is done.
enum class Kept { kAsRead, kPrimary, kTwin };

class CheckFollower {
 public:
  virtual ~CheckFollower() = default;
  virtual Kept follow(const Finding& finding) = 0;
  // True once a write failed: the walk stops there.
  virtual bool stopped() const = 0;
};

// Walks the open card as --check does, every problem on `report`; with a
// follower, every finding handed to it too. 0, or -1 when a read failed
// (reported; the device then closed) or the follower stopped.
struct WalkCounts {
  uint64_t records = 0;
  DataFileSizes sizes;
};
int walkCard(CardSession* card, Report* report, CheckFollower* follower,
             WalkCounts* counts);
// "summary: 6 problems; 42512 records read; extents checked against ...".
void printCheckSummary(const WalkCounts& counts, Report* report);

}  // namespace tr

#endif  // TRELLIS_CHECK_FOLLOW_H_
