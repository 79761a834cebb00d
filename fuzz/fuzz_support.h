// Shared pieces of the libFuzzer harnesses: a scratch directory for card
// images and data files, console output thrown away, a bounded heap, and a
// reader that takes typed values from the fuzzer's bytes.
#ifndef TRELLIS_FUZZ_FUZZ_SUPPORT_H_
#define TRELLIS_FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace tr {
namespace fuzz {

// A directory of the harness's own under $TMPDIR (or /tmp), made once per
// process.
const std::string& scratchDir();
std::string scratchFile(const std::string& name);

// Sends standard output to /dev/null: the printers run on every input and
// their text is not looked at. Standard error stays, since libFuzzer and the
// sanitizers report there; run the harnesses with -close_fd_mask=3 (as the
// make targets do) to silence the console's diagnostics too.
void silenceStdout();

// Heap requests above this fail in tr::sys.malloc, as they would on the
// recorder: a picture size read from a damaged card may claim 4 GiB.
constexpr size_t kHeapLimit = 64u << 20;
void boundHeap();

// Counts the descriptors, streams and heap blocks taken through tr::sys,
// on top of whatever entries are installed when it is called (call it
// last). checkReturned() aborts, like a sanitizer report, when any of them
// was not given back, and when something not handed out is given back.
void trackResources();
void checkReturned(const char* after);

// A file of `size` bytes, sparse, holding zeros; made or resized in place.
void sizeFile(const std::string& path, uint64_t size);
// Writes `count` bytes at `offset` of an existing file.
void putBytes(const std::string& path, uint64_t offset, const void* bytes,
              size_t count);

// Takes values from the front of the fuzzer's data; past its end every
// value is 0 and every byte run empty.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t u8() { return take<uint8_t>(); }
  uint32_t u32() { return take<uint32_t>(); }
  uint64_t u64() { return take<uint64_t>(); }
  int32_t i32() { return static_cast<int32_t>(u32()); }
  // Copies up to `count` bytes into `dest`; returns how many were copied.
  size_t copy(void* dest, size_t count);
  size_t left() const { return size_; }
  const uint8_t* rest() const { return data_; }

 private:
  template <typename T>
  T take() {
    T value = 0;
    const size_t n = size_ < sizeof value ? size_ : sizeof value;
    std::memcpy(&value, data_, n);
    data_ += n;
    size_ -= n;
    return value;
  }

  const uint8_t* data_;
  size_t size_;
};

}  // namespace fuzz
}  // namespace tr

#endif  // TRELLIS_FUZZ_FUZZ_SUPPORT_H_
