#include "format/device_layout.h"

#include <cstring>

namespace tr {

tr_TrellisHead trellisHead;

uint64_t _tr_maintainGetReserveSpaceSzie(uint64_t capacity) {
  return static_cast<uint64_t>(static_cast<double>(capacity) * 0.02);
}

tr_TrellisHead computeTrellisHead(uint64_t capacity) {
  tr_TrellisHead head;
  std::memset(&head, 0, sizeof head);
  const uint64_t reserve = _tr_maintainGetReserveSpaceSzie(capacity);
  const uint64_t indexArea = reserve - kFirstIndexFileOffset;
  head.idxFileSize = indexArea >> 2;
  std::memcpy(head.magicWord, kTrellisMagic, sizeof head.magicWord);
  head.idxFileOffsetAV = kFirstIndexFileOffset;
  head.idxFileBackupOffsetAV = head.idxFileOffsetAV + head.idxFileSize;
  head.idxFileOffsetPic = head.idxFileOffsetAV + 2 * head.idxFileSize;
  head.idxFileBackupOffsetPic = head.idxFileOffsetAV + 3 * head.idxFileSize;
  return head;
}

}  // namespace tr
