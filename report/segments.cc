#include "report/segments.h"

#include <cstring>

#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/rec_data_file_info.h"
#include "report/timeline.h"

namespace tr {

int64_t laneOf(const SegmentFacts& facts) {
  return facts.channelValid ? facts.channel : kNoChannel;
}

int visitSegments(CardSession* card, const SegmentFilter& filter,
                  RegionReader* reader,
                  const std::function<void(const SegmentSeen&)>& visit) {
  for (const IndexFileDef& file : kIndexFiles) {
    if (file.backup) continue;
    const uint64_t base = card->base(file);
    tr_IndexFileHead head;
    if (card->read(base, &head, sizeof head) == -1) return -1;
    const uint64_t end =
        dataFileAreaEnd(file.kind, head.maxFileNum, head.maxSegmentNum);
    if (end > auxRegionStart(0, card->layout().idxFileSize)) continue;
    reader->start(card->fd(), base + kIndexFileHeadSize,
                  end - kIndexFileHeadSize);
    const size_t infoSize = segmentInfoSize(file.kind);
    for (uint32_t f = 1; f <= head.maxFileNum; ++f) {
      if (reader->take(kDataFileHeadSize) == nullptr) break;
      for (uint32_t s = 1; s <= head.maxSegmentNum; ++s) {
        const unsigned char* bytes = reader->take(infoSize);
        if (bytes == nullptr) break;
        if (!segmentInUse(bytes)) continue;
        SegmentSeen seen = {&file, f, s, {}, nullptr};
        tr_JPGDataFileInfo picture;
        if (file.kind == kRecordKind) {
          tr_RecDataFileInfo info;
          std::memcpy(&info, bytes, sizeof info);
          seen.facts = recordFacts(info);
        } else {
          std::memcpy(&picture, bytes, sizeof picture);
          seen.facts = pictureFacts(picture);
          seen.pictures = &picture;
        }
        if (filter.takes(seen.facts)) visit(seen);
      }
    }
    if (reader->failed()) {
      card->lost();  // the failed read closed the device
      return -1;
    }
  }
  return 0;
}

}  // namespace tr
