// The storage head: 128 bytes at byte 51200 of the raw device, naming where
// the four index files lie and how large each is. Start-up computes the same
// record in memory from the device size (format/device_layout.h); the one on the
// device is only read, printed and, on request, zeroed.
#ifndef TRELLIS_FORMAT_TRELLIS_HEAD_H_
#define TRELLIS_FORMAT_TRELLIS_HEAD_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tr {

constexpr uint64_t kTrellisHeadOffset = 51200;
constexpr char kTrellisMagic[] = "TR_V001";

struct tr_TrellisHead {
  char magicWord[8];  // "TR_V001" and its NUL
  uint64_t idxFileOffsetAV;
  uint64_t idxFileBackupOffsetAV;
  uint64_t idxFileOffsetPic;
  uint64_t idxFileBackupOffsetPic;
  uint64_t idxFileSize;
  uint32_t idxCheckFlagAV;
  uint32_t idxCheckFlagPic;
  uint64_t AVSectorSize;
  uint64_t PicSectorSize;
  uint8_t reserved[56];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<tr_TrellisHead>::value, "");
static_assert(sizeof(tr_TrellisHead) == 128, "");
static_assert(offsetof(tr_TrellisHead, magicWord) == 0, "");
static_assert(offsetof(tr_TrellisHead, idxFileOffsetAV) == 8, "");
static_assert(offsetof(tr_TrellisHead, idxFileBackupOffsetAV) == 16, "");
static_assert(offsetof(tr_TrellisHead, idxFileOffsetPic) == 24, "");
static_assert(offsetof(tr_TrellisHead, idxFileBackupOffsetPic) == 32, "");
static_assert(offsetof(tr_TrellisHead, idxFileSize) == 40, "");
static_assert(offsetof(tr_TrellisHead, idxCheckFlagAV) == 48, "");
static_assert(offsetof(tr_TrellisHead, idxCheckFlagPic) == 52, "");
static_assert(offsetof(tr_TrellisHead, AVSectorSize) == 56, "");
static_assert(offsetof(tr_TrellisHead, PicSectorSize) == 64, "");
static_assert(offsetof(tr_TrellisHead, reserved) == 72, "");

// Reads the storage head from the device into `head`. 0 or -1.
int _tr_maintainGetTrellisHead(tr_TrellisHead* head);
// Prints the storage head on standard output.
int _tr_maintainPrintTrellisHead(const tr_TrellisHead* head);

}  // namespace tr

#endif  // TRELLIS_FORMAT_TRELLIS_HEAD_H_
