#include "format/aux_context.h"

#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// Position entries naming these data files stand out in the listing: 65535
// is what an unset file number reads as, and numbers above 2000 lie beyond
// what a card is laid out for.
constexpr uint32_t kUnsetFileNumber = 0xFFFF;
constexpr uint32_t kHighFileNumber = 2000;

const char* positionColour(uint32_t fileNumber) {
  if (fileNumber == kUnsetFileNumber) return kRed;
  if (fileNumber > kHighFileNumber) return kYellow;
  return kReset;
}

}  // namespace

bool positionWithin(SegmentPosition position, const tr_IndexFileHead& head) {
  return position.fileNum >= 1 && position.fileNum <= head.maxFileNum &&
         position.segmentNum >= 1 && position.segmentNum <= head.maxSegmentNum;
}

// The kind does not matter: both kinds of index file end in the same
// auxiliary region.
int _tr_maintainGetIndexFileAux(uint32_t /*kind*/, uint32_t auxNum,
                                uint32_t ctxNum, uint64_t offset,
                                IndexFileAuxiliaryContext* ctx) {
  if (ctx == nullptr) return -1;
  tr_IndexFileHead header;
  const int fd = openIndexFile(offset, &header);
  if (fd == -1) return -1;
  // A header may claim more auxiliaries than the region holds; past the
  // hundredth the offset would run beyond the end of the index file.
  if (!checkIndexNumber("auxNum", auxNum, "maxAuxNumber",
                        auxNumBound(header.maxAuxNumber)) ||
      !checkIndexNumber("ctxNum", ctxNum, "maxCtxNum", kContextsPerAuxiliary)) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  const uint64_t target =
      auxContextOffset(offset, trellisHead.idxFileSize, auxNum, ctxNum);
  return readTargetAndClose(fd, target, ctx, sizeof *ctx);
}

int _tr_maintainCountValidPositions(const uint32_t* positions, int n) {
  if (positions == nullptr) return 0;
  int count = 0;
  for (int i = 0; i < n; ++i) {
    if (positions[i] != 0) ++count;
  }
  return count;
}

int _tr_maintainPrintPositionChunk(const uint32_t* positions, int start,
                                   int count, const char* title) {
  int result = outColoured(kBlue, formatString("  %s:\n",
                                               title != nullptr ? title : ""));
  if (positions == nullptr) return result;
  // Whatever the caller asks, only the 100 entries of the array are listed.
  const int64_t end = static_cast<int64_t>(start) + count;
  for (int64_t i = start < 0 ? 0 : start;
       i < end && i < kPositionsPerContext; ++i) {
    const SegmentPosition position = decodePosition(positions[i]);
    result = out("  [%03d] %sFile#%-5u Seg#%-5u%s\n", static_cast<int>(i),
                 positionColour(position.fileNum), position.fileNum,
                 position.segmentNum, kReset);
  }
  return result;
}

int _tr_maintainPrintIndexAuxContext(const IndexFileAuxiliaryContext* ctx,
                                     int auxNum, int ctxNum) {
  if (ctx == nullptr) {
    return out("[ERROR] _tr_maintainPrintIndexAuxContext ctx is null\n");
  }
  // A copy, so that no field is read through a pointer of unknown alignment.
  IndexFileAuxiliaryContext c;
  std::memcpy(&c, ctx, sizeof c);
  printRecordHeading(formatString(
      "auxNum:%d, ctxNum:%d IndexFileAuxiliaryContext", auxNum, ctxNum));

  printTimeSpanFields(c.startTime, c.endTime, c.timeZone, c.DST);
  printFlagField("isUsed", c.isUsed);
  printFlagField("isFull", c.isFull);
  printGreenField("Valid Position Count",
             formatString("%d", _tr_maintainCountValidPositions(
                                    c.positionArray, kPositionsPerContext)));
  _tr_maintainPrintPositionChunk(c.positionArray, 0, kPositionsPerContext,
                                 "Position Array");

  printReservedDump(c.reserved, sizeof c.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
