// Where a record segment is cut for an export: at I-frames, so that what is
// copied starts with a picture a player can show. The segment's I-frame
// table (format/iframe_index.h) gives each I-frame's time and its place;
// the place is a byte of the record data file, of which the recorder keeps
// the low 32 bits, so it stands for the byte of the segment's media whose
// position has those low bits.
#ifndef TRELLIS_EXPORT_CUT_H_
#define TRELLIS_EXPORT_CUT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "format/segment_facts.h"
#include "format/segment_filter.h"

namespace tr {

struct IFrame {
  int64_t time;       // seconds, as stored times read
  uint64_t position;  // in the record data file
};

// The I-frame table of a segment (iFrameInfoOffset and iFrameInfoSize of
// its info) as read from its data file, open on `fd`.
// True with `*frames` when it is usable: whole 32-byte entries, at most
// kMaxIFrames, each inside the segment's media and its span of time, their
// places rising and their times never falling. Otherwise false with `*why`
// saying what is wrong with it ("its entry 3 lies outside the segment").
constexpr uint32_t kMaxIFrames = 16384;
bool readIFrames(int fd, uint64_t tableOffset, uint64_t tableSize,
                 const SegmentFacts& facts, std::vector<IFrame>* frames,
                 std::string* why);

// The bytes of a segment an export copies, and the span of time they hold.
struct Cut {
  uint64_t start;  // in the data file
  uint64_t end;
  int64_t startTime;
  int64_t endTime;
  bool atIFrames;  // cut at I-frames, not copied whole
};

// The segment (with its usable I-frames, or none: copied whole) cut to the
// window: from the last I-frame at or before --from, or the segment's start
// when --from is before its first I-frame, to the first I-frame at or after
// --to (where the last frame before --to ends), or the segment's end.
Cut cutSegment(const SegmentFacts& facts, const std::vector<IFrame>& frames,
               const SegmentFilter& window);

}  // namespace tr

#endif  // TRELLIS_EXPORT_CUT_H_
