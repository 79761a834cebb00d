// Start-up: measures the raw device and computes, from its size alone, where
// the storage head and the four index files lie. The result, `trellisHead`,
// is written here once and read by every command afterwards; nothing else
// ever changes it.
//
// Layout: the first 2 percent of the device is the reserve. The storage head
// lies at byte 51200 (128 bytes); from byte 51328 the rest of the reserve is
// split into four equal index files (record, record backup, picture, picture
// backup). All sums are unsigned 64-bit and wrap, so a device smaller than
// the layout gives huge offsets that every command then fails to reach.
#ifndef TRELLIS_MAINTAIN_STARTUP_H_
#define TRELLIS_MAINTAIN_STARTUP_H_

#include <cstdint>

#include "format/trellis_head.h"

namespace tr {

constexpr uint64_t kFirstIndexFileOffset = 51328;  // right after the head

extern tr_TrellisHead trellisHead;

// Fills trellisHead and prints the nine start-up lines. Never fails.
int _tr_maintainInit();
// The device's size in bytes, or 0 after a diagnostic. A regular file (a
// card image) is measured by its size.
uint64_t _tr_maintainGetDeviceCapacity(const char* path);
// 2 percent of the capacity, truncated.
uint64_t _tr_maintainGetReserveSpaceSzie(uint64_t capacity);
// The head start-up computes for a given capacity, without printing.
tr_TrellisHead computeTrellisHead(uint64_t capacity);

}  // namespace tr

#endif  // TRELLIS_MAINTAIN_STARTUP_H_
