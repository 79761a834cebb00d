#include "mkcard/index_writer.h"

#include <cstring>
#include <vector>

#include "format/index_layout.h"

namespace tr {
namespace {

constexpr size_t kStreamBufferSize = 1 << 20;

bool allZero(const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

// Consecutive records from `offset` on, gathered into large writes. On a
// target that already reads as zero an all-zero record is skipped, which
// keeps an image sparse.
class RecordStream {
 public:
  RecordStream(CardTarget* target, uint64_t offset)
      : target_(target), start_(offset), next_(offset) {
    buffer_.reserve(kStreamBufferSize);
  }

  int append(const void* record, size_t size) {
    if (target_->zeroed() && allZero(record, size)) {
      if (flush() == -1) return -1;
      next_ += size;
      start_ = next_;
      return 0;
    }
    if (buffer_.size() + size > kStreamBufferSize && flush() == -1) return -1;
    const char* bytes = static_cast<const char*>(record);
    buffer_.insert(buffer_.end(), bytes, bytes + size);
    next_ += size;
    return 0;
  }

  int flush() {
    if (!buffer_.empty() &&
        target_->writeAt(start_, buffer_.data(), buffer_.size()) == -1) {
      return -1;
    }
    buffer_.clear();
    start_ = next_;
    return 0;
  }

 private:
  CardTarget* target_;
  uint64_t start_;  // card offset of buffer_[0]
  uint64_t next_;   // card offset of the next record
  std::vector<char> buffer_;
};

int writeDataFileArea(RecordStream* stream, const IndexFilePlace& file,
                      const CardLayout& layout, const CardContent& content) {
  for (uint32_t f = 1; f <= layout.dims.files; ++f) {
    tr_DataFileHead head;
    std::memset(&head, 0, sizeof head);
    content.dataFileHead(file, f, &head);
    if (stream->append(&head, sizeof head) == -1) return -1;
    for (uint32_t s = 1; s <= layout.dims.segments; ++s) {
      int result;
      if (file.def->kind == kRecordKind) {
        tr_RecDataFileInfo info;
        std::memset(&info, 0, sizeof info);
        content.recSegmentInfo(file, f, s, &info);
        result = stream->append(&info, sizeof info);
      } else {
        tr_JPGDataFileInfo info;
        std::memset(&info, 0, sizeof info);
        content.jpgSegmentInfo(file, f, s, &info);
        result = stream->append(&info, sizeof info);
      }
      if (result == -1) return -1;
    }
  }
  return stream->flush();
}

// All 100 auxiliaries, whatever maxAuxNumber says: the region's size is
// fixed, and on a block device stale bytes must not survive in it.
int writeAuxRegion(RecordStream* stream, const IndexFilePlace& file,
                   const CardContent& content) {
  for (uint32_t a = 1; a <= kAuxiliaryCount; ++a) {
    IndexFileAuxiliaryHead head;
    std::memset(&head, 0, sizeof head);
    content.auxHead(file, a, &head);
    if (stream->append(&head, sizeof head) == -1) return -1;
    for (uint32_t c = 1; c <= kContextsPerAuxiliary; ++c) {
      IndexFileAuxiliaryContext context;
      std::memset(&context, 0, sizeof context);
      content.auxContext(file, a, c, &context);
      if (stream->append(&context, sizeof context) == -1) return -1;
    }
  }
  return stream->flush();
}

int writeIndexFile(CardTarget* target, const IndexFilePlace& file,
                   const CardLayout& layout, const CardContent& content) {
  tr_IndexFileHead head;
  std::memset(&head, 0, sizeof head);
  content.indexFileHead(file, &head);
  if (target->writeAt(file.base, &head, sizeof head) == -1) return -1;

  RecordStream area(target, dataFileHeadOffset(file.base, file.def->kind,
                                               layout.dims.segments, 1));
  if (writeDataFileArea(&area, file, layout, content) == -1) return -1;

  RecordStream aux(target,
                   auxHeadOffset(file.base, layout.head.idxFileSize, 1));
  return writeAuxRegion(&aux, file, content);
}

}  // namespace

int writeCard(CardTarget* target, const CardLayout& layout,
              const CardContent& content) {
  if (target->writeAt(kTrellisHeadOffset, &layout.head, sizeof layout.head) ==
      -1) {
    return -1;
  }
  for (const IndexFilePlace& file : layout.files) {
    if (writeIndexFile(target, file, layout, content) == -1) return -1;
  }
  return 0;
}

}  // namespace tr
