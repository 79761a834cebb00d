#include "bench/bench_card.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"

namespace tr {
namespace bench {
namespace {

constexpr uint64_t kCardSize = 2147483648ULL;
constexpr uint64_t kLarge = 1ULL << 30;
constexpr uint64_t kSmall = 64ULL << 20;
constexpr uint64_t kDataStart = 4096;
// A picture the picture index file says is 4 GiB long, as a damaged card may.
constexpr uint32_t kHugePicture = 0xFFFFFFFF;

[[noreturn]] void fail(const std::string& what) {
  std::perror(what.c_str());
  std::exit(1);
}

void writeAt(int fd, uint64_t offset, const void* bytes, size_t count) {
  if (pwrite(fd, bytes, count, static_cast<off_t>(offset)) !=
      static_cast<ssize_t>(count)) {
    fail("bench card write");
  }
}

// A recording of channel 1 that began at `start` and lasted `seconds`.
tr_RecDataFileInfo segment(uint64_t offset, uint64_t length, int64_t start,
                           int64_t seconds) {
  tr_RecDataFileInfo info;
  std::memset(&info, 0, sizeof info);
  std::memcpy(info.magicWord, kSegmentInfoMagic, sizeof info.magicWord);
  info.inUse = 1;
  info.dataOffset = offset;
  info.datalen = length;
  info.effinfoMask = 0xFF;
  info.timeInfo.startTime = start;
  info.timeInfo.endTime = start + seconds;
  info.timeInfo.timeZone = 28800;
  info.fileTypeInfo.channel = 1;
  std::memcpy(info.fileTypeInfo.flag, "R", 1);
  info.fileTypeInfo.streamType = 1;
  info.aFormat = {5, 44100, 16, 1};
  info.vFormat = {4, 1920, 1080, 25.0f};
  return info;
}

void writeCard(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ftruncate(fd, static_cast<off_t>(kCardSize)) != 0) fail(path);
  const tr_TrellisHead layout = computeTrellisHead(kCardSize);
  const uint64_t base = layout.idxFileOffsetAV;
  tr_IndexFileHead header;
  std::memset(&header, 0, sizeof header);
  std::memcpy(header.magicWord, kIndexFileMagic, sizeof header.magicWord);
  header.fileType = kRecordKind;
  header.maxFileNum = 1;
  header.maxSegmentNum = 2;
  header.maxAuxNumber = 1;
  header.auxNum = 1;
  writeAt(fd, base, &header, sizeof header);
  // The 1 GiB recording an hour long, the small one two hours later.
  const tr_RecDataFileInfo large =
      segment(kDataStart, kLarge, kLargeStart, 3600);
  const tr_RecDataFileInfo small =
      segment(kDataStart, kSmall, kLargeStart + 7200, 60);
  writeAt(fd, segmentInfoOffset(base, kRecordKind, 2, 1, 1), &large, sizeof large);
  writeAt(fd, segmentInfoOffset(base, kRecordKind, 2, 1, 2), &small, sizeof small);

  const uint64_t picBase = layout.idxFileOffsetPic;
  header.fileType = kPictureKind;
  header.maxSegmentNum = 1;
  writeAt(fd, picBase, &header, sizeof header);
  tr_JPGDataFileInfo picture;
  std::memset(&picture, 0, sizeof picture);
  std::memcpy(picture.magicWord, kSegmentInfoMagic, sizeof picture.magicWord);
  picture.inUse = 1;
  picture.fragmentSize = kHugePicture;
  picture.imageDetails[0].jpgSize = kHugePicture;
  picture.validNum = 1;
  writeAt(fd, segmentInfoOffset(picBase, kPictureKind, 1, 1, 1), &picture,
          sizeof picture);
  close(fd);
}

// All of it a hole: what is measured is the memory of the copy.
void writePictureFile(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ftruncate(fd, static_cast<off_t>(kHugePicture)) != 0) fail(path);
  close(fd);
}

// Real bytes, not a hole: the copy must move data through the page cache.
void writeDataFile(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) == 0 &&
      static_cast<uint64_t>(st.st_size) == kDataStart + kLarge) {
    return;
  }
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) fail(path);
  std::vector<uint32_t> chunk(1 << 20);
  uint32_t x = 2463534242u;
  for (uint64_t written = 0; written < kDataStart + kLarge;) {
    for (uint32_t& word : chunk) {
      x ^= x << 13;
      x ^= x >> 17;
      x ^= x << 5;
      word = x;
    }
    const size_t bytes = chunk.size() * sizeof(uint32_t);
    if (write(fd, chunk.data(), bytes) != static_cast<ssize_t>(bytes)) fail(path);
    written += bytes;
  }
  if (ftruncate(fd, static_cast<off_t>(kDataStart + kLarge)) != 0) fail(path);
  close(fd);
}

}  // namespace

Card prepareCard(const std::string& dir) {
  Card card;
  card.image = dir + "/card.img";
  card.media = dir + "/media";
  card.dataFile = card.media + "/TR00001.mp4";
  card.pictureFile = card.media + "/TR00001.picture";
  card.largeOffset = kDataStart;
  card.largeLength = kLarge;
  mkdir(dir.c_str(), 0755);
  mkdir(card.media.c_str(), 0755);
  writeCard(card.image);
  writeDataFile(card.dataFile);
  writePictureFile(card.pictureFile);
  return card;
}

void warmCache(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) fail(path);
  std::vector<char> buffer(4 << 20);
  while (read(fd, buffer.data(), buffer.size()) > 0) {
  }
  close(fd);
}

bool sameFile(const std::string& a, const std::string& b) {
  FILE* fa = std::fopen(a.c_str(), "rb");
  FILE* fb = std::fopen(b.c_str(), "rb");
  bool same = fa != nullptr && fb != nullptr;
  std::vector<char> ba(1 << 20);
  std::vector<char> bb(1 << 20);
  while (same) {
    const size_t na = std::fread(ba.data(), 1, ba.size(), fa);
    const size_t nb = std::fread(bb.data(), 1, bb.size(), fb);
    same = na == nb && std::memcmp(ba.data(), bb.data(), na) == 0;
    if (na == 0) break;
  }
  if (fa != nullptr) std::fclose(fa);
  if (fb != nullptr) std::fclose(fb);
  return same;
}

}  // namespace bench
}  // namespace tr
