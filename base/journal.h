// The undo journal: a plain text file that keeps, for every write the
// console makes to the device, the bytes the device held there before and
// the bytes written, so that `--restore` can put the old bytes back. Each
// record is appended and made durable before its device write is made; a
// write whose record cannot be kept is not made.
//
// The file starts with the line "trellis-undo 1" (the format's version),
// then holds the records, oldest first, each of these lines in this order:
//
//   record 3                     number, 1 for the file's first
//   device /dev/mmcblk0          the device path as the console named it
//   size 2147483648              the device's size in bytes
//   offset 51328                 where the write began
//   length 264                   how many bytes it wrote
//   time 2024-03-05T07:14:09Z    when, in UTC
//   command maintain recException   the command line as typed
//   before 49445f303101...       the bytes the device held, in hex
//   after 00000000000001...      the bytes written, in hex
//   crc32 1c291ca3               CRC-32 of the record's lines above
//
// The device path and the command line carry every control byte and
// backslash as "\xHH", so each record is exactly ten lines. A record cut off
// or damaged at the end of the file is what a console killed while
// appending leaves; it is ignored (with a warning) and the next append
// replaces it. A damaged record with whole records after it means the file
// itself was damaged: nothing in it can then be trusted.
#ifndef TRELLIS_BASE_JOURNAL_H_
#define TRELLIS_BASE_JOURNAL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tr {

constexpr const char kJournalMagic[] = "trellis-undo 1\n";

struct JournalRecord {
  uint32_t number = 0;
  std::string device;   // escaped as stored
  uint64_t deviceSize = 0;
  uint64_t offset = 0;
  std::string time;
  std::string command;  // escaped as stored
  std::string before;   // raw bytes; as long as `after`
  std::string after;
};

// The record's ten lines, checksum included.
std::string formatJournalRecord(const JournalRecord& record);

struct JournalContents {
  std::vector<JournalRecord> records;
  size_t wholeLength = 0;  // bytes up to the end of the last whole record
  bool tornTail = false;   // bytes after it were ignored
};

// Reads the journal text `text`. Empty text, or a cut-off first line, is a
// journal without records. -1 with `*error` saying why when the text is no
// journal of this version or a damaged record is followed by others.
int parseJournal(const std::string& text, JournalContents* contents,
                 std::string* error);

// Whether every record was made on a device of `deviceSize` bytes, as the
// device named deviceName is. -1 with `*why` saying otherwise.
int checkJournalDevice(const JournalContents& contents, uint64_t deviceSize,
                       std::string* why);

// Reads and parses the journal file at `path`. -1 with `*error` saying why.
int readJournalFile(const std::string& path, JournalContents* contents,
                    std::string* error);

// `text` with control bytes and backslashes as "\xHH".
std::string escapeControlBytes(const std::string& text);

// The session's journal; empty (the default) keeps none.
void setJournalPath(const std::string& path);
const std::string& journalPath();
// The command line that the following writes belong to, and the start of
// its writes: the writes kept so far are dropped.
void beginDeviceCommand(const std::string& line);
// Whether the writes of each command are kept in memory for the change
// lines (deviceWrites()), journal or not.
void setKeepDeviceWrites(bool keep);
// True when a write must first read what it replaces.
bool deviceWritesNoted();

// What the device held and what was written, one entry per write of the
// current command, oldest first.
struct DeviceWrite {
  uint64_t offset;
  std::string before;
  std::string after;
};
const std::vector<DeviceWrite>& deviceWrites();

// Notes a write about to be made on the open device `fd` (named by
// deviceName): appends its record to the journal, when one is kept, and
// makes it durable. 0, or -1 after one line on standard error naming the
// journal and the error; the write must then not be made.
int noteDeviceWrite(int fd, uint64_t offset, const std::string& before,
                    const void* after, size_t size);

}  // namespace tr

#endif  // TRELLIS_BASE_JOURNAL_H_
