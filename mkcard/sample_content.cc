#include "mkcard/sample_content.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "format/iframe_index.h"
#include "format/index_layout.h"
#include "mkcard/sample_pictures.h"

namespace tr {
namespace {

// Every validity group of a segment info: time, record type, stream type,
// channel and encoding.
constexpr uint64_t kAllGroupsValid = 0xFF;
constexpr uint32_t kSnapshotStream = 5;
constexpr uint32_t kMjpegEncode = 5;
constexpr uint32_t kAudioDepth = 16;
constexpr uint32_t kAudioMono = 1;
// Each auxiliary context covers four minutes of recording.
constexpr int64_t kContextSpan = 240;

const SampleRecFile* findRecFile(const SamplePlan& plan, uint32_t fileNum) {
  for (const SampleRecFile& file : plan.recFiles) {
    if (file.fileNum == fileNum) return &file;
  }
  return nullptr;
}

const SamplePicFile* findPicFile(const SamplePlan& plan, uint32_t fileNum) {
  for (const SamplePicFile& file : plan.picFiles) {
    if (file.fileNum == fileNum) return &file;
  }
  return nullptr;
}

void fillFileType(const char* flag, uint8_t channel, uint32_t streamType,
                  tr_FileTypeInfo* info) {
  std::memcpy(info->flag, flag, std::min(std::strlen(flag), sizeof info->flag));
  const uint64_t channelBit = uint64_t{1} << (channel - 1);
  for (const char* letter = flag; *letter != '\0'; ++letter) {
    switch (*letter) {
      case 'F':
        info->manualMask = channelBit;
        break;
      case 'A':
        info->alarmMask = channelBit;
        break;
      case 'M':
        info->eventMask = channelBit;
        break;
      case 'R':
        info->TimingMask = channelBit;
        break;
    }
  }
  info->streamType = streamType;
  info->channel = channel;
}

// A segment's place in time and its position entry (file << 16 | segment).
struct Span {
  int64_t start;
  int64_t end;
  uint32_t position;
};

std::vector<Span> spans(const SamplePlan& plan, uint32_t kind) {
  std::vector<Span> result;
  if (kind == kRecordKind) {
    for (const SampleRecFile& file : plan.recFiles) {
      for (const SampleRecSegment& s : file.segments) {
        result.push_back(
            {s.startTime, s.endTime, (file.fileNum << 16) | s.segmentNum});
      }
    }
  } else {
    for (const SamplePicFile& file : plan.picFiles) {
      for (const SamplePicSegment& s : file.segments) {
        result.push_back({s.pictures.front().utcTime, s.pictures.back().utcTime,
                          (file.fileNum << 16) | s.segmentNum});
      }
    }
  }
  // Positions are entered in the order the recordings began.
  std::stable_sort(
      result.begin(), result.end(),
      [](const Span& a, const Span& b) { return a.start < b.start; });
  return result;
}

uint32_t contextOf(const SamplePlan& plan, const Span& span) {
  return static_cast<uint32_t>((span.start - plan.startTime) / kContextSpan) +
         1;
}

uint32_t contextsInUse(const SamplePlan& plan, uint32_t kind) {
  uint32_t count = 0;
  for (const Span& span : spans(plan, kind)) {
    count = std::max(count, contextOf(plan, span));
  }
  return count;
}

}  // namespace

void SampleContent::indexFileHead(const IndexFilePlace& file,
                                  tr_IndexFileHead* head) const {
  CardContent::indexFileHead(file, head);
  // Each channel's latest data file is the one it writes.
  if (file.def->kind == kRecordKind) {
    for (const SampleRecFile& f : plan_.recFiles) {
      head->writeFileIndex[f.channel - 1] = f.fileNum;
    }
  } else {
    for (const SamplePicFile& f : plan_.picFiles) {
      head->writeFileIndex[f.channel - 1] = f.fileNum;
    }
  }
  if (file.def->kind == kPictureKind && file.def->backup) {
    std::memset(head->magicWord, 0, sizeof head->magicWord);
    head->exceptionFlag = 1;
  }
}

void SampleContent::dataFileHead(const IndexFilePlace& file, uint32_t fileNum,
                                 tr_DataFileHead* head) const {
  CardContent::dataFileHead(file, fileNum, head);
  if (file.def->kind == kRecordKind) {
    if (fileNum == plan_.invalidRecFile) head->validity = 0;
    const SampleRecFile* rec = findRecFile(plan_, fileNum);
    if (rec == nullptr) return;
    head->channel = rec->channel;
    head->validity = rec->validity;
    head->writeDataIndex = rec->segments.back().segmentNum;
    head->usedSize = static_cast<uint32_t>(rec->size);
    head->validSegments = static_cast<uint32_t>(rec->segments.size());
  } else {
    const SamplePicFile* pic = findPicFile(plan_, fileNum);
    if (pic == nullptr) return;
    head->channel = pic->channel;
    head->writeDataIndex = pic->segments.back().segmentNum;
    head->usedSize = static_cast<uint32_t>(pic->size);
    head->validSegments = static_cast<uint32_t>(pic->segments.size());
  }
  head->inUse = 1;
}

void SampleContent::recSegmentInfo(const IndexFilePlace& file, uint32_t fileNum,
                                   uint32_t segmentNum,
                                   tr_RecDataFileInfo* info) const {
  CardContent::recSegmentInfo(file, fileNum, segmentNum, info);
  const SampleRecFile* rec = findRecFile(plan_, fileNum);
  if (rec == nullptr) return;
  for (const SampleRecSegment& s : rec->segments) {
    if (s.segmentNum != segmentNum) continue;
    const SampleVideo& v = rec->video;
    info->inUse = 1;
    info->dataOffset = s.dataOffset;
    info->datalen = s.datalen;
    info->iFrameInfoOffset = s.iFrameOffset;
    info->iFrameInfoSize = uint64_t{s.iFrames} * sizeof(tr_IFrameIndex);
    info->effinfoMask = kAllGroupsValid;
    info->timeInfo.startTime = s.startTime;
    info->timeInfo.endTime = s.endTime;
    info->timeInfo.timeZone = kSampleTimeZone;
    fillFileType(s.flag, rec->channel, v.streamType, &info->fileTypeInfo);
    info->aEnable = v.audioType != 0 ? 1 : 0;
    if (info->aEnable != 0) {
      info->aFormat = {v.audioType, v.frequency, kAudioDepth, kAudioMono};
    }
    info->vEnable = 1;
    info->vFormat = {v.videoType, v.width, v.height, v.fps};
    info->dataIndex = s.dataIndex;
    info->infoEx.isIncomplete = s.incomplete ? 1 : 0;
    info->infoEx.position = s.position;
    info->infoEx.nextFileNum = s.nextFileNum;
    if (!file.def->backup && fileNum == plan_.flippedRecFile &&
        segmentNum == plan_.flippedRecSegment) {
      info->dataOffset ^= plan_.flippedBit;
    }
  }
}

void SampleContent::jpgSegmentInfo(const IndexFilePlace& file, uint32_t fileNum,
                                   uint32_t segmentNum,
                                   tr_JPGDataFileInfo* info) const {
  CardContent::jpgSegmentInfo(file, fileNum, segmentNum, info);
  const SamplePicFile* pic = findPicFile(plan_, fileNum);
  if (pic == nullptr) return;
  for (const SamplePicSegment& s : pic->segments) {
    if (s.segmentNum != segmentNum) continue;
    info->inUse = 1;
    info->dataIndex = s.dataIndex;
    info->fragmentOffset = s.fragmentOffset;
    info->fragmentSize = s.fragmentSize;
    const size_t count = std::min<size_t>(s.pictures.size(), kMaxImageDetails);
    for (size_t i = 0; i < count; ++i) {
      tr_ImageDetail& detail = info->imageDetails[i];
      detail.utcTime = s.pictures[i].utcTime;
      detail.timeZone = kSampleTimeZone;
      detail.jpgSize = static_cast<uint32_t>(s.pictures[i].jpeg.size());
    }
    info->validNum = static_cast<uint8_t>(count);
    info->effinfoMask = kAllGroupsValid;
    fillFileType(s.flag, pic->channel, kSnapshotStream, &info->fileTypeInfo);
    info->pictureEncode = {kMjpegEncode, kSamplePictureWidth,
                           kSamplePictureHeight, 1.0f};
  }
}

void SampleContent::auxHead(const IndexFilePlace& file, uint32_t auxNum,
                            IndexFileAuxiliaryHead* head) const {
  if (auxNum != 1) return;  // the current auxiliary, as the header says
  head->isUsed = 1;
  head->currentCount = static_cast<uint16_t>(contextsInUse(plan_, file.def->kind));
}

void SampleContent::auxContext(const IndexFilePlace& file, uint32_t auxNum,
                               uint32_t ctxNum,
                               IndexFileAuxiliaryContext* context) const {
  if (auxNum != 1) return;
  int used = 0;
  for (const Span& span : spans(plan_, file.def->kind)) {
    if (contextOf(plan_, span) != ctxNum) continue;
    if (used == 0 || span.start < context->startTime) {
      context->startTime = span.start;
    }
    context->endTime = std::max(context->endTime, span.end);
    if (used < kPositionsPerContext)
      context->positionArray[used++] = span.position;
  }
  if (used == 0) return;
  context->timeZone = kSampleTimeZone;
  context->isUsed = 1;
  // Only the current context is still being filled.
  context->isFull = ctxNum < contextsInUse(plan_, file.def->kind) ? 1 : 0;
}

}  // namespace tr
