// The card as the whole-card commands read it: the raw device, opened once
// for the whole run and measured as start-up measures it, the layout
// computed from its size, the four index files, and the sizes of the data
// files in the media directory.
#ifndef TRELLIS_FORMAT_CARD_H_
#define TRELLIS_FORMAT_CARD_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "format/index_files.h"
#include "format/trellis_head.h"

namespace tr {

class CardSession {
 public:
  CardSession() = default;
  ~CardSession();  // closes quietly when a failure left the device open
  CardSession(const CardSession&) = delete;
  CardSession& operator=(const CardSession&) = delete;

  // Opens the device read-only, measures it and computes the layout. 0, or
  // -1 after the diagnostic block. A device whose storage head is not the
  // one its size gives, and that is a partition or too small for a card,
  // is named in one line on standard error: the whole card was meant.
  int open();
  // Closes with the close warning. 0 or -1.
  int close();
  int fd() const { return fd_; }
  uint64_t capacity() const { return capacity_; }
  // The storage head start-up computes for this device.
  const tr_TrellisHead& layout() const { return layout_; }
  uint64_t base(const IndexFileDef& file) const;
  // False when the index files are too small for a header and the
  // auxiliary region (a device of less than about 870 MB).
  bool indexFilesHoldTheirRegions() const;

  // Reads `size` bytes at `offset`. 0, or -1 after the diagnostic, the
  // device then closed.
  int read(uint64_t offset, void* dest, size_t size);
  // A read made elsewhere (a RegionReader) failed and closed the device.
  void lost() { fd_ = -1; }

 private:
  void noteWrongDevice() const;

  int fd_ = -1;
  uint64_t capacity_ = 0;
  tr_TrellisHead layout_ = {};
};

// The data file `fileNum` of an index file of `kind` in the media
// directory: its name ("TR00002.mp4") and, when the directory holds it, its
// size. Looks the file up once and keeps the answer for the next calls with
// the same file.
class DataFileSizes {
 public:
  // True, with the size, when the data file can be opened.
  bool size(uint32_t kind, uint32_t fileNum, uint64_t* bytes);
  static std::string name(uint32_t kind, uint32_t fileNum);
  uint32_t found() const { return found_; }
  uint32_t missing() const { return missing_; }

 private:
  uint32_t kind_ = 0;
  uint32_t fileNum_ = 0;
  bool held_ = false;
  uint64_t bytes_ = 0;
  uint32_t found_ = 0;
  uint32_t missing_ = 0;
};

}  // namespace tr

#endif  // TRELLIS_FORMAT_CARD_H_
