#include "format/record_fields.h"

#include <cstring>
#include <iterator>

#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "format/trellis_head.h"

namespace tr {
namespace {

constexpr FieldShow kB = FieldShow::kBytes;
constexpr FieldShow kText = FieldShow::kText;
constexpr FieldShow kU = FieldShow::kUnsigned;
constexpr FieldShow kS = FieldShow::kSigned;
constexpr FieldShow kX = FieldShow::kHex;
constexpr FieldShow kT = FieldShow::kTime;
constexpr FieldShow kF = FieldShow::kFloat;

// The fields follow one another without a gap and end with the record.
template <size_t N>
constexpr bool coversRecord(const FieldSpan (&fields)[N], size_t size) {
  size_t next = 0;
  for (const FieldSpan& field : fields) {
    if (field.offset != next) return false;
    next += field.size * field.count;
  }
  return next == size;
}

using T = tr_TrellisHead;
constexpr FieldSpan kStorageHead[] = {
    {"magicWord", offsetof(T, magicWord), sizeof(T::magicWord), 1, kText},
    {"idxFileOffsetAV", offsetof(T, idxFileOffsetAV), 8, 1, kU},
    {"idxFileBackupOffsetAV", offsetof(T, idxFileBackupOffsetAV), 8, 1, kU},
    {"idxFileOffsetPic", offsetof(T, idxFileOffsetPic), 8, 1, kU},
    {"idxFileBackupOffsetPic", offsetof(T, idxFileBackupOffsetPic), 8, 1, kU},
    {"idxFileSize", offsetof(T, idxFileSize), 8, 1, kU},
    {"idxCheckFlagAV", offsetof(T, idxCheckFlagAV), 4, 1, kU},
    {"idxCheckFlagPic", offsetof(T, idxCheckFlagPic), 4, 1, kU},
    {"AVSectorSize", offsetof(T, AVSectorSize), 8, 1, kU},
    {"PicSectorSize", offsetof(T, PicSectorSize), 8, 1, kU},
    {"reserved", offsetof(T, reserved), sizeof(T::reserved), 1, kB},
};
static_assert(coversRecord(kStorageHead, sizeof(T)), "");

using H = tr_IndexFileHead;
constexpr FieldSpan kHead[] = {
    {"magicWord", offsetof(H, magicWord), sizeof(H::magicWord), 1, kText},
    {"fileType", offsetof(H, fileType), 1, 1, kU},
    {"reserved1", offsetof(H, reserved1), sizeof(H::reserved1), 1, kB},
    {"writeFileIndex", offsetof(H, writeFileIndex), 4, 32, kU},
    {"maxFileNum", offsetof(H, maxFileNum), 4, 1, kU},
    {"maxSegmentNum", offsetof(H, maxSegmentNum), 4, 1, kU},
    {"maxAuxNumber", offsetof(H, maxAuxNumber), 4, 1, kU},
    {"auxNum", offsetof(H, auxNum), 4, 1, kU},
    {"fileSize", offsetof(H, fileSize), 8, 1, kU},
    {"exceptionFlag", offsetof(H, exceptionFlag), 1, 1, kU},
    {"gap1", offsetof(H, gap1), sizeof(H::gap1), 1, kB},
    {"startTime", offsetof(H, startTime), 8, 1, kT},
    {"reserved2", offsetof(H, reserved2), sizeof(H::reserved2), 1, kB},
    {"gap2", offsetof(H, gap2), sizeof(H::gap2), 1, kB},
};
static_assert(coversRecord(kHead, sizeof(H)), "");

using D = tr_DataFileHead;
constexpr FieldSpan kDataHead[] = {
    {"magicWord", offsetof(D, magicWord), sizeof(D::magicWord), 1, kText},
    {"channel", offsetof(D, channel), 1, 1, kU},
    {"validity", offsetof(D, validity), 1, 1, kU},
    {"inUse", offsetof(D, inUse), 1, 1, kU},
    {"fileNum", offsetof(D, fileNum), 4, 1, kU},
    {"writeDataIndex", offsetof(D, writeDataIndex), 4, 1, kU},
    {"usedSize", offsetof(D, usedSize), 4, 1, kU},
    {"validSegments", offsetof(D, validSegments), 4, 1, kU},
    {"reserved", offsetof(D, reserved), sizeof(D::reserved), 1, kB},
};
static_assert(coversRecord(kDataHead, sizeof(D)), "");

using R = tr_RecDataFileInfo;
constexpr FieldSpan kRec[] = {
    {"magicWord", offsetof(R, magicWord), sizeof(R::magicWord), 1, kText},
    {"inUse", offsetof(R, inUse), 1, 1, kU},
    {"dataOffset", offsetof(R, dataOffset), 8, 1, kX},
    {"datalen", offsetof(R, datalen), 8, 1, kU},
    {"iFrameInfoOffset", offsetof(R, iFrameInfoOffset), 8, 1, kX},
    {"iFrameInfoSize", offsetof(R, iFrameInfoSize), 8, 1, kU},
    {"effinfoMask", offsetof(R, effinfoMask), 8, 1, kX},
    {"timeInfo.startTime", offsetof(R, timeInfo.startTime), 8, 1, kT},
    {"timeInfo.endTime", offsetof(R, timeInfo.endTime), 8, 1, kT},
    {"timeInfo.timeZone", offsetof(R, timeInfo.timeZone), 4, 1, kS},
    {"timeInfo.DST", offsetof(R, timeInfo.DST), 1, 1, kU},
    {"timeInfo.unused", offsetof(R, timeInfo.unused),
     sizeof(R::timeInfo.unused), 1, kB},
    {"fileTypeInfo.flag", offsetof(R, fileTypeInfo.flag), 8, 1, kB},
    {"fileTypeInfo.manualMask", offsetof(R, fileTypeInfo.manualMask), 8, 1, kX},
    {"fileTypeInfo.alarmMask", offsetof(R, fileTypeInfo.alarmMask), 8, 1, kX},
    {"fileTypeInfo.eventMask", offsetof(R, fileTypeInfo.eventMask), 8, 1, kX},
    {"fileTypeInfo.TimingMask", offsetof(R, fileTypeInfo.TimingMask), 8, 1, kX},
    {"fileTypeInfo.streamType", offsetof(R, fileTypeInfo.streamType), 4, 1, kU},
    {"fileTypeInfo.channel", offsetof(R, fileTypeInfo.channel), 4, 1, kS},
    {"fileTypeInfo.unused", offsetof(R, fileTypeInfo.unused),
     sizeof(R::fileTypeInfo.unused), 1, kB},
    {"aEnable", offsetof(R, aEnable), 4, 1, kS},
    {"aFormat.type", offsetof(R, aFormat.type), 4, 1, kU},
    {"aFormat.frequency", offsetof(R, aFormat.frequency), 4, 1, kU},
    {"aFormat.depth", offsetof(R, aFormat.depth), 4, 1, kU},
    {"aFormat.mode", offsetof(R, aFormat.mode), 4, 1, kU},
    {"unused1", offsetof(R, unused1), sizeof(R::unused1), 1, kB},
    {"vEnable", offsetof(R, vEnable), 4, 1, kS},
    {"vFormat.type", offsetof(R, vFormat.type), 4, 1, kU},
    {"vFormat.width", offsetof(R, vFormat.width), 4, 1, kU},
    {"vFormat.height", offsetof(R, vFormat.height), 4, 1, kU},
    {"vFormat.fps", offsetof(R, vFormat.fps), 4, 1, kF},
    {"unused2", offsetof(R, unused2), sizeof(R::unused2), 1, kB},
    {"dataIndex", offsetof(R, dataIndex), 4, 1, kU},
    {"infoEx.isIncomplete", offsetof(R, infoEx.isIncomplete), 1, 1, kU},
    {"infoEx.unused1", offsetof(R, infoEx.unused1), sizeof(R::infoEx.unused1),
     1, kB},
    {"infoEx.position", offsetof(R, infoEx.position), 4, 1, kU},
    {"infoEx.nextFileNum", offsetof(R, infoEx.nextFileNum), 4, 1, kU},
    {"infoEx.unused2", offsetof(R, infoEx.unused2), sizeof(R::infoEx.unused2),
     1, kB},
    {"reserved", offsetof(R, reserved), sizeof(R::reserved), 1, kB},
};
static_assert(coversRecord(kRec, sizeof(R)), "");

using J = tr_JPGDataFileInfo;
constexpr FieldSpan kJpg[] = {
    {"magicWord", offsetof(J, magicWord), sizeof(J::magicWord), 1, kText},
    {"inUse", offsetof(J, inUse), 1, 1, kU},
    {"unused1", offsetof(J, unused1), sizeof(J::unused1), 1, kB},
    {"dataIndex", offsetof(J, dataIndex), 4, 1, kU},
    {"fragmentOffset", offsetof(J, fragmentOffset), 8, 1, kX},
    {"fragmentSize", offsetof(J, fragmentSize), 8, 1, kU},
    {"imageDetails", offsetof(J, imageDetails), sizeof(tr_ImageDetail),
     kMaxImageDetails, kB},
    {"effinfoMask", offsetof(J, effinfoMask), 8, 1, kX},
    {"fileTypeInfo.flag", offsetof(J, fileTypeInfo.flag), 8, 1, kB},
    {"fileTypeInfo.manualMask", offsetof(J, fileTypeInfo.manualMask), 8, 1, kX},
    {"fileTypeInfo.alarmMask", offsetof(J, fileTypeInfo.alarmMask), 8, 1, kX},
    {"fileTypeInfo.eventMask", offsetof(J, fileTypeInfo.eventMask), 8, 1, kX},
    {"fileTypeInfo.TimingMask", offsetof(J, fileTypeInfo.TimingMask), 8, 1, kX},
    {"fileTypeInfo.streamType", offsetof(J, fileTypeInfo.streamType), 4, 1, kU},
    {"fileTypeInfo.channel", offsetof(J, fileTypeInfo.channel), 4, 1, kS},
    {"fileTypeInfo.unused", offsetof(J, fileTypeInfo.unused),
     sizeof(J::fileTypeInfo.unused), 1, kB},
    {"pictureEncode.type", offsetof(J, pictureEncode.type), 4, 1, kU},
    {"pictureEncode.width", offsetof(J, pictureEncode.width), 4, 1, kU},
    {"pictureEncode.height", offsetof(J, pictureEncode.height), 4, 1, kU},
    {"pictureEncode.fps", offsetof(J, pictureEncode.fps), 4, 1, kF},
    {"unused2", offsetof(J, unused2), sizeof(J::unused2), 1, kB},
    {"validNum", offsetof(J, validNum), 1, 1, kU},
    {"unused3", offsetof(J, unused3), sizeof(J::unused3), 1, kB},
    {"reserved", offsetof(J, reserved), sizeof(J::reserved), 1, kB},
};
static_assert(coversRecord(kJpg, sizeof(J)), "");

using A = IndexFileAuxiliaryHead;
constexpr FieldSpan kAuxHead[] = {
    {"isUsed", offsetof(A, isUsed), 1, 1, kU},
    {"isFull", offsetof(A, isFull), 1, 1, kU},
    {"currentCount", offsetof(A, currentCount), 2, 1, kU},
    {"reserved", offsetof(A, reserved), sizeof(A::reserved), 1, kB},
};
static_assert(coversRecord(kAuxHead, sizeof(A)), "");

using C = IndexFileAuxiliaryContext;
constexpr FieldSpan kContext[] = {
    {"startTime", offsetof(C, startTime), 8, 1, kT},
    {"endTime", offsetof(C, endTime), 8, 1, kT},
    {"timeZone", offsetof(C, timeZone), 4, 1, kS},
    {"DST", offsetof(C, DST), 4, 1, kU},
    {"isUsed", offsetof(C, isUsed), 4, 1, kU},
    {"isFull", offsetof(C, isFull), 1, 1, kU},
    {"reserved", offsetof(C, reserved), sizeof(C::reserved), 1, kB},
    {"positionArray", offsetof(C, positionArray), 4, kPositionsPerContext, kU},
};
static_assert(coversRecord(kContext, sizeof(C)), "");

}  // namespace

const RecordFields kTrellisHeadFields = {kStorageHead, std::size(kStorageHead),
                                         sizeof(T)};
const RecordFields kIndexFileHeadFields = {kHead, std::size(kHead), sizeof(H)};
const RecordFields kDataFileHeadFields = {kDataHead, std::size(kDataHead),
                                          sizeof(D)};
const RecordFields kRecSegmentFields = {kRec, std::size(kRec), sizeof(R)};
const RecordFields kJpgSegmentFields = {kJpg, std::size(kJpg), sizeof(J)};
const RecordFields kAuxHeadFields = {kAuxHead, std::size(kAuxHead), sizeof(A)};
const RecordFields kAuxContextFields = {kContext, std::size(kContext),
                                        sizeof(C)};

uint64_t fieldNumber(const FieldSpan& field, const unsigned char* bytes) {
  uint64_t raw = 0;  // the host is little-endian, as the card
  std::memcpy(&raw, bytes, field.size < 8 ? field.size : 8);
  return raw;
}

int64_t fieldSigned(const FieldSpan& field, const unsigned char* bytes) {
  const uint64_t raw = fieldNumber(field, bytes);
  if (field.size >= 8) return static_cast<int64_t>(raw);
  const uint64_t sign = uint64_t{1} << (8 * field.size - 1);
  return static_cast<int64_t>((raw ^ sign) - sign);
}

}  // namespace tr
