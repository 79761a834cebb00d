#include "format/index_layout.h"

#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"

namespace tr {

// The region map is stated in bytes; each record is the struct read there.
static_assert(kIndexFileHeadSize == sizeof(tr_IndexFileHead), "");
static_assert(kDataFileHeadSize == sizeof(tr_DataFileHead), "");
static_assert(kRecSegmentInfoSize == sizeof(tr_RecDataFileInfo), "");
static_assert(kJpgSegmentInfoSize == sizeof(tr_JPGDataFileInfo), "");
static_assert(kAuxHeadSize == sizeof(IndexFileAuxiliaryHead), "");
static_assert(kAuxContextSize == sizeof(IndexFileAuxiliaryContext), "");
static_assert(kAuxRegionSize == 4320800, "");

uint64_t segmentInfoSize(uint32_t kind) {
  return kind == kRecordKind ? kRecSegmentInfoSize : kJpgSegmentInfoSize;
}

uint64_t dataFileBlockSize(uint32_t kind, uint32_t maxSegmentNum) {
  return kDataFileHeadSize + uint64_t{maxSegmentNum} * segmentInfoSize(kind);
}

uint64_t dataFileHeadOffset(uint64_t base, uint32_t kind,
                            uint32_t maxSegmentNum, uint32_t fileNum) {
  const uint32_t fileIndex = fileNum - 1;
  return base + kIndexFileHeadSize +
         uint64_t{fileIndex} * dataFileBlockSize(kind, maxSegmentNum);
}

uint64_t segmentInfoOffset(uint64_t base, uint32_t kind,
                           uint32_t maxSegmentNum, uint32_t fileNum,
                           uint32_t segmentNum) {
  const uint32_t segmentIndex = segmentNum - 1;
  return dataFileHeadOffset(base, kind, maxSegmentNum, fileNum) +
         kDataFileHeadSize + uint64_t{segmentIndex} * segmentInfoSize(kind);
}

uint64_t dataFileAreaEnd(uint32_t kind, uint32_t maxFileNum,
                         uint32_t maxSegmentNum) {
  constexpr uint64_t kNoFit = UINT64_MAX;
  uint64_t segments = 0;
  uint64_t block = 0;
  uint64_t area = 0;
  if (__builtin_mul_overflow(uint64_t{maxSegmentNum}, segmentInfoSize(kind),
                             &segments) ||
      __builtin_add_overflow(segments, kDataFileHeadSize, &block) ||
      __builtin_mul_overflow(block, uint64_t{maxFileNum}, &area) ||
      area > kNoFit - kIndexFileHeadSize) {
    return kNoFit;
  }
  return area + kIndexFileHeadSize;
}

uint64_t auxRegionStart(uint64_t base, uint64_t idxFileSize) {
  return idxFileSize + base - kAuxRegionSize;
}

uint64_t auxHeadOffset(uint64_t base, uint64_t idxFileSize, uint32_t auxNum) {
  const uint32_t auxIndex = auxNum - 1;
  return auxRegionStart(base, idxFileSize) + uint64_t{auxIndex} * kAuxiliarySize;
}

uint64_t auxContextOffset(uint64_t base, uint64_t idxFileSize,
                          uint32_t auxNum, uint32_t ctxNum) {
  const uint32_t ctxIndex = ctxNum - 1;
  return auxHeadOffset(base, idxFileSize, auxNum) + kAuxHeadSize +
         uint64_t{ctxIndex} * kAuxContextSize;
}

uint32_t auxNumBound(uint32_t maxAuxNumber) {
  return maxAuxNumber < kAuxiliaryCount ? maxAuxNumber : kAuxiliaryCount;
}

}  // namespace tr
