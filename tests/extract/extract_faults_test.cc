// Every way copying media out of a data file can fail, for record and
// picture segments alike and for a single picture: the data file missing,
// unreadable, not positioned, ending early or failing a read; the output
// not created or the file system full; no memory for the buffer. Each case
// checks the messages, the result, what is left of the output file, and
// that every stream and buffer was given back.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "extract/picture_extract.h"
#include "extract/segment_extract.h"
#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

std::string pattern(size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) {
    seed = seed * 1664525u + 1013904223u;
    bytes[i] = static_cast<char>(seed >> 24);
  }
  return bytes;
}

// The calls the ledger installed; the fault functions below hand every
// call they do not fail on to these.
SysCalls gNext;
int gCalls = 0;

FILE* sourceUnreadable(const char* path, const char* mode) {
  if (mode[0] == 'r') {
    errno = EACCES;
    return nullptr;
  }
  return gNext.fopen(path, mode);
}

FILE* outputRefused(const char* path, const char* mode) {
  if (mode[0] == 'w') {
    errno = EROFS;
    return nullptr;
  }
  return gNext.fopen(path, mode);
}

int seekFails(FILE*, uint64_t) {
  errno = EIO;
  return -1;
}

// The first read or write goes through; the second fails.
size_t secondReadFails(void* buf, size_t size, size_t count, FILE* stream) {
  if (++gCalls == 2) {
    errno = EIO;
    return 0;
  }
  return gNext.fread(buf, size, count, stream);
}

size_t firstReadFails(void*, size_t, size_t, FILE*) {
  errno = EIO;
  return 0;
}

// Writes half of what it is given, then the file system is full.
size_t secondWriteHalf(const void* buf, size_t size, size_t count,
                       FILE* stream) {
  if (++gCalls != 2) return gNext.fwrite(buf, size, count, stream);
  const size_t written = gNext.fwrite(buf, size, count / 2, stream);
  errno = ENOSPC;
  return written;
}

size_t firstWriteShort(const void* buf, size_t size, size_t count,
                       FILE* stream) {
  const size_t written = gNext.fwrite(buf, size, 150, stream);
  (void)count;
  errno = ENOSPC;
  return written;
}

// A ledger whose calls the test may then replace one by one.
class Seams {
 public:
  Seams() {
    gNext = sys;
    gCalls = 0;
  }
  SysLedger& ledger() { return ledger_; }

 private:
  SysLedger ledger_;
};

struct SegmentKind {
  const char* name;
  bool picture;
  const char* dataFile;
  const char* outputFile;
  const char* noData;
};

const SegmentKind kKinds[] = {
    {"Record", false, "TR00005.mp4", "00005_0009.mp4",
     "[ERROR] _tr_maintainGetRecDataToFile This segment has no data\n"},
    {"Picture", true, "TR00005.picture", "00005_0009.jpg",
     "[ERROR] _tr_maintainGetJpgDataToFile This segment has no data\n"},
};

void PrintTo(const SegmentKind& kind, std::ostream* os) { *os << kind.name; }

// A segment of data file 5, segment 9, starting at byte 100. The lengths
// cross the 4 MiB copy chunk, so failures in the second chunk leave the
// first one behind.
constexpr uint64_t kStart = 100;
constexpr uint64_t kChunk = 4194304;
constexpr uint64_t kLength = kChunk + 2000;

class SegmentFaultTest : public testing::TestWithParam<SegmentKind> {
 protected:
  SegmentFaultTest() : media_(dir_.path()) {}

  std::string dataPath() const { return dir_.file(GetParam().dataFile); }
  std::string outputPath() const { return dir_.file(GetParam().outputFile); }
  std::string data(size_t size) {
    const std::string bytes = pattern(size, 5);
    writeFile(dataPath(), bytes);
    return bytes;
  }

