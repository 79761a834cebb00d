// The I-frame table of a record segment: a plain array of 32-byte entries in
// the record data file itself, at the segment's iFrameInfoOffset, with
// iFrameInfoSize / 32 entries and no header of its own.
#ifndef TRELLIS_FORMAT_IFRAME_INDEX_H_
#define TRELLIS_FORMAT_IFRAME_INDEX_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "format/rec_data_file_info.h"

namespace tr {

struct tr_IFrameIndex {
  int64_t utcTime;
  uint32_t offset;  // as the recorder wrote it; shown, not interpreted
  uint8_t reserved[20];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<tr_IFrameIndex>::value, "");
static_assert(sizeof(tr_IFrameIndex) == 32, "");
static_assert(offsetof(tr_IFrameIndex, utcTime) == 0, "");
static_assert(offsetof(tr_IFrameIndex, offset) == 8, "");
static_assert(offsetof(tr_IFrameIndex, reserved) == 12, "");

// Lists the segment's I-frame table from its record data file. 0 when the
// whole table was listed (or it is empty); -1 after an "[ERROR]" line when
// the segment holds no data, the file cannot be opened or sought, or the
// table ends early (the entries read so far are listed).
int _tr_maintainPrintIFrameIndex(const tr_RecDataFileInfo* info, int fileNum,
                                 int segmentNum);

}  // namespace tr

#endif  // TRELLIS_FORMAT_IFRAME_INDEX_H_
