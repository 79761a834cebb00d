// The picture segment info: 1680 bytes describing one segment of a picture
// data file, a fragment of up to 60 pictures stored back to back. It gives
// the fragment's place and length in the data file and, per picture, its
// capture time, zone and size; picture n starts after the sizes of the
// pictures before it.
#ifndef TRELLIS_FORMAT_JPG_DATA_FILE_INFO_H_
#define TRELLIS_FORMAT_JPG_DATA_FILE_INFO_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "format/rec_data_file_info.h"

namespace tr {

constexpr int kMaxImageDetails = 60;

struct tr_ImageDetail {
  int64_t utcTime;
  int32_t timeZone;  // seconds east of UTC
  uint32_t DST;
  uint32_t jpgSize;
  uint8_t unused[4];
};

struct tr_JPGDataFileInfo {
  char magicWord[7];
  uint8_t inUse;  // 0: the segment holds no data
  uint8_t unused1[4];
  uint32_t dataIndex;
  uint64_t fragmentOffset;
  uint64_t fragmentSize;
  tr_ImageDetail imageDetails[kMaxImageDetails];
  uint64_t effinfoMask;
  tr_FileTypeInfo fileTypeInfo;
  tr_VideoFormat pictureEncode;
  uint8_t unused2[8];
  uint8_t validNum;  // valid imageDetails entries; may claim more than 60
  uint8_t unused3[23];
  uint8_t reserved[24];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(std::is_trivially_copyable<tr_JPGDataFileInfo>::value, "");
static_assert(sizeof(tr_ImageDetail) == 24, "");
static_assert(offsetof(tr_ImageDetail, utcTime) == 0, "");
static_assert(offsetof(tr_ImageDetail, timeZone) == 8, "");
static_assert(offsetof(tr_ImageDetail, DST) == 12, "");
static_assert(offsetof(tr_ImageDetail, jpgSize) == 16, "");
static_assert(offsetof(tr_ImageDetail, unused) == 20, "");
static_assert(sizeof(tr_JPGDataFileInfo) == 1680, "");
static_assert(offsetof(tr_JPGDataFileInfo, magicWord) == 0, "");
static_assert(offsetof(tr_JPGDataFileInfo, inUse) == 7, "");
static_assert(offsetof(tr_JPGDataFileInfo, unused1) == 8, "");
static_assert(offsetof(tr_JPGDataFileInfo, dataIndex) == 12, "");
static_assert(offsetof(tr_JPGDataFileInfo, fragmentOffset) == 16, "");
static_assert(offsetof(tr_JPGDataFileInfo, fragmentSize) == 24, "");
static_assert(offsetof(tr_JPGDataFileInfo, imageDetails) == 32, "");
static_assert(offsetof(tr_JPGDataFileInfo, effinfoMask) == 1472, "");
static_assert(offsetof(tr_JPGDataFileInfo, fileTypeInfo) == 1480, "");
static_assert(offsetof(tr_JPGDataFileInfo, pictureEncode) == 1608, "");
static_assert(offsetof(tr_JPGDataFileInfo, unused2) == 1624, "");
static_assert(offsetof(tr_JPGDataFileInfo, validNum) == 1632, "");
static_assert(offsetof(tr_JPGDataFileInfo, unused3) == 1633, "");
static_assert(offsetof(tr_JPGDataFileInfo, reserved) == 1656, "");

static_assert(offsetof(tr_JPGDataFileInfo, inUse) == kSegmentInUseByte, "");

// The pictures the segment has: validNum, a whole byte, held to the 60
// entries the info has room for.
inline int pictureCount(const tr_JPGDataFileInfo& info) {
  return info.validNum < kMaxImageDetails ? info.validNum : kMaxImageDetails;
}
// Where picture `index` (from 0, at most pictureCount()) starts in the
// fragment: the sizes of the pictures before it added up.
uint64_t pictureStart(const tr_JPGDataFileInfo& info, int index);

int _tr_maintainPrintJpgDataInfo(const tr_JPGDataFileInfo* info, int fileNum,
                                 int segmentNum);

}  // namespace tr

#endif  // TRELLIS_FORMAT_JPG_DATA_FILE_INFO_H_
