// Where each record lies inside an index file that starts at byte `base` of
// the device. After the 264-byte header come maxFileNum blocks, one per data
// file: its 32-byte data file head, then maxSegmentNum segment infos of 640
// bytes (record files) or 1680 bytes (picture files). The last 4320800 bytes
// of the index file hold 100 auxiliaries of 43208 bytes: an 8-byte head and
// 100 contexts of 432 bytes. All numbers are 1-based and every offset is
// unsigned 64-bit, 32-bit factors widened before they multiply.
#ifndef TRELLIS_FORMAT_INDEX_LAYOUT_H_
#define TRELLIS_FORMAT_INDEX_LAYOUT_H_

#include <cstdint>

namespace tr {

constexpr uint32_t kRecordKind = 1;
constexpr uint32_t kPictureKind = 2;

constexpr uint64_t kIndexFileHeadSize = 264;
constexpr uint64_t kDataFileHeadSize = 32;
constexpr uint64_t kRecSegmentInfoSize = 640;
constexpr uint64_t kJpgSegmentInfoSize = 1680;
constexpr uint32_t kAuxiliaryCount = 100;
constexpr uint32_t kContextsPerAuxiliary = 100;
constexpr uint64_t kAuxHeadSize = 8;
constexpr uint64_t kAuxContextSize = 432;
constexpr uint64_t kAuxiliarySize =
    kAuxHeadSize + kContextsPerAuxiliary * kAuxContextSize;  // 43208
constexpr uint64_t kAuxRegionSize = kAuxiliaryCount * kAuxiliarySize;

// 640 for kind 1, 1680 for any other kind.
uint64_t segmentInfoSize(uint32_t kind);
uint64_t dataFileBlockSize(uint32_t kind, uint32_t maxSegmentNum);
uint64_t dataFileHeadOffset(uint64_t base, uint32_t kind,
                            uint32_t maxSegmentNum, uint32_t fileNum);
uint64_t segmentInfoOffset(uint64_t base, uint32_t kind,
                           uint32_t maxSegmentNum, uint32_t fileNum,
                           uint32_t segmentNum);
// Bytes from an index file's start to the end of its data-file area (the
// header and every data file's block), or UINT64_MAX when that does not fit
// in 64 bits.
uint64_t dataFileAreaEnd(uint32_t kind, uint32_t maxFileNum,
                         uint32_t maxSegmentNum);
// The auxiliary region is placed from the end of the index file, whose size
// is the start-up layout's idxFileSize.
uint64_t auxRegionStart(uint64_t base, uint64_t idxFileSize);
uint64_t auxHeadOffset(uint64_t base, uint64_t idxFileSize, uint32_t auxNum);
uint64_t auxContextOffset(uint64_t base, uint64_t idxFileSize,
                          uint32_t auxNum, uint32_t ctxNum);
// The largest auxiliary number that stays inside the region, whatever the
// header claims.
uint32_t auxNumBound(uint32_t maxAuxNumber);

}  // namespace tr

#endif  // TRELLIS_FORMAT_INDEX_LAYOUT_H_
