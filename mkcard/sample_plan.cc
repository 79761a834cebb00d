#include "mkcard/sample_plan.h"

#include <cstring>

#include "base/platform.h"
#include "format/iframe_index.h"
#include "mkcard/sample_pictures.h"
#include "mkcard/sample_video.h"

namespace tr {
namespace {

// Segments start on 4 KiB boundaries of their data file, as the recorder
// allocates them.
constexpr uint64_t kSegmentAlignment = 4096;
// One I-frame every 8 seconds of recording.
constexpr int kIFrameInterval = 8;

struct RecFileDef {
  uint32_t fileNum;
  uint8_t channel;
  uint8_t validity;
  SampleVideo video;
};

// Main streams of H.264 video without audio: channel 1 at 25 pictures a
// second, channel 2 at 15.
constexpr RecFileDef kRecFiles[] = {
    {1, 1, 2, {1, 4, kSampleVideoWidth, kSampleVideoHeight, 25.0f, 0, 0}},
    {2, 1, 1, {1, 4, kSampleVideoWidth, kSampleVideoHeight, 25.0f, 0, 0}},
    {3, 2, 1, {1, 4, kSampleVideoWidth, kSampleVideoHeight, 15.0f, 0, 0}},
};

struct RecSegmentDef {
  uint32_t fileNum;
  uint32_t segmentNum;
  int64_t start;  // seconds after the card's start time
  int duration;
  const char* flag;
  bool incomplete;
};

constexpr RecSegmentDef kRecSegments[] = {
    {1, 1, 0, 60, "R", false},
    {1, 2, 60, 60, "R", false},
    {1, 3, 120, 60, "RM", false},
    {1, 4, 180, 60, "R", false},
    {2, 1, 240, 60, "R", false},
    {2, 2, 300, 60, "RA", false},
    // The power failed 21 seconds into this segment.
    {2, 3, 360, 21, "R", true},
    {3, 1, 0, 60, "F", false},
    {3, 2, 60, 60, "F", false},
};

struct PicSegmentDef {
  uint32_t fileNum;
  uint32_t segmentNum;
  int64_t first;  // seconds after the card's start time
  int interval;
  int count;
  const char* flag;
};

// Scheduled snapshots, an alarm burst, an event series, manual snapshots.
constexpr PicSegmentDef kPicSegments[] = {
    {1, 1, 0, 60, 4, "R"},
    {1, 2, 130, 2, 3, "A"},
    {1, 3, 200, 2, 5, "M"},
    {2, 1, 30, 10, 3, "F"},
};

uint64_t align(uint64_t offset) {
  return (offset + kSegmentAlignment - 1) / kSegmentAlignment *
         kSegmentAlignment;
}

// The data file its channel went on to record into, 0 for none yet.
uint32_t nextFileOfChannel(const RecFileDef& file) {
  for (const RecFileDef& later : kRecFiles) {
    if (later.fileNum > file.fileNum && later.channel == file.channel) {
      return later.fileNum;
    }
  }
  return 0;
}

void planRecordings(SamplePlan* plan) {
  uint32_t dataIndex = 0;
  for (const RecFileDef& def : kRecFiles) {
    SampleRecFile file = {};
    file.fileNum = def.fileNum;
    file.channel = def.channel;
    file.validity = def.validity;
    file.video = def.video;
    for (const RecSegmentDef& s : kRecSegments) {
      if (s.fileNum != def.fileNum) continue;
      SampleRecSegment segment = {};
      segment.segmentNum = s.segmentNum;
      segment.dataIndex = ++dataIndex;
      segment.dataOffset = align(file.size);
      segment.startTime = plan->startTime + s.start;
      segment.media = sampleVideo(
          def.channel, segment.startTime + kSampleTimeZone, s.duration,
          static_cast<int>(def.video.fps), kIFrameInterval,
          &segment.iFrameStarts);
      segment.datalen = segment.media.size();
      segment.iFrameOffset = segment.dataOffset + segment.datalen;
      segment.iFrames = static_cast<uint32_t>(segment.iFrameStarts.size());
      segment.endTime = segment.startTime + s.duration;
      segment.flag = s.flag;
      segment.incomplete = s.incomplete;
      segment.position = file.segments.empty() ? 1 : 2;
      segment.nextFileNum = nextFileOfChannel(def);
      file.size =
          segment.iFrameOffset + segment.iFrames * sizeof(tr_IFrameIndex);
      file.segments.push_back(segment);
    }
    file.segments.back().position = 3;
    plan->recFiles.push_back(file);
  }
}

void planPictures(SamplePlan* plan) {
  uint32_t dataIndex = 0;
  uint32_t number = 0;
  for (const PicSegmentDef& s : kPicSegments) {
    if (plan->picFiles.empty() || plan->picFiles.back().fileNum != s.fileNum) {
      plan->picFiles.push_back(
          {s.fileNum, static_cast<uint8_t>(s.fileNum), {}, 0});
    }
    SamplePicFile& file = plan->picFiles.back();
    SamplePicSegment segment = {s.segmentNum, ++dataIndex, align(file.size), 0,
                                s.flag,       {}};
    for (int i = 0; i < s.count; ++i) {
      const int64_t time = plan->startTime + s.first + int64_t{i} * s.interval;
      segment.pictures.push_back(
          {time, sampleJpeg(file.channel, ++number, time + kSampleTimeZone)});
      segment.fragmentSize += segment.pictures.back().jpeg.size();
    }
    file.size = segment.fragmentOffset + segment.fragmentSize;
    file.segments.push_back(segment);
  }
}

}  // namespace

SamplePlan makeSamplePlan(int64_t startTime) {
  SamplePlan plan;
  plan.startTime = startTime;
  plan.invalidRecFile = 4;
  plan.flippedRecFile = 3;
  plan.flippedRecSegment = 2;
  plan.flippedBit = uint64_t{1} << 20;
  planRecordings(&plan);
  planPictures(&plan);
  return plan;
}

std::string sampleMedia(const SampleRecFile&,
                        const SampleRecSegment& segment) {
  return segment.media;
}

std::string sampleIFrameTable(const SampleRecFile&,
                              const SampleRecSegment& segment) {
  std::string table;
  for (uint32_t k = 0; k < segment.iFrames; ++k) {
    tr_IFrameIndex entry;
    std::memset(&entry, 0, sizeof entry);
    entry.utcTime = segment.startTime + int64_t{k} * kIFrameInterval;
    // The I-frame's position in the data file.
    entry.offset = static_cast<uint32_t>(segment.dataOffset +
                                         segment.iFrameStarts[k]);
    table.append(reinterpret_cast<const char*>(&entry), sizeof entry);
  }
  return table;
}

std::string recDataFileName(uint32_t fileNum) {
  return formatString("TR%05u.mp4", fileNum);
}

std::string picDataFileName(uint32_t fileNum) {
  return formatString("TR%05u.picture", fileNum);
}

}  // namespace tr