  Captured extract(int* result, uint8_t inUse = 1) {
    return capture([&] {
      if (GetParam().picture) {
        tr_JPGDataFileInfo info;
        std::memset(&info, 0, sizeof info);
        info.inUse = inUse;
        info.fragmentOffset = kStart;
        info.fragmentSize = kLength;
        *result = _tr_maintainGetJpgDataToFile(&info, 5, 9);
      } else {
        tr_RecDataFileInfo info;
        std::memset(&info, 0, sizeof info);
        info.inUse = inUse;
        info.dataOffset = kStart;
        info.datalen = kLength;
        *result = _tr_maintainGetRecDataToFile(&info, 5, 9);
      }
    });
  }

  // Every stream closed and the buffer freed.
  static void expectReleased(Seams& seams) {
    EXPECT_EQ(seams.ledger().openStreams(), 0);
    EXPECT_EQ(seams.ledger().liveBlocks(), 0);
  }

  TempDir dir_;
  UseMediaDir media_;
};

TEST_P(SegmentFaultTest, SegmentNotInUseTouchesNoFile) {
  data(1000);
  Seams seams;
  int result = 0;
  const Captured c = extract(&result, 0);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, GetParam().noData);
  EXPECT_EQ(c.err, "");
  EXPECT_TRUE(seams.ledger().freadRequests().empty());
  EXPECT_FALSE(fileExists(outputPath()));
}

TEST_P(SegmentFaultTest, DataFileMissingOrUnreadableCreatesNoOutput) {
  const std::string message =
      "[ERROR] Failed to open source file: " + dataPath() + "\n";
  int result = 0;
  {
    Seams seams;
    const Captured c = extract(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.err, message);
    expectReleased(seams);
  }
  data(1000);
  Seams seams;
  sys.fopen = sourceUnreadable;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.err, message);
  EXPECT_FALSE(fileExists(outputPath()));
  expectReleased(seams);
}

TEST_P(SegmentFaultTest, FailedPositioningCreatesNoOutput) {
  data(1000);
  Seams seams;
  sys.fseek = seekFails;
  int result = 0;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.err, "[ERROR] Seek failed at offset 100\n");
  EXPECT_FALSE(fileExists(outputPath()));
  expectReleased(seams);
}

TEST_P(SegmentFaultTest, OutputThatCannotBeCreatedIsReported) {
  data(1000);
  Seams seams;
  sys.fopen = outputRefused;
  int result = 0;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.err,
            "[ERROR] Failed to create output file: " + outputPath() + "\n");
  EXPECT_FALSE(fileExists(outputPath()));
  expectReleased(seams);
}

TEST_P(SegmentFaultTest, NoMemoryLeavesAnEmptyOutput) {
  data(1000);
  writeFile(outputPath(), "an older copy");
  Seams seams;
  seams.ledger().failMalloc();
  int result = 0;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(c.err, "[ERROR] Memory allocation failed (4MB request)\n");
  EXPECT_EQ(seams.ledger().mallocRequests(), std::vector<size_t>{4194304});
  EXPECT_TRUE(fileExists(outputPath()));
  EXPECT_EQ(readFile(outputPath()), "");
  expectReleased(seams);
}

TEST_P(SegmentFaultTest, DataFileEndingEarlyKeepsWhatWasCopied) {
  // 500 bytes of the second chunk are there, 1500 are not.
  const std::string bytes = data(kStart + kChunk + 500);
  Seams seams;
  int result = 0;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(c.err,
            "[ERROR] Unexpected EOF (remaining: 1500 bytes)\n"
            "[ERROR] Incomplete extraction (missing: 1500 bytes)\n");
  EXPECT_TRUE(readFile(outputPath()) == bytes.substr(kStart));
  expectReleased(seams);
}

TEST_P(SegmentFaultTest, ReadErrorKeepsTheChunksBeforeIt) {
  const std::string bytes = data(kStart + kLength);
  Seams seams;
  sys.fread = secondReadFails;
  int result = 0;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.err,
            "[ERROR] Read operation failed: Input/output error\n"
            "[ERROR] Incomplete extraction (missing: 2000 bytes)\n");
  EXPECT_TRUE(readFile(outputPath()) == bytes.substr(kStart, kChunk));
  expectReleased(seams);
}

