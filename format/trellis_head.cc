// The storage head as the recorder keeps it on the device. The reader takes
// the 128 bytes as they are, whatever they hold; the printer shows every
// field, and only the magic word changes colour when the head is not one
// the recorder wrote (zeroed, or overwritten).
#include "format/trellis_head.h"

#include <cstdio>
#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"

namespace tr {

int _tr_maintainGetTrellisHead(tr_TrellisHead* head) {
  if (head == nullptr) {
    errTimestamped("_tr_maintainGetTrellisHead head is null");
    return -1;
  }
  const int fd = _tr_maintainOpenDevice(DeviceMode::kReadOnly);
  if (fd == -1) return -1;
  // The head's place is fixed, so its seek failure carries no offset.
  if (_tr_maintainReadDevice(fd, kTrellisHeadOffset, head, sizeof *head,
                             nullptr, kSeekTitle, false) == -1) {
    return -1;
  }
  return _tr_maintainCloseDevice(fd, true);
}

int _tr_maintainPrintTrellisHead(const tr_TrellisHead* head) {
  if (head == nullptr) {
    return out("[ERROR] _tr_maintainPrintTrellisHead header is null\n");
  }
  tr_TrellisHead h;
  std::memcpy(&h, head, sizeof h);
  printRecordTimestamp();
  outColoured(kMagenta, "=== tr_TrellisHead ===\n");

  printMagicField(h.magicWord, sizeof h.magicWord, kTrellisMagic);
  printNumberField("idxFileOffsetAV", h.idxFileOffsetAV);
  printNumberField("idxFileBackupOffsetAV", h.idxFileBackupOffsetAV);
  printNumberField("idxFileOffsetPic", h.idxFileOffsetPic);
  printNumberField("idxFileBackupOffsetPic", h.idxFileBackupOffsetPic);
  printSizeField("File Size", h.idxFileSize);
  printNumberField("idxCheckFlagAV", h.idxCheckFlagAV);
  printNumberField("idxCheckFlagPic", h.idxCheckFlagPic);
  printSizeField("AVSectorSize", h.AVSectorSize);
  printSizeField("PicSectorSize", h.PicSectorSize);

  printReservedDump(h.reserved, sizeof h.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
