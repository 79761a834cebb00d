#include "base/device.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

bool gReadOnly = false;
WriteWatcher gWatcher = nullptr;

void printDevice() { err("  Device: %s\n", deviceName.c_str()); }

void printError(int error) { err("  Error: %s (%d)\n\n", strerror(error), error); }

void reportSeekFailure(const char* title, uint64_t offset, bool showOffset,
                       int error) {
  printDiagnosticTitle(kRed, title);
  printDevice();
  if (showOffset) {
    err("  Offset: 0x%016llx\n", static_cast<unsigned long long>(offset));
  }
  printError(error);
}

// A transfer that moved nothing reports the error; any other wrong count
// (-1 included) reports the count.
void reportTransferFailure(const char* nothingTitle, const char* shortTitle,
                           size_t size, ssize_t moved, int error) {
  if (moved == 0) {
    printDiagnosticTitle(kRed, nothingTitle);
    printDevice();
    err("  Requested: %zu bytes\n", size);
    printError(error);
  } else {
    printDiagnosticTitle(kRed, shortTitle);
    printDevice();
    err("  Expected: %zu bytes\n", size);
    err("  Actual: %zd bytes\n\n", moved);
  }
}

bool seekTo(int fd, uint64_t offset) {
  // An offset past the signed 64-bit range cannot be reached.
  if (offset > static_cast<uint64_t>(INT64_MAX)) {
    errno = EINVAL;
    return false;
  }
  return sys.lseek(fd, static_cast<int64_t>(offset)) != -1;
}

// A FIFO under the device's name would block every read; anything else
// (a block device, a card image, a character device) is used as found.
// A writer takes the device for itself: two consoles changing one header
// would each write back what it read and undo the other's change.
int checkOpenedDevice(int fd, DeviceMode mode) {
  struct stat st;
  const bool examined = sys.fstat(fd, &st) == 0;
  if (examined && S_ISFIFO(st.st_mode)) {
    printDiagnosticTitle(kRed, "OPEN FAILED");
    printDevice();
    err("  Error: it is a FIFO\n\n");
    return -1;
  }
  // A character device's reads wait for data as they always have; a disk
  // or a card image takes no notice of O_NONBLOCK.
  if (!examined || S_ISCHR(st.st_mode)) sys.makeBlocking(fd);
  if (mode == DeviceMode::kReadWrite &&
      sys.flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    if (error == EWOULDBLOCK) {
      err("[ERROR] %s is busy: another console or card builder is changing "
          "it; nothing was written\n",
          deviceName.c_str());
    } else {
      err("[ERROR] %s cannot be locked for writing (%s); nothing was "
          "written\n",
          deviceName.c_str(), strerror(error));
    }
    return -1;
  }
  return 0;
}

// Reads what the write about to be made replaces and shows it to the
// watcher.
int watchWrite(int fd, uint64_t offset, const void* buffer, size_t size,
               bool showOffset) {
  std::string before(size, '\0');
  if (_tr_maintainReadDevice(fd, offset, &before[0], size, nullptr,
                             kReadSeekTitle, showOffset) == -1) {
    return -1;
  }
  if (gWatcher(fd, offset, before, buffer, size) == -1) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  return 0;
}

}  // namespace

void setReadOnly(bool readOnly) { gReadOnly = readOnly; }
void setWriteWatcher(WriteWatcher watcher) { gWatcher = watcher; }
bool readOnly() { return gReadOnly; }

void reportReadOnly(const std::string& what) {
  err("%s: not written: the console is read-only (-r or TRELLIS_READ_ONLY); "
      "start it without them to write\n",
      what.c_str());
}

