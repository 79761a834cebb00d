#include "format/index_file_head.h"

#include <cstdio>
#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// Above this a channel's write file index cannot be real; shown in red.
constexpr uint32_t kPlausibleWriteIndex = 10000;


const char* fileTypeName(uint8_t type) {
  switch (type) {
    case 1:
      return "AV";
    case 2:
      return "JPG";
    default:
      return "Unknown";
  }
}

}  // namespace

int _tr_maintainGetIndexFileHeader(uint64_t offset, tr_IndexFileHead* header) {
  if (header == nullptr) {
    errTimestamped("_tr_maintainGetIndexFileHeader header is null");
    return -1;
  }
  const int fd = _tr_maintainOpenDevice(DeviceMode::kReadOnly);
  if (fd == -1) return -1;
  return readTargetAndClose(fd, offset, header, sizeof *header);
}

int _tr_maintainPrintIndexFileHeader(const tr_IndexFileHead* header) {
  if (header == nullptr) {
    return out("[ERROR] _tr_maintainPrintIndexFileHeader header is null\n");
  }
  tr_IndexFileHead h;
  std::memcpy(&h, header, sizeof h);
  printRecordTimestamp();
  outColoured(kMagenta, "=== tr_IndexFileHead ===\n");

  printMagicField(h.magicWord, sizeof h.magicWord, kIndexFileMagic);
  _tr_maintainPrintColoredField("File Type", fileTypeName(h.fileType), kGreen);

  printSection("Write File Indexes:\n");
  for (int c = 1; c <= 32; ++c) {
    const uint32_t index = h.writeFileIndex[c - 1];
    out("  Channel %02d: ", c);
    if (index > kPlausibleWriteIndex) {
      outColoured(kRed, formatString("%u", index));
      out("\n");
    } else {
      out("%u\n", index);
    }
  }

  printNumberField("Max File Number", h.maxFileNum);
  printNumberField("Max Data Number", h.maxSegmentNum);
  printNumberField("Max Aux Number", h.maxAuxNumber);
  printNumberField("Aux Number", h.auxNum);
  printSizeField("File Size", h.fileSize);
  if (h.exceptionFlag != 0) {
    _tr_maintainPrintColoredField("Exception Flag", "Abnormal", kRed);
  } else {
    _tr_maintainPrintColoredField("Exception Flag", "Normal", kGreen);
  }
  char start[32];
  _tr_maintainFormatUnixTime(h.startTime, start, sizeof start);
  _tr_maintainPrintColoredField("utc startTime", start, kGreen);

  printReservedDump(h.reserved1, sizeof h.reserved1);
  _tr_maintainHexDump(h.reserved2, sizeof h.reserved2);
  printRecordEnd();
  return 0;
}

int openIndexFile(uint64_t base, tr_IndexFileHead* header) {
  std::memset(header, 0, sizeof *header);
  const int fd = _tr_maintainOpenDevice(DeviceMode::kReadOnly);
  if (fd == -1) return -1;
  if (_tr_maintainReadDevice(fd, base, header, sizeof *header, nullptr,
                             kSeekTitle, true) == -1) {
    return -1;
  }
  return fd;
}

bool checkIndexNumber(const char* name, uint32_t value, const char* boundName,
                      uint32_t bound) {
  if (value >= 1 && value <= bound) return true;
  errTimestamped(formatString("%s INVALID", name));
  err(" %s: %d\n", name, static_cast<int32_t>(value));
  err(" %s: %d\n", boundName, static_cast<int32_t>(bound));
  return false;
}

int readTargetAndClose(int fd, uint64_t offset, void* dest, size_t size) {
  if (_tr_maintainReadDevice(fd, offset, dest, size, "targetOffset",
                             kSeekTitle, true) == -1) {
    return -1;
  }
  return _tr_maintainCloseDevice(fd, true);
}

bool dataFileAreaFits(const tr_IndexFileHead& head, uint32_t kind,
                      uint64_t idxFileSize) {
  return dataFileAreaEnd(kind, head.maxFileNum, head.maxSegmentNum) <=
         auxRegionStart(0, idxFileSize);
}

}  // namespace tr
