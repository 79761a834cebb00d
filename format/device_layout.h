// Where the storage head and the four index files lie on the raw device,
// computed from the device's size alone.
//
// The first 2 percent of the device is the reserve. The storage head lies at
// byte 51200 (128 bytes); from the byte after it the rest of the reserve is
// split into four equal index files (record, record backup, picture, picture
// backup). All sums are unsigned 64-bit and wrap, so a device smaller than
// the layout gives huge offsets that every command then fails to reach.
#ifndef TRELLIS_FORMAT_DEVICE_LAYOUT_H_
#define TRELLIS_FORMAT_DEVICE_LAYOUT_H_

#include <cstdint>

#include "format/trellis_head.h"

namespace tr {

// The first index file starts right after the storage head.
constexpr uint64_t kFirstIndexFileOffset =
    kTrellisHeadOffset + sizeof(tr_TrellisHead);
static_assert(kFirstIndexFileOffset == 51328, "");

// The layout of the device the console works on: written once by start-up,
// read by every command afterwards, never changed by any of them.
extern tr_TrellisHead trellisHead;

// 2 percent of the capacity, truncated.
uint64_t _tr_maintainGetReserveSpaceSzie(uint64_t capacity);
// The head start-up computes for a given capacity, without printing.
tr_TrellisHead computeTrellisHead(uint64_t capacity);

}  // namespace tr

#endif  // TRELLIS_FORMAT_DEVICE_LAYOUT_H_
