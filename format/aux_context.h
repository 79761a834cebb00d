// The auxiliary context: 432 bytes, 100 of them after each auxiliary head.
// A context covers a span of time and lists up to 100 positions, each a data
// file number (high 16 bits) and a segment number (low 16 bits); 0 is an
// empty slot.
#ifndef TRELLIS_FORMAT_AUX_CONTEXT_H_
#define TRELLIS_FORMAT_AUX_CONTEXT_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "format/index_file_head.h"

namespace tr {

constexpr int kPositionsPerContext = 100;

struct IndexFileAuxiliaryContext {
  int64_t startTime;
  int64_t endTime;
  int32_t timeZone;  // seconds east of UTC
  uint32_t DST;
  uint32_t isUsed;
  uint8_t isFull;
  uint8_t reserved[3];
  uint32_t positionArray[kPositionsPerContext];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<IndexFileAuxiliaryContext>::value,
              "");
static_assert(sizeof(IndexFileAuxiliaryContext) == 432, "");
static_assert(offsetof(IndexFileAuxiliaryContext, startTime) == 0, "");
static_assert(offsetof(IndexFileAuxiliaryContext, endTime) == 8, "");
static_assert(offsetof(IndexFileAuxiliaryContext, timeZone) == 16, "");
static_assert(offsetof(IndexFileAuxiliaryContext, DST) == 20, "");
static_assert(offsetof(IndexFileAuxiliaryContext, isUsed) == 24, "");
static_assert(offsetof(IndexFileAuxiliaryContext, isFull) == 28, "");
static_assert(offsetof(IndexFileAuxiliaryContext, reserved) == 29, "");
static_assert(offsetof(IndexFileAuxiliaryContext, positionArray) == 32, "");

// A position entry: the data file number in its high 16 bits, the segment
// number in its low 16.
struct SegmentPosition {
  uint32_t fileNum;
  uint32_t segmentNum;
};
constexpr SegmentPosition decodePosition(uint32_t entry) {
  return {entry >> 16, entry & 0xFFFF};
}
// Whether the position names a segment inside the dimensions of `head`.
bool positionWithin(SegmentPosition position, const tr_IndexFileHead& head);

int _tr_maintainGetIndexFileAux(uint32_t kind, uint32_t auxNum,
                                uint32_t ctxNum, uint64_t offset,
                                IndexFileAuxiliaryContext* ctx);
int _tr_maintainPrintIndexAuxContext(const IndexFileAuxiliaryContext* ctx,
                                     int auxNum, int ctxNum);
int _tr_maintainCountValidPositions(const uint32_t* positions, int n);
int _tr_maintainPrintPositionChunk(const uint32_t* positions, int start,
                                   int count, const char* title);

}  // namespace tr

#endif  // TRELLIS_FORMAT_AUX_CONTEXT_H_
