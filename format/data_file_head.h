// The data file head: 32 bytes that open each data file's block in an index
// file, ahead of that file's segment infos. It says whether the data file is
// valid, writable and in use, and how much of it is filled.
#ifndef TRELLIS_FORMAT_DATA_FILE_HEAD_H_
#define TRELLIS_FORMAT_DATA_FILE_HEAD_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tr {

constexpr char kDataFileMagic[] = "DATA";

struct tr_DataFileHead {
  char magicWord[5];  // "DATA" and its NUL
  uint8_t channel;
  uint8_t validity;  // 0 invalid, 1 read/write, 2 read-only
  uint8_t inUse;
  uint32_t fileNum;
  uint32_t writeDataIndex;
  uint32_t usedSize;
  uint32_t validSegments;
  uint8_t reserved[8];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<tr_DataFileHead>::value, "");
static_assert(sizeof(tr_DataFileHead) == 32, "");
static_assert(offsetof(tr_DataFileHead, magicWord) == 0, "");
static_assert(offsetof(tr_DataFileHead, channel) == 5, "");
static_assert(offsetof(tr_DataFileHead, validity) == 6, "");
static_assert(offsetof(tr_DataFileHead, inUse) == 7, "");
static_assert(offsetof(tr_DataFileHead, fileNum) == 8, "");
static_assert(offsetof(tr_DataFileHead, writeDataIndex) == 12, "");
static_assert(offsetof(tr_DataFileHead, usedSize) == 16, "");
static_assert(offsetof(tr_DataFileHead, validSegments) == 20, "");
static_assert(offsetof(tr_DataFileHead, reserved) == 24, "");

int _tr_maintainGetDataFileHeader(uint32_t kind, uint32_t fileNum,
                                  uint64_t offset, tr_DataFileHead* header);
int _tr_maintainPrintDataFileHeader(const tr_DataFileHead* header,
                                    int fileNum);

}  // namespace tr

#endif  // TRELLIS_FORMAT_DATA_FILE_HEAD_H_
