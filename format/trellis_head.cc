// The storage head as the recorder keeps it on the device. The reader takes
// the 128 bytes as they are, whatever they hold; the printer shows every
// field, and only the magic word changes colour when the head is not one
// the recorder wrote (zeroed, or overwritten).
#include "format/trellis_head.h"

#include <cstdio>
#include <cstring>

#include "maintain/device.h"
#include "maintain/output.h"

namespace tr {
namespace {

void printDecimal(const char* label, unsigned long long value) {
  char text[32];
  std::snprintf(text, sizeof text, "%llu", value);
  _tr_maintainPrintColoredField(label, text, kGreen);
}

void printSize(const char* label, uint64_t bytes) {
  _tr_maintainPrintColoredField(label, sizeText(bytes).c_str(), kGreen);
}

}  // namespace

int _tr_maintainGetTrellisHead(tr_TrellisHead* head) {
  if (head == nullptr) {
    char stamp[64];
    _tr_maintainGetColoredTimestamp(stamp, sizeof stamp);
    err("%s \033[31m_tr_maintainGetTrellisHead head is null\033[0m\n", stamp);
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
  out("\033[35m=== tr_TrellisHead ===\n\033[0m");

  // One byte more than stored, so a magic word without its NUL is still
  // shown whole and compared whole.
  char magic[sizeof h.magicWord + 1] = {};
  std::memcpy(magic, h.magicWord, sizeof h.magicWord);
  _tr_maintainPrintColoredField(
      "Magic Word", magic,
      std::strcmp(magic, kTrellisMagic) == 0 ? kGreen : kRed);
  printDecimal("idxFileOffsetAV", h.idxFileOffsetAV);
  printDecimal("idxFileBackupOffsetAV", h.idxFileBackupOffsetAV);
  printDecimal("idxFileOffsetPic", h.idxFileOffsetPic);
  printDecimal("idxFileBackupOffsetPic", h.idxFileBackupOffsetPic);
  printSize("File Size", h.idxFileSize);
  printDecimal("idxCheckFlagAV", h.idxCheckFlagAV);
  printDecimal("idxCheckFlagPic", h.idxCheckFlagPic);
  printSize("AVSectorSize", h.AVSectorSize);
  printSize("PicSectorSize", h.PicSectorSize);

  printReservedDump(h.reserved, sizeof h.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
