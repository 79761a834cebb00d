#include "base/stream.h"

#include "base/platform.h"

namespace tr {

Stream::Stream(const std::string& path, const char* mode)
    : file_(sys.fopen(path.c_str(), mode)) {}

Stream::~Stream() { close(); }

void Stream::unbuffered() {
  if (file_ != nullptr) std::setvbuf(file_, nullptr, _IONBF, 0);
}

int Stream::close() {
  if (file_ == nullptr) return 0;
  FILE* file = file_;
  file_ = nullptr;
  return sys.fclose(file);
}

HeapBuffer::HeapBuffer(size_t size)
    : size_(size), data_(size == 0 ? nullptr : sys.malloc(size)) {}

HeapBuffer::~HeapBuffer() { release(); }

void HeapBuffer::release() {
  if (data_ != nullptr) sys.free(data_);
  data_ = nullptr;
}

}  // namespace tr
