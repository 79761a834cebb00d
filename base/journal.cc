#include "base/journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

std::string gPath;
std::string gCommand;
bool gKeepWrites = false;
std::vector<DeviceWrite> gWrites;

std::string utcNow() {
  const time_t now = std::time(nullptr);
  struct tm parts;
  char text[32] = "";
  if (gmtime_r(&now, &parts) != nullptr) {
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  }
  return text;
}

// The one line a journal failure prints; always -1.
int journalFailure(const std::string& why) {
  err("undo journal %s: %s; nothing written to the device\n",
      escapeControlBytes(gPath).c_str(), why.c_str());
  return -1;
}

int journalFailure(const char* what, int error) {
  return journalFailure(
      formatString("%s: %s (%d)", what, std::strerror(error), error));
}

// A descriptor closed at scope end unless closed (and checked) before.
struct OwnedFd {
  int fd;
  ~OwnedFd() {
    if (fd != -1) ::close(fd);
  }
  int close() {
    const int result = ::close(fd);
    fd = -1;
    return result;
  }
};

bool readWhole(int fd, std::string* text) {
  char buffer[8192];
  text->clear();
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got == 0) return true;
    if (got < 0 && errno != EINTR) return false;
    if (got > 0) text->append(buffer, static_cast<size_t>(got));
  }
}

bool writeWhole(int fd, const std::string& text, off_t at) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t put = ::pwrite(fd, text.data() + done, text.size() - done,
                                 at + static_cast<off_t>(done));
    if (put <= 0 && errno != EINTR) return false;
    if (put > 0) done += static_cast<size_t>(put);
  }
  return true;
}

// The directory entry of a journal just created is durable only once its
// directory is.
bool syncDirectory(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "."
                          : slash == 0               ? "/"
                                                     : path.substr(0, slash);
  OwnedFd holder{::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  return holder.fd != -1 && ::fsync(holder.fd) == 0 && holder.close() == 0;
}

// Opens the journal, creating it when missing, and locks it against other
// consoles appending. Refuses anything but a regular file other than the
// device. The descriptor, or -1 after the report.
int openJournal(int deviceFd, bool* created) {
  int fd = ::open(gPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  *created = fd != -1;
  if (fd == -1 && errno == EEXIST) {
    fd = ::open(gPath.c_str(), O_RDWR | O_CLOEXEC);
  }
  if (fd == -1) return journalFailure("cannot open it", errno);
  OwnedFd holder{fd};
  struct stat journal;
  struct stat device;
  if (::fstat(fd, &journal) != 0 || !S_ISREG(journal.st_mode)) {
    return journalFailure("it is not a regular file");
  }
  if (sys.fstat(deviceFd, &device) == 0 && journal.st_dev == device.st_dev &&
      journal.st_ino == device.st_ino) {
    return journalFailure("it is the device itself");
  }
  if (::flock(fd, LOCK_EX) != 0) return journalFailure("cannot lock it", errno);
  holder.fd = -1;
  return fd;
}

// Checks what the journal holds before a record is added to it: whole
// records of a device of `size` bytes, a torn last record dropped.
int prepareAppend(int fd, uint64_t size, JournalContents* contents) {
  std::string text;
  std::string error;
  if (!readWhole(fd, &text)) return journalFailure("cannot read it", errno);
  if (parseJournal(text, contents, &error) == -1) return journalFailure(error);
  if (checkJournalDevice(*contents, size, &error) == -1) {
    return journalFailure(error);
  }
  if (contents->tornTail) {
    err("undo journal %s: the incomplete record at its end (from byte %zu) "
        "is replaced\n",
        escapeControlBytes(gPath).c_str(), contents->wholeLength);
    if (::ftruncate(fd, static_cast<off_t>(contents->wholeLength)) != 0) {
      return journalFailure("cannot cut off that record", errno);
    }
  }
  return 0;
}

int appendRecord(int deviceFd, const DeviceWrite& write) {
  uint64_t size = 0;
  if (deviceSize(deviceFd, &size) == -1) {
    return journalFailure("cannot measure the device", errno);
  }
  bool created = false;
  OwnedFd journal{openJournal(deviceFd, &created)};
  if (journal.fd == -1) return -1;
  JournalContents contents;
  if (prepareAppend(journal.fd, size, &contents) == -1) return -1;

  JournalRecord record;
  record.number = static_cast<uint32_t>(contents.records.size() + 1);
  record.device = escapeControlBytes(deviceName);
  record.deviceSize = size;
  record.offset = write.offset;
  record.time = utcNow();
  record.command = escapeControlBytes(gCommand);
  record.before = write.before;
  record.after = write.after;
  const std::string text =
      (contents.wholeLength == 0 ? kJournalMagic : "") +
      formatJournalRecord(record);
  const off_t end = static_cast<off_t>(contents.wholeLength);
  if (!writeWhole(journal.fd, text, end) || ::fsync(journal.fd) != 0) {
    const int error = errno;
    // A record that may be partly on disk is taken back, so the journal
    // ends with whole records; if that fails too, the next append or a
    // restore recognises the torn record.
    const int ignored = ::ftruncate(journal.fd, end);
    (void)ignored;
    return journalFailure("cannot append the record", error);
  }
  if (created && !syncDirectory(gPath)) {
    return journalFailure("cannot make its directory entry durable", errno);
  }
  if (journal.close() != 0) return journalFailure("cannot close it", errno);
  return 0;
}

}  // namespace

int readJournalFile(const std::string& path, JournalContents* contents,
                    std::string* error) {
  OwnedFd journal{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  struct stat st;
  std::string text;
  const char* failed = nullptr;
  if (journal.fd == -1) {
    failed = "cannot open it";
  } else if (::fstat(journal.fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    *error = "it is not a regular file";
    return -1;
  } else if (::flock(journal.fd, LOCK_SH) != 0) {
    failed = "cannot lock it";
  } else if (!readWhole(journal.fd, &text)) {
    failed = "cannot read it";
  }
  if (failed != nullptr) {
    *error = formatString("%s: %s (%d)", failed, std::strerror(errno), errno);
    return -1;
  }
  return parseJournal(text, contents, error);
}

void setJournalPath(const std::string& path) { gPath = path; }
const std::string& journalPath() { return gPath; }

void beginDeviceCommand(const std::string& line) {
  gCommand = line;
  gWrites.clear();
}

void setKeepDeviceWrites(bool keep) { gKeepWrites = keep; }
bool deviceWritesNoted() { return gKeepWrites || !gPath.empty(); }
const std::vector<DeviceWrite>& deviceWrites() { return gWrites; }

int noteDeviceWrite(int fd, uint64_t offset, const std::string& before,
                    const void* after, size_t size) {
  DeviceWrite write{offset, before,
                    std::string(static_cast<const char*>(after), size)};
  if (!gPath.empty() && appendRecord(fd, write) == -1) return -1;
  if (gKeepWrites) gWrites.push_back(std::move(write));
  return 0;
}

}  // namespace tr
