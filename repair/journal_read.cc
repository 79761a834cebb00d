// Reading a journal file as a stream: forwards, line by line, to check it
// whole before anything is appended or restored; backwards, record by
// record, for a restore, which puts the newest write back first. Either way
// one buffer and one record are held, whatever the journal's length.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "repair/journal.h"

namespace tr {
namespace {

constexpr size_t kBlock = 65536;
// The longest line a record can have: its "before " or "after " and the hex
// of the longest write.
constexpr size_t kMaxLine = 2 * kJournalMaxWrite + 16;

std::string systemError(const char* what, int error) {
  return formatString("%s: %s (%d)", what, std::strerror(error), error);
}

// Reads [at, at + size) of the file, fewer bytes at its end. False on a
// failed read.
bool readAt(int fd, uint64_t at, size_t size, std::string* bytes) {
  bytes->assign(size, '\0');
  if (sys.lseek(fd, static_cast<int64_t>(at)) == -1) return false;
  size_t done = 0;
  while (done < size) {
    const ssize_t got = sys.read(fd, &(*bytes)[done], size - done);
    if (got == 0) break;
    if (got < 0 && errno != EINTR) return false;
    if (got > 0) done += static_cast<size_t>(got);
  }
  bytes->resize(done);
  return true;
}

// The lines of the file from a position on, through one block buffer.
class LineReader {
 public:
  enum Result { kLine, kEnd, kTooLong, kFailed };

  LineReader(int fd, uint64_t at) : fd_(fd), at_(at) {}

  // kLine: `*line` holds the next line and its '\n'. kEnd: the file ended;
  // `*line` holds what followed the last '\n' (a line cut short). kTooLong:
  // a line longer than any record has, skipped. kFailed: a read failed.
  Result next(std::string* line) {
    line->clear();
    bool tooLong = false;
    for (;;) {
      const size_t newline = buffer_.find('\n', head_);
      const size_t end =
          newline == std::string::npos ? buffer_.size() : newline + 1;
      if (!tooLong) line->append(buffer_, head_, end - head_);
      at_ += end - head_;
      head_ = end;
      if (line->size() > kMaxLine) {
        tooLong = true;
        line->clear();
      }
      if (newline != std::string::npos) return tooLong ? kTooLong : kLine;
      if (!readAt(fd_, at_, kBlock, &buffer_)) return kFailed;
      head_ = 0;
      if (buffer_.empty()) return tooLong ? kTooLong : kEnd;
    }
  }
  // Where the next line starts.
  uint64_t position() const { return at_; }

