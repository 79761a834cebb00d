#include "tests/support/index_image.h"

namespace tr {
namespace test {

void putIndexDimensions(const CardImage& image, uint64_t base,
                        uint32_t maxFileNum, uint32_t maxSegmentNum,
                        uint32_t maxAuxNumber) {
  image.putText(base, std::string("IDX_01\0", 7));
  image.put32(base + 144, maxFileNum);
  image.put32(base + 148, maxSegmentNum);
  image.put32(base + 152, maxAuxNumber);
}

}  // namespace test
}  // namespace tr
