// Which segments the whole-card commands take (--channel, --from, --to):
// those of the channels named, all when none is, whose span overlaps the
// window from `from` to `to`, open on a side not given. A segment whose
// channel or time group is not valid is taken only when no channel, or no
// window, is asked for. A bound written without a zone is a reading of
// the recorder's clock: it takes the zone the segments of the chosen
// channels record, when they all record one.
#ifndef TRELLIS_FORMAT_SEGMENT_FILTER_H_
#define TRELLIS_FORMAT_SEGMENT_FILTER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "base/times.h"
#include "format/card.h"
#include "format/segment_facts.h"

namespace tr {

struct SegmentFilter {
  std::vector<int32_t> channels;  // empty: every channel
  bool hasFrom = false;
  bool hasTo = false;
  TimeWord from;  // UTC once zoned
  TimeWord to;
  std::string fromText;  // as written
  std::string toText;

  bool takesChannel(int32_t channel) const;
  // The record or picture segment with these facts.
  bool takes(const SegmentFacts& facts) const;
  // A picture taken at `seconds`: within the window, its ends included.
  bool takesTime(int64_t seconds) const;
  bool needsZone() const {
    return (hasFrom && !from.zoned) || (hasTo && !to.zoned);
  }
};

// Gives the bounds written without a zone the zone that the segments of
// the chosen channels record, in the record and the picture index file of
// `card`, and checks that the window is not empty. 0; 1 after one line on
// standard error when the segments record more than one zone or --from
// lies after --to; -1 when the card could not be read (reported).
int resolveWindowZone(CardSession* card, SegmentFilter* filter);

}  // namespace tr

#endif  // TRELLIS_FORMAT_SEGMENT_FILTER_H_
