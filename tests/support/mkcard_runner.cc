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

std::string readAt(const std::string& path, uint64_t offset, size_t count) {
  std::string bytes(count, '\0');
  const int fd = ::open(path.c_str(), O_RDONLY);
  size_t done = 0;
  while (fd >= 0 && done < count) {
    const ssize_t got = ::pread(fd, &bytes[done], count - done,
                                static_cast<off_t>(offset + done));
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  if (fd >= 0) ::close(fd);
  bytes.resize(done);
  return bytes;
}

std::string leBytes(uint64_t value, size_t width) {
  std::string bytes;
  for (size_t i = 0; i < width; ++i) bytes += static_cast<char>(value >> 8 * i);
  return bytes;
}

uint64_t le(const std::string& bytes, size_t at, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width && at + i < bytes.size(); ++i) {
    value |= uint64_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
  }
  return value;
}

uint64_t allocatedBytes(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? uint64_t(st.st_blocks) * 512 : 0;
}

}  // namespace test
}  // namespace tr
