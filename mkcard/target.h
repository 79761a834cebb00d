// What the builder writes the card to: an image file, created sparse at the
// card's size, or a card's block device used whole. Nothing that exists is
// written over without --force: not a non-empty image, not any block device.
// Every write is a positioned 64-bit write, so the card's layout never
// depends on a file position.
#ifndef TRELLIS_MKCARD_TARGET_H_
#define TRELLIS_MKCARD_TARGET_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "mkcard/options.h"

namespace tr {

struct TargetInfo {
  std::string path;
  bool exists = false;
  bool blockDevice = false;
  uint64_t capacity = 0;  // the card's size in bytes
};

// Applies the force rule and measures the card; writes nothing. Returns 0,
// or -1 after printing why the target cannot be used.
int inspectTarget(const MkcardOptions& options, TargetInfo* info);

// Writes `size` bytes at `offset` of `fd`, whole, with positioned writes.
// Returns 0, or -1 after a message naming `path`.
int writeWholeAt(int fd, const std::string& path, uint64_t offset,
                 const void* data, size_t size);

class CardTarget {
 public:
  CardTarget() = default;
  // Closes the target; an image this run created is removed again unless
  // commit() succeeded, so a failed run leaves no half-written card behind.
  ~CardTarget();
  CardTarget(const CardTarget&) = delete;
  CardTarget& operator=(const CardTarget&) = delete;

  // Opens the target for writing. An image file is created, or emptied, and
  // given the card's size as a sparse file. 0 or -1 after a message.
  int open(const TargetInfo& info);
  // True when every byte not written yet reads as zero (a new or emptied
  // image): records that are all zero then need no write.
  bool zeroed() const { return zeroed_; }
  // Writes `size` bytes at `offset`, whole. 0 or -1 after a message.
  int writeAt(uint64_t offset, const void* data, size_t size);
  // Flushes the card to its storage and closes it. 0 or -1 after a message.
  int commit();

 private:
  std::string path_;
  int fd_ = -1;
  bool zeroed_ = false;
  bool created_ = false;
  bool committed_ = false;
};

}  // namespace tr

#endif  // TRELLIS_MKCARD_TARGET_H_
