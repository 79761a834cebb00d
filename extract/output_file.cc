#include "extract/output_file.h"

#include <fcntl.h>

#include <cerrno>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// What stands under `path` when it is not a regular file, or null.
const char* specialKind(const std::string& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return nullptr;
  return fileKindText(st.st_mode);
}

}  // namespace

int OutputFile::refuse(const char* what) {
  err("[ERROR] Will not write %s: it is %s\n", path_.c_str(), what);
  return -1;
}

int OutputFile::open(const Stream& source, OpenFailure failure) {
  // The media directory is the card's own file system: a read-only
  // console leaves it as it found it.
  if (readOnly() && outputIntoMediaDir()) {
    err("[ERROR] Will not write %s: the console is read-only (-r) and this "
        "is the card's media directory; name another with -o DIR\n",
        path_.c_str());
    return -1;
  }
  // O_EXCL first, so the file is known to be this call's own when it has
  // to go again; then an existing name, never through a link.
  constexpr int kFlags =
      O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  int fd = sys.openFile(path_.c_str(), kFlags | O_CREAT | O_EXCL, 0666);
  const bool created = fd >= 0;
  if (!created && errno == EEXIST) fd = sys.openFile(path_.c_str(), kFlags, 0);
  if (fd < 0) {
    const int error = errno;
    if (const char* kind = specialKind(path_)) return refuse(kind);
    failure(path_, error);
    return -1;
  }
  const char* refusal = nullptr;
  struct stat sourceSt;
  struct stat deviceSt;
  int error = 0;
  if (sys.fstat(fd, &st_) != 0) {
    error = errno;
  } else if (!S_ISREG(st_.st_mode)) {
    refusal = fileKindText(st_.st_mode);
  } else if (sys.fstat(fileno(source.get()), &sourceSt) == 0 &&
             sameFile(st_, sourceSt)) {
    refusal = "the data file being copied";
  } else if (::stat(deviceName.c_str(), &deviceSt) == 0 &&
             sameFile(st_, deviceSt)) {
    refusal = "the card's device";
  } else if (sys.makeBlocking(fd) != 0 || sys.ftruncate(fd, 0) != 0) {
    error = errno;
  } else if (stream_.adopt(fd, "wb")) {
    stream_.unbuffered();
    return 0;
  } else {
    fd = -1;  // closed by adopt()
    error = errno;
  }
  if (fd >= 0) sys.close(fd);
  if (created) sys.unlink(path_.c_str());
  if (refusal != nullptr) return refuse(refusal);
  failure(path_, error);
  return -1;
}

void OutputFile::discard() {
  stream_.close();
  struct stat st;
  if (::lstat(path_.c_str(), &st) == 0 && sameFile(st, st_)) {
    sys.unlink(path_.c_str());
  }
}

}  // namespace tr
