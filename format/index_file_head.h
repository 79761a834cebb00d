// The index file header: the first 264 bytes of each of the four index
// files. It names the file's kind, the data file each of 32 channels writes,
// and the three dimensions that lay out the rest of the index file (see
// format/index_layout.h). Every reader of an index file reads this header
// first and checks its numbers against it.
#ifndef TRELLIS_FORMAT_INDEX_FILE_HEAD_H_
#define TRELLIS_FORMAT_INDEX_FILE_HEAD_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tr {

constexpr char kIndexFileMagic[] = "IDX_01";

struct tr_IndexFileHead {
  char magicWord[7];  // "IDX_01" and its NUL; zeroed marks the file abnormal
  uint8_t fileType;   // 1 record (AV), 2 picture (JPG)
  uint8_t reserved1[8];
  uint32_t writeFileIndex[32];  // element c - 1 for channel c
  uint32_t maxFileNum;
  uint32_t maxSegmentNum;
  uint32_t maxAuxNumber;
  uint32_t auxNum;  // the current auxiliary
  uint64_t fileSize;
  uint8_t exceptionFlag;
  uint8_t gap1[7];  // alignment before startTime, carried unchanged
  int64_t startTime;
  uint8_t reserved2[79];
  uint8_t gap2[1];  // pads the record to a multiple of 8, carried unchanged
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<tr_IndexFileHead>::value, "");
static_assert(sizeof(tr_IndexFileHead) == 264, "");
static_assert(offsetof(tr_IndexFileHead, magicWord) == 0, "");
static_assert(offsetof(tr_IndexFileHead, fileType) == 7, "");
static_assert(offsetof(tr_IndexFileHead, reserved1) == 8, "");
static_assert(offsetof(tr_IndexFileHead, writeFileIndex) == 16, "");
static_assert(offsetof(tr_IndexFileHead, maxFileNum) == 144, "");
static_assert(offsetof(tr_IndexFileHead, maxSegmentNum) == 148, "");
static_assert(offsetof(tr_IndexFileHead, maxAuxNumber) == 152, "");
static_assert(offsetof(tr_IndexFileHead, auxNum) == 156, "");
static_assert(offsetof(tr_IndexFileHead, fileSize) == 160, "");
static_assert(offsetof(tr_IndexFileHead, exceptionFlag) == 168, "");
static_assert(offsetof(tr_IndexFileHead, gap1) == 169, "");
static_assert(offsetof(tr_IndexFileHead, startTime) == 176, "");
static_assert(offsetof(tr_IndexFileHead, reserved2) == 184, "");
static_assert(offsetof(tr_IndexFileHead, gap2) == 263, "");

// Reads the header of the index file at byte `offset` of the device.
int _tr_maintainGetIndexFileHeader(uint64_t offset, tr_IndexFileHead* header);
int _tr_maintainPrintIndexFileHeader(const tr_IndexFileHead* header);

// True when the header's data-file area ends before the auxiliary region of
// an index file of `idxFileSize` bytes, so that it can be read. `kind` is
// the index file's own (the header's fileType may be damaged).
bool dataFileAreaFits(const tr_IndexFileHead& head, uint32_t kind,
                      uint64_t idxFileSize);

// Shared by the readers of the records inside an index file.
//
// Opens the device read-only and reads the header at `base` into `header`.
// Returns the open descriptor, or -1 after the failure was reported and the
// device closed.
int openIndexFile(uint64_t base, tr_IndexFileHead* header);
// True when 1 <= value <= bound, compared unsigned. Otherwise prints the
// three-line "<name> INVALID" report (both numbers shown signed) on standard
// error and returns false; the caller then closes quietly.
bool checkIndexNumber(const char* name, uint32_t value, const char* boundName,
                      uint32_t bound);
// Reads `size` bytes at `offset` under the "targetOffset" label and closes
// the device with the close warning. 0 or -1.
int readTargetAndClose(int fd, uint64_t offset, void* dest, size_t size);

}  // namespace tr

#endif  // TRELLIS_FORMAT_INDEX_FILE_HEAD_H_
