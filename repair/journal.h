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
// backslash as "\xHH", so each record is exactly ten lines and a line that
// starts "record " starts a record. A record cut off or damaged at the end
// of the file is what a console killed while appending leaves; it is
// ignored (with a warning) and the next append replaces it. A damaged
// record with whole records after it means the file itself was damaged:
// nothing in it can then be trusted.
//
// The journal is read as a stream, record by record, so its length never
// sets the memory it takes: a record is at most kJournalMaxWrite bytes of
// write, and a longer one is damage.
#ifndef TRELLIS_REPAIR_JOURNAL_H_
#define TRELLIS_REPAIR_JOURNAL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tr {

constexpr const char kJournalMagic[] = "trellis-undo 1\n";
constexpr size_t kJournalMaxWrite = 1 << 20;

struct JournalRecord {
  uint32_t number = 0;
  std::string device;  // escaped as stored
  uint64_t deviceSize = 0;
  uint64_t offset = 0;
  std::string time;
  std::string command;  // escaped as stored
  std::string before;   // raw bytes; as long as `after`
  std::string after;
};

// The record's ten lines, checksum included.
std::string formatJournalRecord(const JournalRecord& record);
// Reads `text`, exactly the ten lines of one record, which must carry
// `number`. False when it is not one whole, undamaged record.
bool parseJournalRecord(const std::string& text, uint32_t number,
                        JournalRecord* record);

// What reading a journal from its start found.
struct JournalScan {
  uint32_t records = 0;
  uint64_t wholeLength = 0;  // bytes up to the end of the last whole record
  bool tornTail = false;     // bytes after it were ignored
};

// Reads the journal open on `fd` from its start, every record of it, each
// made on a device of `deviceSize` bytes (named deviceName). Empty, or a
// first line cut short, is a journal without records. -1 with `*error`
// saying why when it cannot be read, is no journal of this version, holds
// a damaged record followed by others, or was made on another device.
int scanJournal(int fd, uint64_t deviceSize, JournalScan* scan,
                std::string* error);
// The record that ends at byte `end` of the journal open on `fd`, which
// must carry `number`, and where it starts. -1 with `*error` when there is
// none.
int readJournalRecordBefore(int fd, uint64_t end, uint32_t number,
                            JournalRecord* record, uint64_t* start,
                            std::string* error);
// Opens the journal at `path` to read it: a regular file, locked against
// consoles appending to it. The descriptor, or -1 with `*error`.
int openJournalToRead(const std::string& path, std::string* error);

// The writes of the session, watched on their way to the device: each one
// appended to the journal, when one is kept, and kept for the change lines,
// when they are wanted.
void setJournalPath(const std::string& path);
const std::string& journalPath();
void setKeepDeviceWrites(bool keep);
// Before the first write of the session made without a journal, one line
// on standard error says it cannot be undone; for an engineer at a
// terminal, who can still start again with -u.
void warnBeforeUnjournalledWrite();

// The writes of one command line: while it is alive, every write to the
// device belongs to `line`. The journal, opened at the command's first
// write, is read through once then, and each write after is one append and
// one flush to disk; at scope end it is closed. Nothing is kept from one
// command to the next.
class DeviceCommand {
 public:
  explicit DeviceCommand(const std::string& line);
  ~DeviceCommand();
  DeviceCommand(const DeviceCommand&) = delete;
  DeviceCommand& operator=(const DeviceCommand&) = delete;
};

// What the device held and what was written, one entry per write of the
// current command, oldest first (when kept).
struct DeviceWrite {
  uint64_t offset;
  std::string before;
  std::string after;
};
const std::vector<DeviceWrite>& deviceWrites();

}  // namespace tr

#endif  // TRELLIS_REPAIR_JOURNAL_H_
