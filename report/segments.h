// The segments a report draws: every segment info in use of the record and
// the picture index file (the primaries; the check compares the backups),
// that the filters take, read in large blocks in the order of the card.
#ifndef TRELLIS_REPORT_SEGMENTS_H_
#define TRELLIS_REPORT_SEGMENTS_H_

#include <cstdint>
#include <functional>

#include "base/region_reader.h"
#include "format/card.h"
#include "format/index_files.h"
#include "format/jpg_data_file_info.h"
#include "format/segment_facts.h"
#include "format/segment_filter.h"

namespace tr {

struct SegmentSeen {
  const IndexFileDef* file;
  uint32_t fileNum;
  uint32_t segmentNum;
  SegmentFacts facts;
  // A picture segment's info (null for a record segment): its pictures'
  // times.
  const tr_JPGDataFileInfo* pictures;
};

// The channel a segment's lane is keyed by (timeline.h).
int64_t laneOf(const SegmentFacts& facts);

// 0, or -1 when a read failed (reported). An index file whose dimensions
// do not fit its region is passed over (the check reports it).
int visitSegments(CardSession* card, const SegmentFilter& filter,
                  RegionReader* reader,
                  const std::function<void(const SegmentSeen&)>& visit);

}  // namespace tr

#endif  // TRELLIS_REPORT_SEGMENTS_H_
