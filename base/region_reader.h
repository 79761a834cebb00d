// Reads a long region of the raw device in large blocks and hands it out
// record by record, for work that goes through every record of an index
// file: one read per block instead of an open, a seek and a read per
// record. Each block is one positioned read of the device protocol
// (base/device.h), so a failure looks like any other read failure. Memory
// is the one block buffer, whatever the region's length.
#ifndef TRELLIS_BASE_REGION_READER_H_
#define TRELLIS_BASE_REGION_READER_H_

#include <cstddef>
#include <cstdint>

#include "base/stream.h"

namespace tr {

class RegionReader {
 public:
  static constexpr size_t kDefaultBlockSize = 1 << 20;

  explicit RegionReader(size_t blockSize = kDefaultBlockSize);
  RegionReader(const RegionReader&) = delete;
  RegionReader& operator=(const RegionReader&) = delete;

  // False when the block buffer could not be allocated.
  bool valid() const { return buffer_.valid() && blockSize_ != 0; }

  // Starts on the `length` bytes from `offset` of the device open on `fd`.
  void start(int fd, uint64_t offset, uint64_t length);
  // The next `size` bytes of the region (size <= the block size), in one
  // piece, valid until the next call; copy a record out with memcpy.
  // Returns null when the region has fewer bytes left, or after a failed
  // read, which was reported and closed the device (see failed()).
  const unsigned char* take(size_t size);
  bool failed() const { return failed_; }
  // Bytes read from the device so far, over every region.
  uint64_t bytesRead() const { return bytesRead_; }

 private:
  HeapBuffer buffer_;
  size_t blockSize_;
  int fd_ = -1;
  uint64_t next_ = 0;  // device offset of the first byte not yet read
  uint64_t end_ = 0;   // device offset where the region ends
  size_t head_ = 0;    // first byte in the buffer not yet handed out
  size_t tail_ = 0;    // end of the bytes read into the buffer
  bool failed_ = false;
  uint64_t bytesRead_ = 0;
};

}  // namespace tr

#endif  // TRELLIS_BASE_REGION_READER_H_
