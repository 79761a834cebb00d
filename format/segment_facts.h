// What a segment info says of its recording, each group only where its
// effinfoMask bit makes it valid: the facts the inventory lists and the
// export chooses by, for either kind of segment info.
#ifndef TRELLIS_FORMAT_SEGMENT_FACTS_H_
#define TRELLIS_FORMAT_SEGMENT_FACTS_H_

#include <cstdint>

#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"

namespace tr {

struct SegmentFacts {
  bool channelValid;
  int32_t channel;
  bool timeValid;
  int64_t start;  // seconds, as stored times read (base/times.h)
  int64_t end;
  int32_t zone;     // seconds east of UTC
  uint64_t offset;  // of the media (the fragment) in the data file
  uint64_t length;
  int pictures;  // pictureCount(); -1 for a record segment
  bool incomplete;
  bool encodeValid;
  uint32_t codec;  // tr_VideoFormat::type: 4 H.264, 8 H.265, ...
  uint32_t width;
  uint32_t height;
  float fps;
  uint32_t types;  // RecordTypeBit
};

// A picture segment's span runs from its first picture to its last; it
// has a time only when it has a picture.
SegmentFacts recordFacts(const tr_RecDataFileInfo& info);
SegmentFacts pictureFacts(const tr_JPGDataFileInfo& info);
// The facts of the segment info `info` of an index file of `kind`, as it
// lies on the card (read in place, it may be unaligned).
SegmentFacts segmentFacts(uint32_t kind, const unsigned char* info);

}  // namespace tr

#endif  // TRELLIS_FORMAT_SEGMENT_FACTS_H_
