#include "format/card.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cinttypes>
#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/data_files.h"
#include "format/device_layout.h"
#include "format/index_layout.h"

namespace tr {

CardSession::~CardSession() {
  if (fd_ != -1) _tr_maintainCloseDevice(fd_, false);
}

int CardSession::open() {
  fd_ = _tr_maintainOpenDevice(DeviceMode::kReadOnly);
  if (fd_ == -1) return -1;
  if (measureDevice(fd_, &capacity_) == -1) {
    fd_ = -1;
    return -1;
  }
  layout_ = computeTrellisHead(capacity_);
  noteWrongDevice();
  return 0;
}

void CardSession::noteWrongDevice() const {
  tr_TrellisHead found = {};
  const bool read = sys.lseek(fd_, kTrellisHeadOffset) >= 0 &&
                    sys.read(fd_, &found, sizeof found) ==
                        static_cast<ssize_t>(sizeof found);
  // The fields the size decides; the flags and sector sizes are the
  // recorder's own.
  if (read &&
      std::memcmp(found.magicWord, layout_.magicWord,
                  sizeof found.magicWord) == 0 &&
      found.idxFileOffsetAV == layout_.idxFileOffsetAV &&
      found.idxFileBackupOffsetAV == layout_.idxFileBackupOffsetAV &&
      found.idxFileOffsetPic == layout_.idxFileOffsetPic &&
      found.idxFileBackupOffsetPic == layout_.idxFileBackupOffsetPic &&
      found.idxFileSize == layout_.idxFileSize) {
    return;
  }
  struct stat st;
  const std::string disk = sys.fstat(fd_, &st) == 0 && S_ISBLK(st.st_mode)
                               ? diskOfPartition(st.st_rdev)
                               : "";
  const std::string device = escapedText(deviceName, kLineEscaped);
  if (!disk.empty()) {
    err("trellis-maintain: %s: its storage head is not the one of its size: "
        "it is a partition of %s; the whole device was expected (-d %s)\n",
        device.c_str(), disk.c_str(), disk.c_str());
  } else if (!indexFilesHoldTheirRegions()) {
    err("trellis-maintain: %s: its storage head is not the one of its size, "
        "and %" PRIu64 " bytes is smaller than any card; the whole device "
        "was expected\n",
        device.c_str(), capacity_);
  }
}

int CardSession::close() {
  const int fd = fd_;
  fd_ = -1;
  return _tr_maintainCloseDevice(fd, true);
}

uint64_t CardSession::base(const IndexFileDef& file) const {
  return indexFileStart(file, layout_);
}

bool CardSession::indexFilesHoldTheirRegions() const {
  // A reserve short of the first index file wraps the sizes around.
  return _tr_maintainGetReserveSpaceSzie(capacity_) >= kFirstIndexFileOffset &&
         layout_.idxFileSize >= kIndexFileHeadSize + kAuxRegionSize;
}

int CardSession::read(uint64_t offset, void* dest, size_t size) {
  if (_tr_maintainReadDevice(fd_, offset, dest, size, nullptr, kSeekTitle,
                             true) == -1) {
    fd_ = -1;
    return -1;
  }
  return 0;
}

std::string DataFileSizes::name(uint32_t kind, uint32_t fileNum) {
  return dataFileName(static_cast<int>(fileNum), kind == kRecordKind
                                                     ? kRecordDataSuffix
                                                     : kPictureDataSuffix);
}

bool DataFileSizes::size(uint32_t kind, uint32_t fileNum, uint64_t* bytes) {
  if (kind != kind_ || fileNum != fileNum_) {
    kind_ = kind;
    fileNum_ = fileNum;
    held_ = false;
    // Never waits on a FIFO under the name; only a regular file counts.
    const int fd = sys.open(mediaPath(name(kind, fileNum)).c_str(),
                            O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat st;
    if (fd >= 0 && sys.fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
      held_ = true;
      bytes_ = static_cast<uint64_t>(st.st_size);
    }
    if (fd >= 0) sys.close(fd);
    ++(held_ ? found_ : missing_);
  }
  *bytes = bytes_;
  return held_;
}

}  // namespace tr
