#include "maintain/startup.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "maintain/output.h"
#include "maintain/platform.h"

namespace tr {

tr_TrellisHead trellisHead;

namespace {

void capacityFailure(const char* what) {
  char stamp[64];
  _tr_maintainGetColoredTimestamp(stamp, sizeof stamp);
  err("%s \033[31m_tr_maintainGetDeviceCapacity %s\033[0m\n", stamp, what);
}

void printNumber(const char* label, uint64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%llu",
                static_cast<unsigned long long>(value));
  _tr_maintainPrintColoredField(label, text, kGreen);
}

}  // namespace

uint64_t _tr_maintainGetDeviceCapacity(const char* path) {
  if (path == nullptr) {
    capacityFailure("deviceName is NULL");
    return 0;
  }
  const int fd = sys.open(path, O_RDONLY);
  if (fd < 0) {
    capacityFailure("open failed");
    return 0;
  }
  uint64_t size = 0;
  struct stat st;
  if (sys.fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    size = static_cast<uint64_t>(st.st_size);
  } else if (sys.blockDeviceSize(fd, &size) == -1) {
    capacityFailure("get size failed");
    sys.close(fd);
    return 0;
  }
  sys.close(fd);
  return size;
}

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

int _tr_maintainInit() {
  const uint64_t capacity = _tr_maintainGetDeviceCapacity(deviceName.c_str());
  const uint64_t reserve = _tr_maintainGetReserveSpaceSzie(capacity);
  printNumber("deviceSize", capacity);
  printNumber("reserveSpaceSize", reserve);
  trellisHead = computeTrellisHead(capacity);
  printNumber("idxSectorSize", reserve - kFirstIndexFileOffset);
  printNumber("idxFileSize", trellisHead.idxFileSize);
  _tr_maintainPrintColoredField("magicWord", trellisHead.magicWord, kGreen);
  printNumber("idxFileOffsetAV", trellisHead.idxFileOffsetAV);
  printNumber("idxFileBackupOffsetAV", trellisHead.idxFileBackupOffsetAV);
  printNumber("idxFileOffsetPic", trellisHead.idxFileOffsetPic);
  printNumber("idxFileBackupOffsetPic", trellisHead.idxFileBackupOffsetPic);
  return 0;
}

}  // namespace tr
