// The record segment info: 640 bytes describing one segment of recorded
// audio/video in a record index file: where its media and its I-frame table
// lie in the data file, which groups of media information are valid
// (effinfoMask), its time span and zone, record types, stream, channel and
// encodings. Also the reader of segment infos of either kind, and the parts
// the picture segment info shares with this record.
#ifndef TRELLIS_FORMAT_REC_DATA_FILE_INFO_H_
#define TRELLIS_FORMAT_REC_DATA_FILE_INFO_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

namespace tr {

constexpr char kSegmentInfoMagic[] = "DF_INFO";  // stored without its NUL

// effinfoMask bits; the four low bits together mark the time group valid.
enum : uint64_t {
  ETR_MEDIAFILEEFFINFO_TIME = 0xF,
  ETR_MEDIAFILEEFFINFO_FILETYPE = 0x10,
  ETR_MEDIAFILEEFFINFO_STREAMTYPE = 0x20,
  ETR_MEDIAFILEEFFINFO_CHANNEL = 0x40,
  ETR_MEDIAFILEEFFINFO_ENCODE = 0x80,
};

struct tr_TimeInfo {
  int64_t startTime;
  int64_t endTime;
  int32_t timeZone;  // seconds east of UTC
  uint8_t DST;
  uint8_t unused[27];
};

// Record types ('F' manual, 'A' alarm, 'M' event, 'R' scheduled) and their
// masks; the picture segment info holds the same block.
struct tr_FileTypeInfo {
  char flag[8];
  uint64_t manualMask;
  uint64_t alarmMask;
  uint64_t eventMask;
  uint64_t TimingMask;
  uint32_t streamType;
  int32_t channel;
  uint8_t unused[80];
};

struct tr_AudioFormat {
  uint32_t type;
  uint32_t frequency;  // Hz
  uint32_t depth;
  uint32_t mode;
};

// Also the picture segment info's pictureEncode.
struct tr_VideoFormat {
  uint32_t type;
  uint32_t width;
  uint32_t height;
  float fps;
};

struct tr_InfoEx {
  uint8_t isIncomplete;
  uint8_t unused1[3];
  uint32_t position;
  uint32_t nextFileNum;
  uint8_t unused2[4];
};

struct tr_RecDataFileInfo {
  char magicWord[7];
  uint8_t inUse;  // 0: the segment holds no data
  uint64_t dataOffset;
  uint64_t datalen;
  uint64_t iFrameInfoOffset;
  uint64_t iFrameInfoSize;
  uint64_t effinfoMask;
  tr_TimeInfo timeInfo;
  tr_FileTypeInfo fileTypeInfo;
  int32_t aEnable;
  tr_AudioFormat aFormat;
  uint8_t unused1[16];
  int32_t vEnable;
  tr_VideoFormat vFormat;
  uint8_t unused2[272];
  uint32_t dataIndex;
  tr_InfoEx infoEx;
  uint8_t reserved[68];
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "records are copied byte for byte from a little-endian device");
static_assert(sizeof(float) == 4, "fps is an IEEE 754 single");
static_assert(std::is_trivially_copyable<tr_RecDataFileInfo>::value, "");
static_assert(sizeof(tr_TimeInfo) == 48, "");
static_assert(offsetof(tr_TimeInfo, startTime) == 0, "");
static_assert(offsetof(tr_TimeInfo, endTime) == 8, "");
static_assert(offsetof(tr_TimeInfo, timeZone) == 16, "");
static_assert(offsetof(tr_TimeInfo, DST) == 20, "");
static_assert(offsetof(tr_TimeInfo, unused) == 21, "");
static_assert(sizeof(tr_FileTypeInfo) == 128, "");
static_assert(offsetof(tr_FileTypeInfo, flag) == 0, "");
static_assert(offsetof(tr_FileTypeInfo, manualMask) == 8, "");
static_assert(offsetof(tr_FileTypeInfo, alarmMask) == 16, "");
static_assert(offsetof(tr_FileTypeInfo, eventMask) == 24, "");
static_assert(offsetof(tr_FileTypeInfo, TimingMask) == 32, "");
static_assert(offsetof(tr_FileTypeInfo, streamType) == 40, "");
static_assert(offsetof(tr_FileTypeInfo, channel) == 44, "");
static_assert(offsetof(tr_FileTypeInfo, unused) == 48, "");
static_assert(sizeof(tr_AudioFormat) == 16, "");
static_assert(offsetof(tr_AudioFormat, frequency) == 4, "");
static_assert(offsetof(tr_AudioFormat, depth) == 8, "");
static_assert(offsetof(tr_AudioFormat, mode) == 12, "");
static_assert(sizeof(tr_VideoFormat) == 16, "");
static_assert(offsetof(tr_VideoFormat, width) == 4, "");
static_assert(offsetof(tr_VideoFormat, height) == 8, "");
static_assert(offsetof(tr_VideoFormat, fps) == 12, "");
static_assert(sizeof(tr_InfoEx) == 16, "");
static_assert(offsetof(tr_InfoEx, isIncomplete) == 0, "");
static_assert(offsetof(tr_InfoEx, unused1) == 1, "");
static_assert(offsetof(tr_InfoEx, position) == 4, "");
static_assert(offsetof(tr_InfoEx, nextFileNum) == 8, "");
static_assert(offsetof(tr_InfoEx, unused2) == 12, "");
static_assert(sizeof(tr_RecDataFileInfo) == 640, "");
static_assert(offsetof(tr_RecDataFileInfo, magicWord) == 0, "");
static_assert(offsetof(tr_RecDataFileInfo, inUse) == 7, "");
static_assert(offsetof(tr_RecDataFileInfo, dataOffset) == 8, "");
static_assert(offsetof(tr_RecDataFileInfo, datalen) == 16, "");
static_assert(offsetof(tr_RecDataFileInfo, iFrameInfoOffset) == 24, "");
static_assert(offsetof(tr_RecDataFileInfo, iFrameInfoSize) == 32, "");
static_assert(offsetof(tr_RecDataFileInfo, effinfoMask) == 40, "");
static_assert(offsetof(tr_RecDataFileInfo, timeInfo) == 48, "");
static_assert(offsetof(tr_RecDataFileInfo, fileTypeInfo) == 96, "");
static_assert(offsetof(tr_RecDataFileInfo, aEnable) == 224, "");
static_assert(offsetof(tr_RecDataFileInfo, aFormat) == 228, "");
static_assert(offsetof(tr_RecDataFileInfo, unused1) == 244, "");
static_assert(offsetof(tr_RecDataFileInfo, vEnable) == 260, "");
static_assert(offsetof(tr_RecDataFileInfo, vFormat) == 264, "");
static_assert(offsetof(tr_RecDataFileInfo, unused2) == 280, "");
static_assert(offsetof(tr_RecDataFileInfo, dataIndex) == 552, "");
static_assert(offsetof(tr_RecDataFileInfo, infoEx) == 556, "");
static_assert(offsetof(tr_RecDataFileInfo, reserved) == 572, "");

// The time group is valid only when all four of its bits are set.
constexpr bool timeGroupValid(uint64_t effinfoMask) {
  return (effinfoMask & ETR_MEDIAFILEEFFINFO_TIME) == ETR_MEDIAFILEEFFINFO_TIME;
}

// Both kinds of segment info keep their in-use flag in byte 7; 0 means the
// segment holds no data. `info` is a segment info of either kind.
constexpr size_t kSegmentInUseByte = offsetof(tr_RecDataFileInfo, inUse);
// The kinds of recording a segment's flag letters name ('F' manual, 'A'
// alarm, 'M' event, 'R' scheduled), as bits; 0 when the file type group is
// not valid or names none.
enum RecordTypeBit : uint32_t {
  kManualRecording = 1,
  kAlarmRecording = 2,
  kEventRecording = 4,
  kScheduledRecording = 8,
};
uint32_t recordTypes(const tr_FileTypeInfo& info, uint64_t effinfoMask);

inline bool segmentInUse(const unsigned char* info) {
  return info[kSegmentInUseByte] != 0;
}

// Reads segment info (fileNum, segmentNum) of the index file at `offset`:
// 640 bytes for kind 1 (record), 1680 for any other kind (picture).
int _tr_maintainGetDataFileInfo(uint32_t kind, uint32_t fileNum,
                                uint32_t segmentNum, uint64_t offset,
                                void* info);
int _tr_maintainPrintRecDataInfo(const tr_RecDataFileInfo* info, int fileNum,
                                 int segmentNum);
const char* _tr_maintainVideoEncodeTypeToStr(uint32_t type);
const char* _tr_maintainAudioEncodeTypeToStr(int type);

// The record-type block as both segment info printers show it: the list of
// record types with the masks of the letters present, the stream type and
// the channel, each group or, when its effinfoMask bit is clear, its red
// "invalid" line.
void printFileTypeInfo(const tr_FileTypeInfo& info, uint64_t effinfoMask);
// The opening both segment info printers share: the record heading titled
// "fileNum:F, segmentNum:S <recordName>", the magic word and "In Use".
void printSegmentInfoHeading(const char* recordName, int fileNum,
                             int segmentNum, const char* magicWord,
                             size_t magicSize, uint64_t inUse);
// "0x" and sixteen upper-case hexadecimal digits, as the segment infos show
// offsets and masks.
std::string hex64Text(uint64_t value);

}  // namespace tr

#endif  // TRELLIS_FORMAT_REC_DATA_FILE_INFO_H_
