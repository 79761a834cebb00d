// Index file headers on a card image, for the readers that check their
// numbers against the header before they reach further into the file.
#ifndef TRELLIS_TESTS_SUPPORT_INDEX_IMAGE_H_
#define TRELLIS_TESTS_SUPPORT_INDEX_IMAGE_H_

#include <cstdint>
#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {

// Writes a valid magic word and the header's dimensions into the index file
// at `base`: maxFileNum at byte 144, maxSegmentNum at 148, maxAuxNumber at
// 152. Every other byte of the header is left as it is.
inline void putIndexDimensions(const CardImage& image, uint64_t base, uint32_t maxFileNum,
                               uint32_t maxSegmentNum, uint32_t maxAuxNumber) {
  image.putText(base, std::string("IDX_01\0", 7));
  image.put32(base + 144, maxFileNum);
  image.put32(base + 148, maxSegmentNum);
  image.put32(base + 152, maxAuxNumber);
}

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_INDEX_IMAGE_H_