 private:
  int fd_;
  uint64_t at_;
  std::string buffer_;
  size_t head_ = 0;
};

// Whether the text from the damaged record at `start` on holds more than
// one record: a second record's first line, or a second checksum line (a
// lost line break joins two records into one line).
bool recordsFollow(int fd, uint64_t start) {
  LineReader lines(fd, start);
  std::string line;
  int checksums = 0;
  for (bool first = true;; first = false) {
    const LineReader::Result result = lines.next(&line);
    if (result == LineReader::kFailed) return true;
    if (!first && line.compare(0, 7, "record ") == 0) return true;
    if (line.compare(0, 6, "crc32 ") == 0 && ++checksums == 2) return true;
    if (result == LineReader::kEnd) return false;
  }
}

// The ten lines of the record at the reader's position: 1 when they are
// there, 0 when the file ends before its first line, -1 when it ends or
// breaks inside them (a record cut off, or damage), -2 on a failed read.
int takeRecordText(LineReader* lines, std::string* text) {
  text->clear();
  std::string line;
  for (int i = 0; i < 10; ++i) {
    const LineReader::Result result = lines->next(&line);
    if (result == LineReader::kFailed) return -2;
    if (result == LineReader::kEnd && i == 0 && line.empty()) return 0;
    if (result != LineReader::kLine) return -1;
    *text += line;
  }
  return 1;
}

// The first line: the format and its version.
int checkMagic(LineReader* lines, JournalScan* scan, std::string* error) {
  const std::string magic = kJournalMagic;
  std::string line;
  const LineReader::Result result = lines->next(&line);
  if (result == LineReader::kFailed) {
    *error = systemError("cannot read it", errno);
    return -1;
  }
  if (result == LineReader::kEnd && magic.compare(0, line.size(), line) == 0) {
    scan->tornTail = !line.empty();
    return 0;
  }
  if (line == magic) {
    scan->wholeLength = magic.size();
    return 1;
  }
  *error = line.compare(0, 13, "trellis-undo ") == 0
               ? "it is an undo journal of another version than 1"
               : "it is not an undo journal";
  return -1;
}

}  // namespace

int scanJournal(int fd, uint64_t deviceSize, JournalScan* scan,
                std::string* error) {
  *scan = JournalScan();
  LineReader lines(fd, 0);
  const int magic = checkMagic(&lines, scan, error);
  if (magic != 1) return magic;
  std::string text;
  for (;;) {
    const uint64_t start = lines.position();
    const uint32_t number = scan->records + 1;
    JournalRecord record;
    const int taken = takeRecordText(&lines, &text);
    if (taken == 0) return 0;
    if (taken == -2) {
      *error = systemError("cannot read it", errno);
      return -1;
    }
    if (taken == -1 || !parseJournalRecord(text, number, &record)) {
      if (recordsFollow(fd, start)) {
        *error = formatString(
            "record %u (from byte %llu) is damaged and more records follow "
            "it",
            number, static_cast<unsigned long long>(start));
        return -1;
      }
      scan->tornTail = true;
      return 0;
    }
    if (record.deviceSize != deviceSize) {
      *error = formatString(
          "it was made on a device of %llu bytes and %s holds %llu",
          static_cast<unsigned long long>(record.deviceSize),
          escapedText(deviceName, kLineEscaped).c_str(),
          static_cast<unsigned long long>(deviceSize));
      return -1;
    }
    scan->records = number;
    scan->wholeLength = lines.position();
  }
}

int readJournalRecordBefore(int fd, uint64_t end, uint32_t number,
                            JournalRecord* record, uint64_t* start,
                            std::string* error) {
  // A record starts where a line begins with "record "; the line break
  // before it ends the record before, or the first line.
  static const std::string kStart = "\nrecord ";
  std::string block;
  for (uint64_t to = end; to > 0;) {
    const uint64_t from = to > kBlock ? to - kBlock : 0;
    const uint64_t stop =
        to + kStart.size() - 1 < end ? to + kStart.size() - 1 : end;
    if (!readAt(fd, from, static_cast<size_t>(stop - from), &block)) {
      *error = systemError("cannot read it", errno);
      return -1;
    }
    const size_t found = block.rfind(kStart);
    if (found != std::string::npos) {
      *start = from + found + 1;
      break;
    }
    if (from == 0 || end - from > kMaxLine * 3) {
      *error = formatString("record %u is damaged", number);
      return -1;
    }
    to = from;
  }
  std::string text;
  if (end - *start > kMaxLine * 3 ||
      !readAt(fd, *start, static_cast<size_t>(end - *start), &text) ||
      !parseJournalRecord(text, number, record)) {
    *error = formatString("record %u is damaged", number);
    return -1;
  }
  return 0;
}

int openJournalToRead(const std::string& path, std::string* error) {
  // Never waits on a FIFO under the name.
  const int fd = sys.openFile(path.c_str(),
                              O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0);
  if (fd == -1) {
    *error = systemError("cannot open it", errno);
    return -1;
  }
  struct stat st;
  if (sys.fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    *error = "it is not a regular file";
  } else if (sys.flock(fd, LOCK_SH | LOCK_NB) != 0) {
    *error = errno == EWOULDBLOCK
                 ? std::string("another console is appending to it")
                 : systemError("cannot lock it", errno);
  } else {
    return fd;
  }
  sys.close(fd);
  return -1;
}

}  // namespace tr
