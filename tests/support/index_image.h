// Index file headers on a card image, for the readers that check their
// numbers against the header before they reach further into the file.
#ifndef TRELLIS_TESTS_SUPPORT_INDEX_IMAGE_H_
#define TRELLIS_TESTS_SUPPORT_INDEX_IMAGE_H_

#include <cstdint>

#include "tests/support/test_support.h"

namespace tr {
namespace test {

// Writes a valid magic word and the header's dimensions into the index file
// at `base`: maxFileNum at byte 144, maxSegmentNum at 148, maxAuxNumber at
// 152. Every other byte of the header is left as it is.
void putIndexDimensions(const CardImage& image, uint64_t base,
                        uint32_t maxFileNum, uint32_t maxSegmentNum,
                        uint32_t maxAuxNumber);

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_INDEX_IMAGE_H_
