// The index file markers and the storage head reset: the console's writing
// commands that need no number. An index file counts as abnormal when the
// magic word of its header is cleared (7 zero bytes) and as normal when the
// word reads "IDX_01"; the markers change those 7 bytes and nothing else.
// The reset zeroes the storage head on the device; the layout computed at
// start-up stays in use.
#ifndef TRELLIS_REPAIR_MARKERS_H_
#define TRELLIS_REPAIR_MARKERS_H_

#include <cstdint>

#include "format/index_file_head.h"

namespace tr {

// Mark the index file whose header lies at byte `offset` abnormal
// (exception) or normal. Both read the whole header, change the magic word
// and write the header back, so every other byte, the gaps included, stays
// as read; the header's content is not examined. On success the only output
// is the header's offset line. 0, or -1 after the diagnostic of the failing
// step: a failure before the write leaves the device unchanged, a short
// write leaves the first bytes written, and a failing close reports -1
// although the header was written.
int _tr_maintainIndexFileException(uint64_t offset);
int _tr_maintainIndexFileNormal(uint64_t offset);

// Writes 128 zero bytes over the storage head on the device, without
// reading it first. Prints nothing on success. 0 or -1, as above.
int _tr_maintainMemsetTrellisHead();

// Shared by the commands that rewrite an index file header: opens the
// device read-write and reads the header at `base` into `header` under the
// "tr_IndexFileHead targetOffset" line. Returns the open descriptor, or -1
// after the failure was reported and the device closed.
int openHeaderForRewrite(uint64_t base, tr_IndexFileHead* header);

}  // namespace tr

#endif  // TRELLIS_REPAIR_MARKERS_H_
