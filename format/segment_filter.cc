#include "format/segment_filter.h"

#include <algorithm>

#include "base/output.h"
#include "base/region_reader.h"
#include "format/segment_walk.h"

namespace tr {
namespace {

// The zone of the bounds written without one. -1 after a failed read or
// the line saying that the segments record several zones.
int resolveZone(CardSession* card, SegmentFilter* filter) {
  // The zones the chosen channels' segments record, whatever their times:
  // the window cannot be placed before its zone is known.
  SegmentFilter channels = *filter;
  channels.hasFrom = channels.hasTo = false;
  RegionReader reader;
  std::vector<int32_t> zones;
  if (visitSegments(card, channels, &reader, [&](const SegmentSeen& seen) {
        const int32_t zone = seen.facts.zone;
        if (seen.facts.timeValid &&
            std::find(zones.begin(), zones.end(), zone) == zones.end()) {
          zones.push_back(zone);
        }
      }) == -1) {
    return -1;
  }
  if (zones.size() > 1) {
    std::string list;
    for (int32_t zone : zones)
      list += (list.empty() ? "" : ", ") + isoZone(zone);
    const std::string& word = filter->hasFrom && !filter->from.zoned
                                  ? filter->fromText
                                  : filter->toText;
    err("trellis-maintain: %s has no zone, and the chosen segments record "
        "several (%s): write it with Z, +HH:MM or -HH:MM\n",
        word.c_str(), list.c_str());
    return -1;
  }
  // With no segment to take, no zone is needed: nothing is chosen.
  const int32_t zone = zones.empty() ? 0 : zones.front();
  for (TimeWord* bound : {&filter->from, &filter->to}) {
    if (!bound->zoned) bound->seconds -= zone;
    bound->zoned = true;
  }
  return 0;
}

}  // namespace

bool SegmentFilter::takesChannel(int32_t channel) const {
  return channels.empty() ||
         std::find(channels.begin(), channels.end(), channel) != channels.end();
}

bool SegmentFilter::takes(const SegmentFacts& facts) const {
  if (!channels.empty() &&
      (!facts.channelValid || !takesChannel(facts.channel))) {
    return false;
  }
  if (!hasFrom && !hasTo) return true;
  if (!facts.timeValid) return false;
  return (!hasFrom || facts.end > from.seconds) &&
         (!hasTo || facts.start < to.seconds);
}

bool SegmentFilter::takesTime(int64_t seconds) const {
  return (!hasFrom || seconds >= from.seconds) &&
         (!hasTo || seconds <= to.seconds);
}

int resolveWindowZone(CardSession* card, SegmentFilter* filter) {
  if (filter->needsZone() && resolveZone(card, filter) != 0) {
    return card->fd() == -1 ? -1 : 1;
  }
  if (filter->hasFrom && filter->hasTo &&
      filter->from.seconds > filter->to.seconds) {
    err("trellis-maintain: --from %s is after --to %s: no time lies between "
        "them\n",
        filter->fromText.c_str(), filter->toText.c_str());
    return 1;
  }
  return 0;
}

}  // namespace tr
