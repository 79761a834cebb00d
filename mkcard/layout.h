// Where the builder puts the card's index structures: the console's own
// start-up layout for the card's size (format/device_layout.h) and the region
// offsets of format/index_layout.h, plus the checks that the chosen
// dimensions fit. Each index file holds, from its start, the header and the
// data-file area (264 + files x (32 + segments x S) bytes, S = 640 for
// record and 1680 for picture segment infos), and at its end the fixed
// 4320800-byte auxiliary region. The two must not overlap in either kind.
#ifndef TRELLIS_MKCARD_LAYOUT_H_
#define TRELLIS_MKCARD_LAYOUT_H_

#include <cstdint>

#include "format/index_files.h"
#include "format/trellis_head.h"

namespace tr {

struct CardDimensions {
  uint32_t files;     // maxFileNum
  uint32_t segments;  // maxSegmentNum
  uint32_t aux;       // maxAuxNumber, at most 100
};

// One of the four index files and where it starts on the card.
struct IndexFilePlace {
  const IndexFileDef* def;
  uint64_t base;
};

struct CardLayout {
  uint64_t capacity;
  tr_TrellisHead head;  // exactly as the console computes it at start-up
  CardDimensions dims;
  IndexFilePlace files[kIndexFileCount];  // in card order
};

// Bytes from an index file's start to the end of its data-file area, or
// UINT64_MAX when that does not fit in 64 bits.
uint64_t dataAreaEnd(uint32_t kind, const CardDimensions& dims);

// The smallest card whose layout holds `dims`, or 0 when none does.
uint64_t minimumCapacity(const CardDimensions& dims);

// Lays the card out. Returns 0, or -1 after printing on standard error why
// a card of `capacity` bytes cannot hold these dimensions, naming the sizes.
int planCard(uint64_t capacity, const CardDimensions& dims, CardLayout* layout);

}  // namespace tr

#endif  // TRELLIS_MKCARD_LAYOUT_H_
