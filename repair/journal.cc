// The journal as the writes of a session keep it: the watcher of device
// writes, the journal held open by one command, and the records appended.
#include "repair/journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

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
// Set at a terminal: the first write without a journal is announced, once.
bool gWarnUnjournalled = false;
std::vector<DeviceWrite> gWrites;

// The journal as the current command holds it: open from its first write
// to its end.
struct OpenJournal {
  int fd = -1;
  uint64_t deviceSize = 0;
  uint32_t records = 0;
  uint64_t end = 0;      // where the next record goes
  bool created = false;  // by this command: its directory entry is new
  bool entryDurable = false;
};
OpenJournal gJournal;

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
      escapedText(gPath, kLineEscaped).c_str(), why.c_str());
  return -1;
}

int journalFailure(const char* what, int error) {
  return journalFailure(
      formatString("%s: %s (%d)", what, std::strerror(error), error));
}

void closeJournal() {
  if (gJournal.fd != -1) sys.close(gJournal.fd);
  gJournal = OpenJournal();
}

bool writeWhole(int fd, const std::string& text, uint64_t at) {
  if (sys.lseek(fd, static_cast<int64_t>(at)) == -1) return false;
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t put = sys.write(fd, text.data() + done, text.size() - done);
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
  const int fd =
      sys.openFile(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd == -1) return false;
  const bool synced = sys.fsync(fd) == 0;
  return sys.close(fd) == 0 && synced;
}

// Opens the journal for the current command, creating it when missing,
// locked against other consoles and read through once: whole records of a
// device of the open device's size, a torn last record cut off. Refuses
// anything but a regular file other than the device. 0, or -1 after the
// report.
int openJournal(int deviceFd) {
  OpenJournal journal;
  if (deviceSize(deviceFd, &journal.deviceSize) == -1) {
    return journalFailure("cannot measure the device", errno);
  }
  constexpr int kFlags = O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  int fd = sys.openFile(gPath.c_str(), kFlags | O_CREAT | O_EXCL, 0644);
  journal.created = fd != -1;
  if (fd == -1 && errno == EEXIST) fd = sys.openFile(gPath.c_str(), kFlags, 0);
  if (fd == -1) return journalFailure("cannot open it", errno);
  gJournal = journal;
  gJournal.fd = fd;
  struct stat st;
  struct stat device;
  if (sys.fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    closeJournal();
    return journalFailure("it is not a regular file");
  }
  if (sys.fstat(deviceFd, &device) == 0 && st.st_dev == device.st_dev &&
      st.st_ino == device.st_ino) {
    closeJournal();
    return journalFailure("it is the device itself");
  }
  if (sys.flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int error = errno;
    closeJournal();
    return error == EWOULDBLOCK
               ? journalFailure("another console is appending to it")
               : journalFailure("cannot lock it", error);
  }
  JournalScan scan;
  std::string error;
  if (scanJournal(fd, gJournal.deviceSize, &scan, &error) == -1) {
    closeJournal();
    return journalFailure(error);
  }
  if (scan.tornTail) {
    err("undo journal %s: the incomplete record at its end (from byte %llu) "
        "is replaced\n",
        escapedText(gPath, kLineEscaped).c_str(),
        static_cast<unsigned long long>(scan.wholeLength));
    if (sys.ftruncate(fd, static_cast<int64_t>(scan.wholeLength)) != 0) {
      const int cut = errno;
      closeJournal();
      return journalFailure("cannot cut off that record", cut);
    }
  }
  gJournal.records = scan.records;
  gJournal.end = scan.wholeLength;
  return 0;
}

// Appends the record of one write: one write, one flush to disk.
int appendRecord(int deviceFd, DeviceWrite* write) {
  if (gJournal.fd == -1 && openJournal(deviceFd) == -1) return -1;
  JournalRecord record;
  record.number = gJournal.records + 1;
  record.device = escapedText(deviceName, kLineEscaped);
  record.deviceSize = gJournal.deviceSize;
  record.offset = write->offset;
  record.time = utcNow();
  record.command = escapedText(gCommand, kLineEscaped);
  // The bytes are lent to the record while its text is made, and given
  // back: a long write is not held twice more.
  record.before.swap(write->before);
  record.after.swap(write->after);
  std::string text = formatJournalRecord(record);
  record.before.swap(write->before);
  record.after.swap(write->after);
  if (gJournal.end == 0) text.insert(0, kJournalMagic);
  if (!writeWhole(gJournal.fd, text, gJournal.end) ||
      sys.fsync(gJournal.fd) != 0) {
    const int error = errno;
    // A record that may be partly on disk is taken back, so the journal
    // ends with whole records; if that fails too, the next append or a
    // restore recognises the torn record.
    const int ignored =
        sys.ftruncate(gJournal.fd, static_cast<int64_t>(gJournal.end));
    (void)ignored;
    return journalFailure("cannot append the record", error);
  }
  gJournal.end += text.size();
  gJournal.records = record.number;
  if (gJournal.created && !gJournal.entryDurable) {
    if (!syncDirectory(gPath)) {
      return journalFailure("cannot make its directory entry durable", errno);
    }
    gJournal.entryDurable = true;
  }
  return 0;
}

int watchWrite(int fd, uint64_t offset, const std::string& before,
               const void* after, size_t size) {
  DeviceWrite write{offset, before,
                    std::string(static_cast<const char*>(after), size)};
  if (gPath.empty() && gWarnUnjournalled) {
    gWarnUnjournalled = false;
    err("trellis-maintain: this change cannot be undone: no undo journal is "
        "kept (start with -u FILE to keep one)\n");
  }
  if (!gPath.empty()) {
    if (size > kJournalMaxWrite) {
      return journalFailure(formatString(
          "a write of %zu bytes is more than a record holds", size));
    }
    if (appendRecord(fd, &write) == -1) return -1;
  }
  if (gKeepWrites) gWrites.push_back(std::move(write));
  return 0;
}

void watchWhenWanted() {
  setWriteWatcher(gPath.empty() && !gKeepWrites && !gWarnUnjournalled
                      ? nullptr
                      : watchWrite);
}

}  // namespace

void setJournalPath(const std::string& path) {
  gPath = path;
  watchWhenWanted();
}

const std::string& journalPath() { return gPath; }

void setKeepDeviceWrites(bool keep) {
  gKeepWrites = keep;
  watchWhenWanted();
}

void warnBeforeUnjournalledWrite() {
  gWarnUnjournalled = true;
  watchWhenWanted();
}

const std::vector<DeviceWrite>& deviceWrites() { return gWrites; }

DeviceCommand::DeviceCommand(const std::string& line) {
  gCommand = line;
  gWrites.clear();
}

DeviceCommand::~DeviceCommand() {
  closeJournal();
  gCommand.clear();
}

}  // namespace tr
