// The sample card's recordings: which data files and segments hold media,
// where in each data file every segment and its I-frame table lie, and the
// pictures of every picture segment. The plan is fixed apart from its start
// time, so two runs with the same --time give identical cards and media.
//
// Record data files (TR%05d.mp4), channel 1 recording into files 1 and 2,
// channel 2 into file 3:
//   file 1  read-only (full), segments 1-4 complete
//   file 2  read/write (being written): segments 1-2 complete, 3 cut short
//           (incomplete), 4 not in use
//   file 3  read/write, segments 1-2 complete; in the record index file
//           (not its backup) segment 2's dataOffset has a flipped bit and
//           points past the end of the data file
//   file 4  marked invalid
// Picture data files (TR%05d.picture): file 1 (channel 1) segments 1-3 with
// 4, 3 and 5 pictures, file 2 (channel 2) segment 1 with 3 pictures.
#ifndef TRELLIS_MKCARD_SAMPLE_PLAN_H_
#define TRELLIS_MKCARD_SAMPLE_PLAN_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tr {

// The sample needs at least this many data files and segments per file.
constexpr uint32_t kSampleMinFiles = 4;
constexpr uint32_t kSampleMinSegments = 4;
constexpr int32_t kSampleTimeZone = 28800;  // +08:00, no daylight saving

struct SampleRecSegment {
  uint32_t segmentNum;
  uint32_t dataIndex;
  uint64_t dataOffset;  // in the data file
  uint64_t datalen;
  uint64_t iFrameOffset;  // the I-frame table, right after the media
  uint32_t iFrames;
  std::string media;                  // the segment's video
  std::vector<uint64_t> iFrameStarts;  // where its I-frames begin in it
  int64_t startTime;
  int64_t endTime;
  const char* flag;  // record-type letters
  bool incomplete;
  uint32_t position;  // 1 head, 2 middle, 3 tail of its data file
  uint32_t nextFileNum;
};

struct SampleVideo {
  uint32_t streamType;
  uint32_t videoType;
  uint32_t width;
  uint32_t height;
  float fps;
  uint32_t audioType;
  uint32_t frequency;
};

struct SampleRecFile {
  uint32_t fileNum;
  uint8_t channel;
  uint8_t validity;  // 1 read/write, 2 read-only
  SampleVideo video;
  std::vector<SampleRecSegment> segments;  // the segments in use
  uint64_t size;                           // bytes of the data file
};

struct SamplePicture {
  int64_t utcTime;
  std::string jpeg;
};

struct SamplePicSegment {
  uint32_t segmentNum;
  uint32_t dataIndex;
  uint64_t fragmentOffset;
  uint64_t fragmentSize;  // the pictures' sizes added up
  const char* flag;
  std::vector<SamplePicture> pictures;
};

struct SamplePicFile {
  uint32_t fileNum;
  uint8_t channel;
  std::vector<SamplePicSegment> segments;
  uint64_t size;
};

struct SamplePlan {
  int64_t startTime;
  std::vector<SampleRecFile> recFiles;
  std::vector<SamplePicFile> picFiles;
  uint32_t invalidRecFile;  // the data file head marked invalid
  // The segment whose dataOffset the record index file holds with
  // flippedBit flipped; its backup holds the right value.
  uint32_t flippedRecFile;
  uint32_t flippedRecSegment;
  uint64_t flippedBit;
};

SamplePlan makeSamplePlan(int64_t startTime);

// A segment's media bytes (mkcard/sample_video.h) and I-frame table, as its
// data file holds them.
std::string sampleMedia(const SampleRecFile& file,
                        const SampleRecSegment& segment);
std::string sampleIFrameTable(const SampleRecFile& file,
                              const SampleRecSegment& segment);

// "TR00001.mp4", "TR00001.picture": the data file names the console opens.
std::string recDataFileName(uint32_t fileNum);
std::string picDataFileName(uint32_t fileNum);

}  // namespace tr

#endif  // TRELLIS_MKCARD_SAMPLE_PLAN_H_
