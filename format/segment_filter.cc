#include "format/segment_filter.h"

#include <algorithm>
#include <cstring>

#include "base/output.h"
#include "base/region_reader.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// The zones recorded by the chosen channels' segments in use of one index
// file; false when a read failed.
bool collectZones(CardSession* card, const IndexFileDef& file,
                  const SegmentFilter& filter, RegionReader* reader,
                  std::vector<int32_t>* zones) {
  tr_IndexFileHead head;
  const uint64_t base = card->base(file);
  if (card->read(base, &head, sizeof head) == -1) return false;
  const uint64_t end =
      dataFileAreaEnd(file.kind, head.maxFileNum, head.maxSegmentNum);
  if (end > auxRegionStart(0, card->layout().idxFileSize)) return true;
  reader->start(card->fd(), base + kIndexFileHeadSize,
                end - kIndexFileHeadSize);
  const size_t infoSize = segmentInfoSize(file.kind);
  for (uint32_t f = 1; f <= head.maxFileNum; ++f) {
    if (reader->take(kDataFileHeadSize) == nullptr) return false;
    for (uint32_t s = 1; s <= head.maxSegmentNum; ++s) {
      const unsigned char* bytes = reader->take(infoSize);
      if (bytes == nullptr) return false;
      if (!segmentInUse(bytes)) continue;
      SegmentFacts facts;
      if (file.kind == kRecordKind) {
        tr_RecDataFileInfo info;
        std::memcpy(&info, bytes, sizeof info);
        facts = recordFacts(info);
      } else {
        tr_JPGDataFileInfo info;
        std::memcpy(&info, bytes, sizeof info);
        facts = pictureFacts(info);
      }
      if (!facts.timeValid ||
          (!filter.channels.empty() &&
           (!facts.channelValid || !filter.takesChannel(facts.channel)))) {
        continue;
      }
      if (std::find(zones->begin(), zones->end(), facts.zone) == zones->end()) {
        zones->push_back(facts.zone);
      }
    }
  }
  return true;
}

// The zone of the bounds written without one. -1 after a failed read or
// the line saying that the segments record several zones.
int resolveZone(CardSession* card, SegmentFilter* filter) {
  RegionReader reader;
  std::vector<int32_t> zones;
  for (const IndexFileDef& file : kIndexFiles) {
    if (file.backup) continue;
    if (!collectZones(card, file, *filter, &reader, &zones)) {
      if (reader.failed()) card->lost();
      return -1;
    }
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
