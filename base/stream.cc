#include "base/stream.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/output.h"
#include "base/platform.h"

namespace tr {

Stream::~Stream() { close(); }

bool Stream::adopt(int fd, const char* mode) {
  close();
  file_ = sys.fdopen(fd, mode);
  if (file_ != nullptr) return true;
  const int error = errno;
  sys.close(fd);
  errno = error;
  return false;
}

void Stream::unbuffered() {
  if (file_ != nullptr) std::setvbuf(file_, nullptr, _IONBF, 0);
}

int Stream::close() {
  if (file_ == nullptr) return 0;
  FILE* file = file_;
  file_ = nullptr;
  return sys.fclose(file);
}

bool openDataFile(const std::string& path, Stream* stream) {
  const int fd =
      sys.openFile(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0);
  struct stat st;
  const bool examined = fd >= 0 && sys.fstat(fd, &st) == 0;
  if (examined && !S_ISREG(st.st_mode)) {
    err("[ERROR] Will not read %s: it is %s\n", path.c_str(),
        fileKindText(st.st_mode));
    sys.close(fd);
    return false;
  }
  if (!examined || sys.makeBlocking(fd) != 0) {
    if (fd >= 0) sys.close(fd);
  } else if (stream->adopt(fd, "rb")) {
    return true;
  }
  err("[ERROR] Failed to open source file: %s\n", path.c_str());
  return false;
}

HeapBuffer::HeapBuffer(size_t size)
    : size_(size), data_(size == 0 ? nullptr : sys.malloc(size)) {}

HeapBuffer::~HeapBuffer() { release(); }

void HeapBuffer::release() {
  if (data_ != nullptr) sys.free(data_);
  data_ = nullptr;
}

}  // namespace tr
