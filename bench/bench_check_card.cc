#include "bench/bench_check_card.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"

namespace tr {
namespace bench {
namespace {

constexpr uint64_t kCardSize = 64ULL << 30;
constexpr uint32_t kSegments = 1000;
constexpr int64_t kStart = 1709622489;  // 2024-03-05 07:08:09 UTC

[[noreturn]] void fail(const std::string& what) {
  std::perror(what.c_str());
  std::exit(1);
}

// Records written at consecutive offsets of the image and, in the same
// order, at the end of the ranges file, through 1 MiB of buffer.
class Writer {
 public:
  Writer(int image, int ranges) : image_(image), ranges_(ranges) {}
  void seek(uint64_t offset) {
    flush();
    next_ = offset;
  }
  template <typename Record>
  void put(const Record& record) {
    const char* bytes = reinterpret_cast<const char*>(&record);
    buffer_.insert(buffer_.end(), bytes, bytes + sizeof record);
    if (buffer_.size() >= (1 << 20)) flush();
  }
  void flush() {
    if (buffer_.empty()) return;
    const ssize_t size = static_cast<ssize_t>(buffer_.size());
    if (pwrite(image_, buffer_.data(), buffer_.size(),
               static_cast<off_t>(next_)) != size ||
        write(ranges_, buffer_.data(), buffer_.size()) != size) {
      fail("bench check card");
    }
    next_ += buffer_.size();
    buffer_.clear();
  }

 private:
  int image_;
  int ranges_;
  uint64_t next_ = 0;
  std::vector<char> buffer_;
};

tr_RecDataFileInfo recSegment(uint32_t file, uint32_t s) {
  tr_RecDataFileInfo info = {};
  std::memcpy(info.magicWord, kSegmentInfoMagic, sizeof info.magicWord);
  info.inUse = 1;
  info.dataOffset = uint64_t{s - 1} * 262144;
  info.datalen = 250000;
  info.iFrameInfoOffset = info.dataOffset + info.datalen;
  info.iFrameInfoSize = 8 * 32;
  info.effinfoMask = 0xFF;
  info.timeInfo.startTime = kStart + int64_t{file} * 60000 + int64_t{s} * 60;
  info.timeInfo.endTime = info.timeInfo.startTime + 60;
  info.timeInfo.timeZone = 28800;
  std::memcpy(info.fileTypeInfo.flag, "R", 1);
  info.fileTypeInfo.streamType = 1;
  info.fileTypeInfo.channel = 1;
  info.vFormat = {4, 1920, 1080, 25.0f};
  info.dataIndex = s;
  info.infoEx.position = s == 1 ? 1 : s == kSegments ? 3 : 2;
  return info;
}

tr_JPGDataFileInfo picSegment(uint32_t file, uint32_t s) {
  tr_JPGDataFileInfo info = {};
  std::memcpy(info.magicWord, kSegmentInfoMagic, sizeof info.magicWord);
  info.inUse = 1;
  info.dataIndex = s;
  info.fragmentOffset = uint64_t{s - 1} * 65536;
  info.validNum = 4;
  for (int i = 0; i < 4; ++i) {
    info.imageDetails[i] = {
        kStart + int64_t{file} * 60000 + s * 60 + i * 10, 28800, 0, 15000, {}};
  }
  info.fragmentSize = 60000;
  info.effinfoMask = 0xFF;
  info.fileTypeInfo.channel = 1;
  info.pictureEncode = {5, 256, 144, 1.0f};
  return info;
}

void writeIndexFile(Writer* out, uint64_t base, uint64_t idxFileSize,
                    uint32_t kind, uint32_t files) {
  tr_IndexFileHead head = {};
  std::memcpy(head.magicWord, kIndexFileMagic, sizeof head.magicWord);
  head.fileType = static_cast<uint8_t>(kind);
  head.writeFileIndex[0] = files;
  head.maxFileNum = files;
  head.maxSegmentNum = kSegments;
  head.maxAuxNumber = kAuxiliaryCount;
  head.auxNum = 1;
  head.fileSize = idxFileSize;
  head.startTime = kStart;
  out->seek(base);
  out->put(head);
  for (uint32_t f = 1; f <= files; ++f) {
    tr_DataFileHead data = {};
    std::memcpy(data.magicWord, kDataFileMagic, sizeof data.magicWord);
    data.channel = 1;
    data.validity = 1;
    data.inUse = 1;
    data.fileNum = f;
    data.writeDataIndex = kSegments;
    data.validSegments = kSegments;
    out->put(data);
    for (uint32_t s = 1; s <= kSegments; ++s) {
      if (kind == kRecordKind) {
        out->put(recSegment(f, s));
      } else {
        out->put(picSegment(f, s));
      }
    }
  }
  out->seek(auxRegionStart(base, idxFileSize));
  for (uint32_t a = 1; a <= kAuxiliaryCount; ++a) {
    out->put(IndexFileAuxiliaryHead{1, 1, kContextsPerAuxiliary, {}});
    for (uint32_t c = 1; c <= kContextsPerAuxiliary; ++c) {
      IndexFileAuxiliaryContext context = {};
      context.startTime = kStart + int64_t{a} * 60000 + int64_t{c} * 600;
      context.endTime = context.startTime + 600;
      context.isUsed = 1;
      context.isFull = 1;
      for (int i = 0; i < kPositionsPerContext; ++i) {
        context.positionArray[i] = ((a % files + 1) << 16) | (i + 1);
      }
      out->put(context);
    }
  }
  out->flush();
}

// As many data files of kSegments segments as fit before the auxiliary
// region.
uint32_t filesThatFit(uint32_t kind, uint64_t idxFileSize) {
  return static_cast<uint32_t>(
      (auxRegionStart(0, idxFileSize) - kIndexFileHeadSize) /
      dataFileBlockSize(kind, kSegments));
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

}  // namespace

CheckCard prepareCheckCard(const std::string& dir) {
  const tr_TrellisHead layout = computeTrellisHead(kCardSize);
  const uint64_t size = layout.idxFileSize;
  const uint32_t files[2] = {filesThatFit(kRecordKind, size),
                             filesThatFit(kPictureKind, size)};
  CheckCard card;
  card.image = dir + "/check-card.img";
  card.ranges = dir + "/check-ranges.bin";
  card.rangeBytes = 0;
  for (int i = 0; i < 2; ++i) {
    const uint32_t kind = i == 0 ? kRecordKind : kPictureKind;
    card.rangeBytes +=
        2 * (dataFileAreaEnd(kind, files[i], kSegments) + kAuxRegionSize);
  }
  mkdir(dir.c_str(), 0755);
  if (fileSize(card.image) == kCardSize &&
      fileSize(card.ranges) == card.rangeBytes) {
    return card;
  }
  const int image = open(card.image.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  const int ranges =
      open(card.ranges.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (image < 0 || ranges < 0 ||
      ftruncate(image, static_cast<off_t>(kCardSize)) != 0) {
    fail(card.image);
  }
  Writer out(image, ranges);
  if (pwrite(image, &layout, sizeof layout,
             static_cast<off_t>(kTrellisHeadOffset)) != sizeof layout) {
    fail(card.image);
  }
  const uint64_t bases[4] = {
      layout.idxFileOffsetAV, layout.idxFileBackupOffsetAV,
      layout.idxFileOffsetPic, layout.idxFileBackupOffsetPic};
  for (int i = 0; i < 4; ++i) {
    writeIndexFile(&out, bases[i], size, i < 2 ? kRecordKind : kPictureKind,
                   files[i / 2]);
  }
  close(image);
  close(ranges);
  return card;
}

}  // namespace bench
}  // namespace tr
