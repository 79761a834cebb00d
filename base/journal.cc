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

constexpr size_t kRecordLines = 10;
constexpr const char* kKeys[kRecordLines] = {
    "record", "device", "size",   "offset", "length",
    "time",   "command", "before", "after",  "crc32"};

uint32_t crc32(const char* data, size_t length) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < length; ++i) {
    crc ^= static_cast<unsigned char>(data[i]);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
  }
  return ~crc;
}

std::string hexText(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    text += kDigits[c >> 4];
    text += kDigits[c & 15];
  }
  return text;
}

int nibble(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool parseHex(const std::string& text, std::string* bytes) {
  if (text.size() % 2 != 0) return false;
  bytes->clear();
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = nibble(text[i]);
    const int low = nibble(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes->push_back(static_cast<char>(high << 4 | low));
  }
  return true;
}

// Decimal digits only, at most 2^64 - 1.
bool parseNumber(const std::string& text, uint64_t* value) {
  if (text.empty() || text.size() > 20) return false;
  uint64_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (number > (UINT64_MAX - digit) / 10) return false;
    number = number * 10 + digit;
  }
  *value = number;
  return true;
}

// The whole line at `*pos` if it reads "<key> <value>"; moves past it.
bool takeLine(const std::string& text, size_t* pos, const char* key,
              std::string* value) {
  const size_t end = text.find('\n', *pos);
  const size_t keyLength = std::strlen(key);
  if (end == std::string::npos || end < *pos + keyLength + 1 ||
      text.compare(*pos, keyLength, key) != 0 ||
      text[*pos + keyLength] != ' ') {
    return false;
  }
  value->assign(text, *pos + keyLength + 1, end - *pos - keyLength - 1);
  *pos = end + 1;
  return true;
}

// The record at `*pos`, which must carry `number`; moves past it.
bool readRecord(const std::string& text, size_t* pos, uint32_t number,
                JournalRecord* record) {
  std::string value[kRecordLines];
  size_t at = *pos;
  size_t checksumStart = at;
  for (size_t i = 0; i < kRecordLines; ++i) {
    checksumStart = at;
    if (!takeLine(text, &at, kKeys[i], &value[i])) return false;
  }
  uint64_t stated = 0;
  uint64_t length = 0;
  if (!parseNumber(value[0], &stated) || stated != number ||
      !parseNumber(value[2], &record->deviceSize) ||
      !parseNumber(value[3], &record->offset) ||
      !parseNumber(value[4], &length) ||
      !parseHex(value[7], &record->before) ||
      !parseHex(value[8], &record->after) || record->before.size() != length ||
      record->after.size() != length) {
    return false;
  }
  const uint32_t crc = crc32(text.data() + *pos, checksumStart - *pos);
  if (value[9] != formatString("%08x", static_cast<unsigned>(crc))) {
    return false;
  }
  record->number = number;
  record->device = value[1];
  record->time = value[5];
  record->command = value[6];
  *pos = at;
  return true;
}

// Whether the text from the damaged record at `pos` on holds more than one
// record: a second record's first line, or a second checksum line (a lost
// line break joins two records into one line).
bool recordsFollow(const std::string& text, size_t pos) {
  int checksums = 0;
  for (size_t at = pos; at < text.size();) {
    if (at != pos && text.compare(at, 7, "record ") == 0) return true;
    if (text.compare(at, 6, "crc32 ") == 0 && ++checksums == 2) return true;
    const size_t end = text.find('\n', at);
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return false;
}

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
  for (const JournalRecord& record : contents->records) {
    if (record.deviceSize != size) {
      return journalFailure(formatString(
          "it was made on a device of %llu bytes and %s holds %llu",
          static_cast<unsigned long long>(record.deviceSize),
          escapeControlBytes(deviceName).c_str(),
          static_cast<unsigned long long>(size)));
    }
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

std::string formatJournalRecord(const JournalRecord& record) {
  const std::string body = formatString(
      "record %u\ndevice %s\nsize %llu\noffset %llu\nlength %zu\ntime %s\n"
      "command %s\nbefore %s\nafter %s\n",
      record.number, record.device.c_str(),
      static_cast<unsigned long long>(record.deviceSize),
      static_cast<unsigned long long>(record.offset), record.after.size(),
      record.time.c_str(), record.command.c_str(),
      hexText(record.before).c_str(), hexText(record.after).c_str());
  return body + formatString("crc32 %08x\n", static_cast<unsigned>(crc32(
                                                  body.data(), body.size())));
}

int parseJournal(const std::string& text, JournalContents* contents,
                 std::string* error) {
  *contents = JournalContents();
  const std::string magic = kJournalMagic;
  if (text.size() < magic.size() && magic.compare(0, text.size(), text) == 0) {
    contents->tornTail = !text.empty();
    return 0;
  }
  if (text.compare(0, magic.size(), magic) != 0) {
    *error = text.compare(0, 13, "trellis-undo ") == 0
                 ? "it is an undo journal of another version than 1"
                 : "it is not an undo journal";
    return -1;
  }
  size_t pos = magic.size();
  contents->wholeLength = pos;
  while (pos < text.size()) {
    JournalRecord record;
    const size_t number = contents->records.size() + 1;
    if (!readRecord(text, &pos, static_cast<uint32_t>(number), &record)) {
      if (recordsFollow(text, pos)) {
        *error = formatString(
            "record %zu (from byte %zu) is damaged and more records follow it",
            number, pos);
        return -1;
      }
      contents->tornTail = true;
      return 0;
    }
    contents->records.push_back(record);
    contents->wholeLength = pos;
  }
  return 0;
}

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

std::string escapeControlBytes(const std::string& text) {
  std::string escaped;
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f || c == '\\') {
      escaped += formatString("\\x%02x", c);
    } else {
      escaped += static_cast<char>(c);
    }
  }
  return escaped;
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
