// Going through the segment infos of an index file: its data-file area
// (each data file's head, then its segment infos) read from just after its
// header in large blocks, in the order of the card, and each segment info
// in use handed on where it lies in the block. What lists, chooses or
// draws segments goes through them this way, in memory that does not grow
// with the card.
#ifndef TRELLIS_FORMAT_SEGMENT_WALK_H_
#define TRELLIS_FORMAT_SEGMENT_WALK_H_

#include <cstdint>
#include <functional>

#include "base/region_reader.h"
#include "format/card.h"
#include "format/index_file_head.h"
#include "format/index_files.h"
#include "format/jpg_data_file_info.h"
#include "format/segment_facts.h"
#include "format/segment_filter.h"

namespace tr {

// Given a segment info in use and where it is; false stops the walk there.
using SegmentInfoVisit = std::function<bool(
    uint32_t fileNum, uint32_t segmentNum, const unsigned char* info)>;

// Walks the index file `file` whose header is `head`, which the caller
// has found to fit (dataFileAreaFits). `dataFileDone`, when given, is called
// after each data file that was gone through. False when a read failed
// (reported; the device is closed), true when the walk ended or was stopped.
bool walkSegmentsInUse(CardSession* card, const IndexFileDef& file,
                       const tr_IndexFileHead& head, RegionReader* reader,
                       const SegmentInfoVisit& visit,
                       const std::function<void()>& dataFileDone = nullptr);

struct SegmentSeen {
  const IndexFileDef* file;
  uint32_t fileNum;
  uint32_t segmentNum;
  SegmentFacts facts;
  // A picture segment's info (null for a record segment): its pictures'
  // times.
  const tr_JPGDataFileInfo* pictures;
};

// Every segment in use of the record and the picture index file (the
// primaries; the check compares the backups) that `filter` takes. 0, or -1
// when a read failed (reported). An index file whose dimensions do not fit
// its region is passed over (the check reports it).
int visitSegments(CardSession* card, const SegmentFilter& filter,
                  RegionReader* reader,
                  const std::function<void(const SegmentSeen&)>& visit);

}  // namespace tr

#endif  // TRELLIS_FORMAT_SEGMENT_WALK_H_
