// Holders for the streams and heap blocks of the data files on the card's
// file system and of the files media are copied into. Every call goes
// through tr::sys, so a test can make any one of them fail.
#ifndef TRELLIS_BASE_STREAM_H_
#define TRELLIS_BASE_STREAM_H_

#include <cstddef>
#include <cstdio>
#include <string>

namespace tr {

// An open stream, closed at scope end if the owner has not closed it. The
// owner closes explicitly, in the order it needs, and checks the result
// where a failing close means lost data.
class Stream {
 public:
  Stream() : file_(nullptr) {}
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // Takes `fd` over as a stream in `mode` (sys.fdopen). Returns false, fd
  // closed, when no stream could be made.
  bool adopt(int fd, const char* mode);
  bool isOpen() const { return file_ != nullptr; }
  FILE* get() const { return file_; }
  // Every write goes straight to the file system, so a failing write shows
  // in the fwrite that made it rather than at some later flush.
  void unbuffered();
  // sys.fclose; 0, or EOF with errno set. Closing twice is a no-op.
  int close();

 private:
  FILE* file_;
};

// Opens the data file at `path` for reading into `stream`. Only a regular
// file is read: a FIFO, device or directory under the name is refused
// without waiting on it. Returns false after one "[ERROR]" line.
bool openDataFile(const std::string& path, Stream* stream);

// A heap block from sys.malloc, freed with sys.free. A block of 0 bytes is
// never requested: it is valid and empty whatever the allocator would do.
class HeapBuffer {
 public:
  explicit HeapBuffer(size_t size);
  ~HeapBuffer();
  HeapBuffer(const HeapBuffer&) = delete;
  HeapBuffer& operator=(const HeapBuffer&) = delete;

  bool valid() const { return size_ == 0 || data_ != nullptr; }
  void* data() const { return data_; }
  void release();

 private:
  size_t size_;
  void* data_;
};

}  // namespace tr

#endif  // TRELLIS_BASE_STREAM_H_
