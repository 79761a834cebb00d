// The current auxiliary switch: makes auxiliary `auxNum` of an index file
// the current one (the header's auxNum) and sets that auxiliary's current
// context (its head's currentCount). Of the two records it rewrites only
// those fields change; every other byte is written back as read.
#ifndef TRELLIS_REPAIR_AUX_SWITCH_H_
#define TRELLIS_REPAIR_AUX_SWITCH_H_

#include <cstdint>

namespace tr {

// `base` is the index file's start on the device. `auxNum` must lie in
// 1..min(maxAuxNumber, 100) of the header read, and the auxiliary region
// must fit in the index file; otherwise the "auxNum INVALID" report is
// printed and nothing is written. `ctxNum` is stored as its low 16 bits,
// unchecked.
//
// 0 when both records were written and the device closed cleanly, else -1
// after the failing step's diagnostic. The header is written first and is
// not restored when a later step fails; running the command again completes
// the switch.
int _tr_maintainChangeAuxCtxNum(uint64_t base, uint32_t auxNum,
                                uint32_t ctxNum);

}  // namespace tr

#endif  // TRELLIS_REPAIR_AUX_SWITCH_H_
