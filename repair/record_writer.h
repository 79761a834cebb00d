// The device as the repair writes it: records fixed one after another are
// gathered while they lie back to back and go to the device as one write,
// so a whole index file rewritten is a few hundred writes, each journalled
// (one append and one flush of the journal) before it is made. Nothing
// else is written: a run holds only the records the fixes name.
#ifndef TRELLIS_REPAIR_RECORD_WRITER_H_
#define TRELLIS_REPAIR_RECORD_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace tr {

class RecordWriter {
 public:
  // The longest run gathered before it is written.
  static constexpr size_t kRunLimit = 256 * 1024;

  RecordWriter() = default;
  ~RecordWriter();  // closes the device without writing what is gathered
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  // Opens the device for writing, locked against other writers. 0, or -1
  // after the diagnostic.
  int open();
  // Gathers `bytes` for `offset`; a run that cannot take them is written
  // first. 0, or -1 after a failed write (reported; the device closed).
  int write(uint64_t offset, const std::string& bytes);
  // What the device holds, or will hold once the run is written, at
  // `offset`. 0, or -1 after the diagnostic.
  int read(uint64_t offset, size_t size, std::string* bytes);
  // Writes the run, makes every write durable and closes the device. 0, or
  // -1 after the diagnostic.
  int finish();
  uint64_t writes() const { return writes_; }

 private:
  int flush();

  int fd_ = -1;
  uint64_t runStart_ = 0;
  std::string run_;
  uint64_t writes_ = 0;
};

}  // namespace tr

#endif  // TRELLIS_REPAIR_RECORD_WRITER_H_