TEST_P(SegmentFaultTest, FullFileSystemKeepsWhatWasWritten) {
  const std::string bytes = data(kStart + kLength);
  int result = 0;
  {
    // The second chunk is half written; it still counts as missing.
    Seams seams;
    sys.fwrite = secondWriteHalf;
    const Captured c = extract(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.err,
              "[ERROR] Write operation failed: No space left on device\n"
              "[ERROR] Incomplete extraction (missing: 2000 bytes)\n");
    EXPECT_TRUE(readFile(outputPath()) == bytes.substr(kStart, kChunk + 1000));
    expectReleased(seams);
  }
  // A device that takes nothing at all.
  ASSERT_EQ(unlink(outputPath().c_str()), 0);
  ASSERT_EQ(symlink("/dev/full", outputPath().c_str()), 0);
  Seams seams;
  const Captured c = extract(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.err,
            "[ERROR] Write operation failed: No space left on device\n"
            "[ERROR] Incomplete extraction (missing: 4196304 bytes)\n");
  expectReleased(seams);
}

INSTANTIATE_TEST_SUITE_P(BothKinds, SegmentFaultTest, testing::ValuesIn(kKinds),
                         [](const testing::TestParamInfo<SegmentKind>& param) {
                           return std::string(param.param.name);
                         });

// One picture: picture 2 of data file 3, segment 12, 200 bytes at
// 1000 + 100.
class PictureFaultTest : public testing::Test {
 protected:
  PictureFaultTest() : media_(dir_.path()), data_(pattern(2000, 3)) {
    writeFile(dir_.file("TR00003.picture"), data_);
    std::memset(&info_, 0, sizeof info_);
    info_.inUse = 1;
    info_.fragmentOffset = 1000;
    info_.fragmentSize = 600;
    info_.validNum = 3;
    info_.imageDetails[0].jpgSize = 100;
    info_.imageDetails[1].jpgSize = 200;
    info_.imageDetails[2].jpgSize = 300;
  }
  Captured save(int* result) {
    return capture(
        [&] { *result = _tr_maintainGetOneJpgToFile(&info_, 3, 12, 2); });
  }
  std::string output() const { return dir_.file("00003_0012_02.jpg"); }

  TempDir dir_;
  UseMediaDir media_;
  std::string data_;
  tr_JPGDataFileInfo info_;
};

TEST_F(PictureFaultTest, SourceFailuresLeaveNoPictureFile) {
  struct Row {
    const char* name;
    void (*install)();
    std::string message;
  };
  const Row rows[] = {
      {"unreadable", [] { sys.fopen = sourceUnreadable; },
       "[ERROR] Failed to open source file: " + dir_.file("TR00003.picture") +
           "\n"},
      // 1000 + 100 = 0x44c
      {"not positioned", [] { sys.fseek = seekFails; },
       "[ERROR] Seek failed @ 0x000000000000044c (errno 5)\n"},
      {"read error", [] { sys.fread = firstReadFails; },
       "[ERROR] Read incomplete (0/200 bytes)\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Seams seams;
    row.install();
    int result = 0;
    const Captured c = save(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.err, row.message);
    EXPECT_FALSE(fileExists(output()));
    EXPECT_EQ(seams.ledger().openStreams(), 0);
    EXPECT_EQ(seams.ledger().liveBlocks(), 0);
  }
}

TEST_F(PictureFaultTest, OutputRefusedOrFullIsReported) {
  int result = 0;
  {
    Seams seams;
    sys.fopen = outputRefused;
    const Captured c = save(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.err,
              "[ERROR] Failed to create " + output() + " (errno 30)\n");
    EXPECT_FALSE(fileExists(output()));
    EXPECT_EQ(seams.ledger().openStreams(), 0);
    EXPECT_EQ(seams.ledger().liveBlocks(), 0);
  }
  Seams seams;
  sys.fwrite = firstWriteShort;
  const Captured c = save(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(c.err, "[ERROR] Write incomplete (150/200 bytes)\n");
  EXPECT_EQ(readFile(output()), data_.substr(1100, 150));
  EXPECT_EQ(seams.ledger().openStreams(), 0);
  EXPECT_EQ(seams.ledger().liveBlocks(), 0);
}

}  // namespace
}  // namespace test
}  // namespace tr
