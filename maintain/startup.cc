#include "maintain/startup.h"

#include <fcntl.h>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/device_layout.h"

namespace tr {
namespace {

void capacityFailure(const char* what) {
  errTimestamped(formatString("_tr_maintainGetDeviceCapacity %s", what));
}

}  // namespace

uint64_t _tr_maintainGetDeviceCapacity(const char* path) {
  if (path == nullptr) {
    capacityFailure("deviceName is NULL");
    return 0;
  }
  // Measuring never waits: a FIFO under the name has no size and fails
  // here like any other device that cannot be measured.
  const int fd = sys.open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    capacityFailure("open failed");
    return 0;
  }
  uint64_t size = 0;
  if (deviceSize(fd, &size) == -1) {
    capacityFailure("get size failed");
    sys.close(fd);
    return 0;
  }
  sys.close(fd);
  return size;
}

uint64_t loadDeviceLayout() {
  const uint64_t capacity = _tr_maintainGetDeviceCapacity(deviceName.c_str());
  trellisHead = computeTrellisHead(capacity);
  return capacity;
}

int _tr_maintainInit() {
  const uint64_t capacity = loadDeviceLayout();
  const uint64_t reserve = _tr_maintainGetReserveSpaceSzie(capacity);
  printNumberField("deviceSize", capacity);
  printNumberField("reserveSpaceSize", reserve);
  printNumberField("idxSectorSize", reserve - kFirstIndexFileOffset);
  printNumberField("idxFileSize", trellisHead.idxFileSize);
  _tr_maintainPrintColoredField("magicWord", trellisHead.magicWord, kGreen);
  printNumberField("idxFileOffsetAV", trellisHead.idxFileOffsetAV);
  printNumberField("idxFileBackupOffsetAV", trellisHead.idxFileBackupOffsetAV);
  printNumberField("idxFileOffsetPic", trellisHead.idxFileOffsetPic);
  printNumberField("idxFileBackupOffsetPic", trellisHead.idxFileBackupOffsetPic);
  return capacity == 0 ? -1 : 0;
}

}  // namespace tr
