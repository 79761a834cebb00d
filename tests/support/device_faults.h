// Helpers for the tests of the commands that write to the device: images
// compared byte by byte, the diagnostic blocks as they must read, and a
// device whose n-th open, seek, read, write or close fails while every
// other call reaches the real image file.
#ifndef TRELLIS_TESTS_SUPPORT_DEVICE_FAULTS_H_
#define TRELLIS_TESTS_SUPPORT_DEVICE_FAULTS_H_

#include <cerrno>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "tests/support/test_support.h"

namespace tr {
namespace test {

// Offset -> (byte before, byte after) of every byte that differs (about the
// first 4096). Images of different sizes get an entry at the shorter size
// with -1 for the missing byte.
using ByteChanges = std::map<uint64_t, std::pair<int, int>>;
ByteChanges changedBytes(const std::string& before, const std::string& after);

// `text` with "@DEV" replaced by `device` and "@FD" by `fd`, for expected
// blocks written before the image path and the descriptor are known.
std::string expandBlock(std::string text, const std::string& device, int fd);

// Expected diagnostic blocks, with "<TS>" for the masked timestamp.
using Text = const std::string&;
std::string openFailedBlock(Text device, Text error);
// `offset` empty: the block has no Offset line.
std::string seekFailedBlock(Text title, Text device, Text offset, Text error);
std::string nothingMovedBlock(Text title, Text device, size_t size, Text error);
std::string shortTransferBlock(Text title, Text device, size_t size,
                               long actual);
std::string closeWarningBlock(Text device, int fd, Text warning);

enum class SysCall { kNone, kOpen, kSeek, kRead, kWrite, kClose };

// The `occurrence`-th call of kind `call` (counted from 1) fails: it
// returns `result` and leaves `error` in errno (0 leaves errno alone). A
// read or write whose result is a positive count moves that many bytes for
// real first; a failing close closes the descriptor all the same.
struct Fault {
  SysCall call = SysCall::kNone;
  int occurrence = 1;
  long result = -1;
  int error = EIO;
};

// Puts the fault into tr::sys for its lifetime and counts descriptors.
class FaultyDevice {
 public:
  explicit FaultyDevice(const Fault& fault);
  FaultyDevice(const FaultyDevice&) = delete;
  FaultyDevice& operator=(const FaultyDevice&) = delete;

  int opened() const;  // descriptors handed out
  int closed() const;  // close calls made
  int lastFd() const;  // the last descriptor handed out, or -1

 private:
  SysOverride restore_;
};

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_DEVICE_FAULTS_H_
