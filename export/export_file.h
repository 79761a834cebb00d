// One file of an export. It is written under a temporary name in the
// export directory, every byte hashed on its way, made durable, and only
// then given its name, which must not exist yet: a file under its name is
// always whole, and nothing that stood there is ever replaced. Until it is
// kept the temporary file is removed again at scope end, so a failure or
// an interruption leaves nothing behind.
#ifndef TRELLIS_EXPORT_EXPORT_FILE_H_
#define TRELLIS_EXPORT_EXPORT_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/digest.h"

namespace tr {

class ExportFile {
 public:
  explicit ExportFile(const std::string& dir) : dir_(dir) {}
  ~ExportFile() { drop(); }
  ExportFile(const ExportFile&) = delete;
  ExportFile& operator=(const ExportFile&) = delete;

  // Creates the temporary file. 0, or -1 with errno.
  int open();
  bool isOpen() const { return fd_ != -1; }
  // Appends `size` bytes. 0, or -1 with errno.
  int write(const void* data, size_t size);
  uint64_t size() const { return size_; }
  // Flushes the file to disk, closes it and names it `name` in the
  // directory. 0, or -1 with errno (EEXIST: the name is taken) and the
  // temporary file removed. Its SHA-256 is then sha256().
  int keep(const std::string& name);
  const std::string& sha256() const { return sha256_; }
  // Removes the temporary file, if there is one.
  void drop();

 private:
  std::string dir_;
  std::string temporary_;
  int fd_ = -1;
  uint64_t size_ = 0;
  Sha256 hash_;
  std::string sha256_;
};

// The path of `name` in `dir`.
std::string pathIn(const std::string& dir, const std::string& name);
// Makes the names made in `dir` durable. 0, or -1 with errno.
int syncDirectory(const std::string& dir);

}  // namespace tr

#endif  // TRELLIS_EXPORT_EXPORT_FILE_H_
