#include "format/segment_facts.h"

#include <cstring>

#include "base/times.h"
#include "format/index_layout.h"

namespace tr {
namespace {

bool channelValid(uint64_t effinfoMask) {
  return (effinfoMask & ETR_MEDIAFILEEFFINFO_CHANNEL) != 0;
}

bool encodeValid(uint64_t effinfoMask) {
  return (effinfoMask & ETR_MEDIAFILEEFFINFO_ENCODE) != 0;
}

}  // namespace

SegmentFacts recordFacts(const tr_RecDataFileInfo& info) {
  return {channelValid(info.effinfoMask),
          info.fileTypeInfo.channel,
          timeGroupValid(info.effinfoMask),
          storedSeconds(info.timeInfo.startTime),
          storedSeconds(info.timeInfo.endTime),
          info.timeInfo.timeZone,
          info.dataOffset,
          info.datalen,
          -1,
          info.infoEx.isIncomplete != 0,
          encodeValid(info.effinfoMask),
          info.vFormat.type,
          info.vFormat.width,
          info.vFormat.height,
          info.vFormat.fps,
          recordTypes(info.fileTypeInfo, info.effinfoMask)};
}

SegmentFacts pictureFacts(const tr_JPGDataFileInfo& info) {
  const int pictures = pictureCount(info);
  const tr_ImageDetail& first = info.imageDetails[0];
  const tr_ImageDetail& last =
      info.imageDetails[pictures > 0 ? pictures - 1 : 0];
  return {channelValid(info.effinfoMask),
          info.fileTypeInfo.channel,
          pictures > 0 && timeGroupValid(info.effinfoMask),
          storedSeconds(first.utcTime),
          storedSeconds(last.utcTime),
          first.timeZone,
          info.fragmentOffset,
          info.fragmentSize,
          pictures,
          false,
          encodeValid(info.effinfoMask),
          info.pictureEncode.type,
          info.pictureEncode.width,
          info.pictureEncode.height,
          info.pictureEncode.fps,
          recordTypes(info.fileTypeInfo, info.effinfoMask)};
}

SegmentFacts segmentFacts(uint32_t kind, const unsigned char* info) {
  if (kind == kRecordKind) {
    tr_RecDataFileInfo record;
    std::memcpy(&record, info, sizeof record);
    return recordFacts(record);
  }
  tr_JPGDataFileInfo picture;
  std::memcpy(&picture, info, sizeof picture);
  return pictureFacts(picture);
}

}  // namespace tr
