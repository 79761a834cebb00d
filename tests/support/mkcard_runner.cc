#include "tests/support/mkcard_runner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tr {
namespace test {

RunResult runMkcard(const std::vector<std::string>& args) {
  std::vector<std::string> argv = {TRELLIS_MKCARD_BIN};
  argv.insert(argv.end(), args.begin(), args.end());
  return runProgram(argv, "", {});
}

namespace {

// Bytes past the end read as zero, so a short image fails the comparison
// instead of the test.
uint64_t littleEndian(const std::string& bytes, size_t at, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width && at + i < bytes.size(); ++i) {
    value |= uint64_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
  }
  return value;
}

}  // namespace

uint64_t le64(const std::string& bytes, size_t at) {
  return littleEndian(bytes, at, 8);
}

uint32_t le32(const std::string& bytes, size_t at) {
  return static_cast<uint32_t>(littleEndian(bytes, at, 4));
}

std::string readAt(const std::string& path, uint64_t offset, size_t count) {
  std::string bytes(count, '\0');
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return std::string();
  size_t done = 0;
  while (done < count) {
    const ssize_t got = ::pread(fd, &bytes[done], count - done,
                                static_cast<off_t>(offset + done));
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  ::close(fd);
  bytes.resize(done);
  return bytes;
}

std::string leBytes(uint64_t value, size_t width) {
  std::string bytes;
  for (size_t i = 0; i < width; ++i) {
    bytes.push_back(static_cast<char>(value >> (8 * i)));
  }
  return bytes;
}

uint64_t allocatedBytes(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return 0;
  return static_cast<uint64_t>(st.st_blocks) * 512;
}

}  // namespace test
}  // namespace tr
