// The file an extraction copies media into, under its name in the output
// directory (the media directory unless -o names another). A read-only
// console never writes into the media directory. Only a new file or an
// existing regular file is ever written: the name is opened without
// following a symbolic link and without waiting on a FIFO, and whatever
// else stands there (a link, a FIFO, a device, a directory, or a second
// name of the data file being copied or of the card's device) is refused
// before a byte is written. An existing regular file is replaced.
#ifndef TRELLIS_EXTRACT_OUTPUT_FILE_H_
#define TRELLIS_EXTRACT_OUTPUT_FILE_H_

#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "base/stream.h"

namespace tr {

class OutputFile {
 public:
  explicit OutputFile(const std::string& path) : path_(path) {}
  // Closes the file, if still open, and keeps it.
  ~OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // A failed open that is not a refusal (no room, no permission) is
  // reported by the extraction in its own words.
  using OpenFailure = void (*)(const std::string& path, int error);

  // Opens the file for a copy of `source`, emptied and unbuffered. Returns
  // 0, or -1 after one "[ERROR]" line: the refusal naming what stands under
  // the name, or `failure`'s. A file this call created is removed again on
  // failure; nothing else is touched.
  int open(const Stream& source, OpenFailure failure);
  FILE* get() const { return stream_.get(); }
  // sys.fclose; 0, or EOF with errno set.
  int close() { return stream_.close(); }
  // Closes the file and removes it, when the name still leads to it, so
  // that an interrupted or cut-short copy leaves nothing behind.
  void discard();

 private:
  int refuse(const char* what);

  std::string path_;
  Stream stream_;
  struct stat st_ = {};
};

}  // namespace tr

#endif  // TRELLIS_EXTRACT_OUTPUT_FILE_H_
