// The auxiliary head: 8 bytes opening each of the 100 auxiliaries at the end
// of an index file. It says whether the auxiliary is used or full, and which
// of its contexts is current.
#ifndef TRELLIS_FORMAT_AUX_HEAD_H_
#define TRELLIS_FORMAT_AUX_HEAD_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tr {

struct IndexFileAuxiliaryHead {
  uint8_t isUsed;
  uint8_t isFull;
  uint16_t currentCount;  // the auxiliary's current context
  uint8_t reserved[4];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<IndexFileAuxiliaryHead>::value, "");
static_assert(sizeof(IndexFileAuxiliaryHead) == 8, "");
static_assert(offsetof(IndexFileAuxiliaryHead, isUsed) == 0, "");
static_assert(offsetof(IndexFileAuxiliaryHead, isFull) == 1, "");
static_assert(offsetof(IndexFileAuxiliaryHead, currentCount) == 2, "");
static_assert(offsetof(IndexFileAuxiliaryHead, reserved) == 4, "");

int _tr_maintainGetIndexAuxHeader(uint32_t kind, uint32_t auxNum,
                                  uint64_t offset,
                                  IndexFileAuxiliaryHead* header);
int _tr_maintainPrintIndexAuxHeader(const IndexFileAuxiliaryHead* header,
                                    int auxNum);

}  // namespace tr

#endif  // TRELLIS_FORMAT_AUX_HEAD_H_
