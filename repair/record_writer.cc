#include "repair/record_writer.h"

#include <cerrno>
#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"

namespace tr {

RecordWriter::~RecordWriter() {
  if (fd_ != -1) _tr_maintainCloseDevice(fd_, false);
}

int RecordWriter::open() {
  fd_ = _tr_maintainOpenDevice(DeviceMode::kReadWrite);
  return fd_ == -1 ? -1 : 0;
}

int RecordWriter::flush() {
  if (run_.empty()) return 0;
  if (fd_ == -1) return -1;
  const int written =
      _tr_maintainWriteDevice(fd_, runStart_, run_.data(), run_.size(), true);
  run_.clear();
  if (written == -1) {
    fd_ = -1;  // closed by the failed write
    return -1;
  }
  ++writes_;
  return 0;
}

int RecordWriter::write(uint64_t offset, const std::string& bytes) {
  if (fd_ == -1) return -1;
  const bool follows = !run_.empty() && offset == runStart_ + run_.size() &&
                       run_.size() + bytes.size() <= kRunLimit;
  if (!follows && flush() == -1) return -1;
  if (run_.empty()) runStart_ = offset;
  run_ += bytes;
  return 0;
}

int RecordWriter::read(uint64_t offset, size_t size, std::string* bytes) {
  if (fd_ == -1) return -1;
  // What the run holds is on its way to the device: it goes first.
  if (!run_.empty() && offset < runStart_ + run_.size() &&
      runStart_ < offset + size && flush() == -1) {
    return -1;
  }
  bytes->assign(size, '\0');
  if (_tr_maintainReadDevice(fd_, offset, &(*bytes)[0], size, nullptr,
                             kReadSeekTitle, true) == -1) {
    fd_ = -1;
    return -1;
  }
  return 0;
}

int RecordWriter::finish() {
  if (fd_ == -1) return -1;
  if (flush() == -1) return -1;
  const int fd = fd_;
  fd_ = -1;
  if (sys.fsync(fd) != 0) {
    const int error = errno;
    err("[ERROR] %s: the writes could not be made durable: %s (%d)\n",
        escapedText(deviceName, kLineEscaped).c_str(), std::strerror(error),
        error);
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  return _tr_maintainCloseDevice(fd, true);
}

}  // namespace tr
