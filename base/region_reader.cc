#include "base/region_reader.h"

#include <cstring>

#include "base/device.h"

namespace tr {

RegionReader::RegionReader(size_t blockSize)
    : buffer_(blockSize), blockSize_(blockSize) {}

void RegionReader::start(int fd, uint64_t offset, uint64_t length) {
  fd_ = fd;
  next_ = offset;
  end_ = offset + length;
  head_ = 0;
  tail_ = 0;
}

const unsigned char* RegionReader::take(size_t size) {
  unsigned char* block = static_cast<unsigned char*>(buffer_.data());
  if (tail_ - head_ < size) {
    if (failed_ || size > blockSize_) return nullptr;
    // The part of a record left at the block's end moves to the front, so
    // that every record handed out lies in one piece.
    const size_t kept = tail_ - head_;
    std::memmove(block, block + head_, kept);
    head_ = 0;
    tail_ = kept;
    const uint64_t left = end_ - next_;
    const size_t want = left < blockSize_ - kept ? static_cast<size_t>(left)
                                                 : blockSize_ - kept;
    if (kept + want < size) return nullptr;
    if (_tr_maintainReadDevice(fd_, next_, block + kept, want, nullptr,
                               kSeekTitle, true) == -1) {
      failed_ = true;
      return nullptr;
    }
    next_ += want;
    tail_ += want;
    bytesRead_ += want;
  }
  const unsigned char* record = block + head_;
  head_ += size;
  return record;
}

}  // namespace tr
