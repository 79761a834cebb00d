#include "format/segment_walk.h"

#include <cstring>

#include "format/index_layout.h"
#include "format/rec_data_file_info.h"

namespace tr {

bool walkSegmentsInUse(CardSession* card, const IndexFileDef& file,
                       const tr_IndexFileHead& head, RegionReader* reader,
                       const SegmentInfoVisit& visit,
                       const std::function<void()>& dataFileDone) {
  const uint64_t end =
      dataFileAreaEnd(file.kind, head.maxFileNum, head.maxSegmentNum);
  reader->start(card->fd(), card->base(file) + kIndexFileHeadSize,
                end - kIndexFileHeadSize);
  const size_t infoSize = segmentInfoSize(file.kind);
  for (uint32_t f = 1; f <= head.maxFileNum; ++f) {
    if (reader->take(kDataFileHeadSize) == nullptr) return !reader->failed();
    for (uint32_t s = 1; s <= head.maxSegmentNum; ++s) {
      const unsigned char* info = reader->take(infoSize);
      if (info == nullptr) return !reader->failed();
      if (segmentInUse(info) && !visit(f, s, info)) return true;
    }
    if (dataFileDone) dataFileDone();
  }
  return true;
}

int visitSegments(CardSession* card, const SegmentFilter& filter,
                  RegionReader* reader,
                  const std::function<void(const SegmentSeen&)>& visit) {
  for (const IndexFileDef& file : kIndexFiles) {
    if (file.backup) continue;
    tr_IndexFileHead head;
    if (card->read(card->base(file), &head, sizeof head) == -1) return -1;
    if (!dataFileAreaFits(head, file.kind, card->layout().idxFileSize)) {
      continue;
    }
    const bool read = walkSegmentsInUse(
        card, file, head, reader,
        [&](uint32_t f, uint32_t s, const unsigned char* info) {
          SegmentSeen seen = {&file, f, s, segmentFacts(file.kind, info),
                              nullptr};
          tr_JPGDataFileInfo picture;
          if (file.kind != kRecordKind) {
            std::memcpy(&picture, info, sizeof picture);
            seen.pictures = &picture;
          }
          if (filter.takes(seen.facts)) visit(seen);
          return true;
        });
    if (!read) {
      card->lost();  // the failed read closed the device
      return -1;
    }
  }
  return 0;
}

}  // namespace tr
