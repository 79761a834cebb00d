#include "export/export_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

#include "base/platform.h"

namespace tr {
namespace {

// Renames without ever replacing what stands under the new name. A file
// system that cannot promise that (RENAME_NOREPLACE unknown to it) gets a
// second name made with link(), which fails on an existing name too, and
// the first one removed.
int renameNoReplace(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(),
                  RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (::link(from.c_str(), to.c_str()) != 0) return -1;
  ::unlink(from.c_str());
  return 0;
}

}  // namespace

std::string pathIn(const std::string& dir, const std::string& name) {
  if (dir.empty() || dir.back() == '/') return dir + name;
  return dir + "/" + name;
}

int syncDirectory(const std::string& dir) {
  const int fd =
      sys.openFile(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd == -1) return -1;
  const int synced = sys.fsync(fd);
  const int error = errno;
  sys.close(fd);
  errno = error;
  return synced;
}

int ExportFile::open() {
  drop();
  // A name no export uses, this process's own, made anew while taken.
  static unsigned made = 0;
  for (int tries = 0; fd_ == -1 && tries < 100; ++tries) {
    const std::string name = pathIn(
        dir_, formatString(".trellis-export-%ld-%u", static_cast<long>(::getpid()),
                           ++made));
    fd_ = sys.openFile(name.c_str(),
                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                       0666);
    if (fd_ != -1) temporary_ = name;
    if (fd_ == -1 && errno != EEXIST) return -1;
  }
  if (fd_ == -1) return -1;
  size_ = 0;
  sha256_.clear();
  hash_.hex();  // starts the hash afresh
  return 0;
}

int ExportFile::write(const void* data, size_t size) {
  const char* bytes = static_cast<const char*>(data);
  for (size_t done = 0; done < size;) {
    const ssize_t put = sys.write(fd_, bytes + done, size - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      if (put == 0) errno = EIO;
      return -1;
    }
    done += static_cast<size_t>(put);
  }
  hash_.update(data, size);
  size_ += size;
  return 0;
}

int ExportFile::keep(const std::string& name) {
  int error = 0;
  if (sys.fsync(fd_) != 0) error = errno;
  if (sys.close(fd_) != 0 && error == 0) error = errno;
  fd_ = -1;
  if (error == 0 && renameNoReplace(temporary_, pathIn(dir_, name)) != 0) {
    error = errno;
  }
  if (error != 0) {
    drop();
    errno = error;
    return -1;
  }
  temporary_.clear();
  sha256_ = hash_.hex();
  return 0;
}

void ExportFile::drop() {
  if (fd_ != -1) sys.close(fd_);
  fd_ = -1;
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
  temporary_.clear();
}

}  // namespace tr
