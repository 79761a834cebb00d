// The head of auxiliary `auxNum` in an index file's auxiliary region. The
// region is placed from the end of the index file and holds exactly 100
// auxiliaries, so the reader refuses any number above 100 even when the
// header claims more: nothing past the index file is read as an auxiliary.
#include "format/aux_head.h"

#include <cstdio>
#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"

namespace tr {
// `kind` does not change where an auxiliary lies: the region has the same
// shape in record and picture index files.
int _tr_maintainGetIndexAuxHeader(uint32_t kind, uint32_t auxNum,
                                  uint64_t offset,
                                  IndexFileAuxiliaryHead* header) {
  (void)kind;
  if (header == nullptr) {
    errTimestamped("_tr_maintainGetIndexAuxHeader header is null");
    return -1;
  }
  tr_IndexFileHead indexHead;
  const int fd = openIndexFile(offset, &indexHead);
  if (fd == -1) return -1;
  if (!checkIndexNumber("auxNum", auxNum, "maxAuxNumber",
                        auxNumBound(indexHead.maxAuxNumber))) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  const uint64_t target =
      auxHeadOffset(offset, trellisHead.idxFileSize, auxNum);
  return readTargetAndClose(fd, target, header, sizeof *header);
}

int _tr_maintainPrintIndexAuxHeader(const IndexFileAuxiliaryHead* header,
                                    int auxNum) {
  if (header == nullptr) {
    return out("[ERROR] _tr_maintainPrintIndexAuxHeader header is null\n");
  }
  IndexFileAuxiliaryHead h;
  std::memcpy(&h, header, sizeof h);
  printRecordHeading(formatString("auxNum:%d IndexFileAuxiliaryHead", auxNum));

  printFlagField("isUsed", h.isUsed);
  printFlagField("isFull", h.isFull);
  printNumberField("Current Count", h.currentCount);

  printReservedDump(h.reserved, sizeof h.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
