#include "repair/aux_switch.h"

#include <cstring>

#include "base/device.h"
#include "format/aux_head.h"
#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "repair/markers.h"

namespace tr {
namespace {

// The auxiliary region is placed from the end of the index file. An index
// file too small to hold it (a small card) has no auxiliary that could be
// written without landing in front of the file, in another index file or
// the storage head; no number is then valid.
uint32_t writableAuxBound(uint32_t maxAuxNumber) {
  if (trellisHead.idxFileSize < kAuxRegionSize) return 0;
  return auxNumBound(maxAuxNumber);
}

}  // namespace

int _tr_maintainChangeAuxCtxNum(uint64_t base, uint32_t auxNum,
                                uint32_t ctxNum) {
  IndexFileAuxiliaryHead auxHead;
  std::memset(&auxHead, 0, sizeof auxHead);
  tr_IndexFileHead header;
  const int fd = openHeaderForRewrite(base, &header);
  if (fd == -1) return -1;
  if (!checkIndexNumber("auxNum", auxNum, "maxAuxNumber",
                        writableAuxBound(header.maxAuxNumber))) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }

  header.auxNum = auxNum;
  if (_tr_maintainWriteDevice(fd, base, &header, sizeof header, true) == -1) {
    return -1;
  }

  const uint64_t headOffset =
      auxHeadOffset(base, trellisHead.idxFileSize, auxNum);
  if (_tr_maintainReadDevice(fd, headOffset, &auxHead, sizeof auxHead,
                             "IndexFileAuxiliaryHead targetOffset",
                             kReadSeekTitle, true) == -1) {
    return -1;
  }
  auxHead.currentCount = static_cast<uint16_t>(ctxNum);
  if (_tr_maintainWriteDevice(fd, headOffset, &auxHead, sizeof auxHead,
                              true) == -1) {
    return -1;
  }
  return _tr_maintainCloseDevice(fd, true);
}

}  // namespace tr