int _tr_maintainOpenDevice(DeviceMode mode) {
  const bool write = mode == DeviceMode::kReadWrite;
  // The dispatcher refuses writing commands first; this keeps any other
  // path from reaching a writable descriptor.
  int fd = -1;
  if (write && gReadOnly) {
    errno = EROFS;
  } else {
    // Not blocking on the open either: a FIFO without a writer would hang
    // it.
    fd = sys.open(deviceName.c_str(), (write ? O_RDWR : O_RDONLY) |
                                          O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }
  if (fd > 0) {
    if (checkOpenedDevice(fd, mode) == 0) return fd;
    sys.close(fd);
    return -1;
  }
  const int error = errno;
  // Descriptor 0 only comes back when standard input was closed; it is not
  // used, but it is not kept either.
  if (fd == 0) sys.close(fd);
  printDiagnosticTitle(kRed, "OPEN FAILED");
  printDevice();
  printError(error);
  return -1;
}

int _tr_maintainReadDevice(int fd, uint64_t offset, void* buffer, size_t size,
                           const char* offsetLabel, const char* seekTitle,
                           bool showOffset) {
  if (offsetLabel != nullptr) {
    char value[32];
    std::snprintf(value, sizeof value, "%llu",
                  static_cast<unsigned long long>(offset));
    _tr_maintainPrintColoredField(offsetLabel, value, kGreen);
  }
  if (!seekTo(fd, offset)) {
    reportSeekFailure(seekTitle, offset, showOffset, errno);
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  errno = 0;  // a read that ends at the device's end sets no error
  const ssize_t got = sys.read(fd, buffer, size);
  if (got != static_cast<ssize_t>(size)) {
    reportTransferFailure("READ FAILED", "INCOMPLETE READ", size, got, errno);
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  return 0;
}

int _tr_maintainWriteDevice(int fd, uint64_t offset, const void* buffer,
                            size_t size, bool showOffset) {
  if (gWatcher != nullptr &&
      watchWrite(fd, offset, buffer, size, showOffset) == -1) {
    return -1;
  }
  if (!seekTo(fd, offset)) {
    reportSeekFailure(kWriteSeekTitle, offset, showOffset, errno);
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  errno = 0;
  const ssize_t put = sys.write(fd, buffer, size);
  if (put != static_cast<ssize_t>(size)) {
    reportTransferFailure("WRITE FAILED", "INCOMPLETE WRITE", size, put, errno);
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  return 0;
}

int deviceSize(int fd, uint64_t* bytes) {
  struct stat st;
  if (sys.fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    *bytes = static_cast<uint64_t>(st.st_size);
    return 0;
  }
  return sys.blockDeviceSize(fd, bytes) == -1 ? -1 : 0;
}

std::string deviceUnusable(const std::string& path, uint64_t* bytes) {
  const int fd =
      sys.open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return strerror(errno);
  struct stat st;
  std::string why;
  if (sys.fstat(fd, &st) != 0) {
    why = strerror(errno);
  } else if (S_ISDIR(st.st_mode)) {
    why = "a directory, not a card or a card image";
  } else if (S_ISFIFO(st.st_mode)) {
    why = "a FIFO, not a card or a card image";
  } else if (S_ISSOCK(st.st_mode)) {
    why = "a socket, not a card or a card image";
  } else if (S_ISCHR(st.st_mode)) {
    why = "a character device, not a card or a card image";
  } else if (deviceSize(fd, bytes) != 0) {
    why = strerror(errno);
  } else if (*bytes == 0) {
    why = "empty: it holds no card";
  }
  sys.close(fd);
  return why;
}

int measureDevice(int fd, uint64_t* bytes) {
  if (deviceSize(fd, bytes) == 0) return 0;
  const int error = errno;
  printDiagnosticTitle(kRed, "SIZE FAILED");
  printDevice();
  printError(error);
  _tr_maintainCloseDevice(fd, false);
  return -1;
}

int _tr_maintainCloseDevice(int fd, bool warn) {
  const int result = sys.close(fd);
  if (!warn || result == 0) return 0;
  const int error = errno;
  printDiagnosticTitle(kYellow, "CLOSE WARNING");
  printDevice();
  err("  FD: %d\n", fd);
  err("  Warning: %s (%d)\n", strerror(error), error);
  err("  Possible file descriptor leak!\n\n");
  return -1;
}

}  // namespace tr
