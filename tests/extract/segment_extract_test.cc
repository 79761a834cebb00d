// Copying a record or picture segment out of its data file: exactly its
// bytes through one 4 MiB buffer, and every way the copy can fail, with the
// messages, the result, what is left of the output file, and every stream
// and buffer given back.
#include "extract/segment_extract.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

constexpr uint64_t kChunk = 4194304;

std::string pattern(size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) {
    seed = seed * 1664525u + 1013904223u;
    bytes[i] = static_cast<char>(seed >> 24);
  }
  return bytes;
}

struct SegmentKind {
  const char* name;
  bool picture;
  const char* dataFile;
  const char* outputFile;
  const char* noData;
};

void PrintTo(const SegmentKind& kind, std::ostream* os) { *os << kind.name; }

const SegmentKind kKinds[] = {
    {"Record", false, "TR00005.mp4", "00005_0009.mp4",
     "[ERROR] _tr_maintainGetRecDataToFile This segment has no data\n"},
    {"Picture", true, "TR00005.picture", "00005_0009.jpg",
     "[ERROR] _tr_maintainGetJpgDataToFile This segment has no data\n"},
};

// Segment 9 of data file 5, extracted in process.
int extract(const SegmentKind& kind, uint8_t inUse, uint64_t start,
            uint64_t length) {
  tr_RecDataFileInfo rec{};
  tr_JPGDataFileInfo pic{};
  rec.inUse = pic.inUse = inUse;
  rec.dataOffset = pic.fragmentOffset = start;
  rec.datalen = pic.fragmentSize = length;
  return kind.picture ? _tr_maintainGetJpgDataToFile(&pic, 5, 9)
                      : _tr_maintainGetRecDataToFile(&rec, 5, 9);
}

template <typename Param>
class MediaTest : public testing::TestWithParam<Param> {
 protected:
  TempDir dir_;
  UseMediaDir media_{dir_.path()};
};

using SegmentTest = MediaTest<SegmentKind>;

// Lengths around the copy chunk, from a start beyond 4 GiB, each replacing
// an older, longer output.
TEST_P(SegmentTest, CopiesExactlyTheSegmentThroughOneBuffer) {
  const SegmentKind& kind = GetParam();
  const std::string output = dir_.file(kind.outputFile);
  const uint64_t start = 4294967296ULL + 1000;
  const std::string bytes = pattern(kChunk + 1, 1);
  CardImage(dir_.file(kind.dataFile), start + kChunk + 100)
      .putText(start, bytes);
  const std::vector<size_t> reads[] = {{}, {kChunk}, {kChunk, 1}};
  for (size_t k = 0; k < 3; ++k) {
    const uint64_t length = k == 0 ? 0 : kChunk + k - 1;
    writeFile(output, std::string(5000000, 'o'));
    SysLedger ledger;
    int result = -1;
    const Captured c =
        capture([&] { result = extract(kind, 1, start, length); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(c.out, "[SUCCESS] Extracted " + std::to_string(length) +
                         " bytes to " + output + "\n");
    EXPECT_EQ(c.err, "");
    EXPECT_TRUE(readFile(output) == bytes.substr(0, length)) << length;
    EXPECT_EQ(ledger.mallocRequests(), std::vector<size_t>{kChunk});
    EXPECT_EQ(ledger.freadRequests(), reads[k]);
    EXPECT_EQ(ledger.openStreams(), 0);
    EXPECT_EQ(ledger.liveBlocks(), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(BothKinds, SegmentTest, testing::ValuesIn(kKinds),
                         [](const testing::TestParamInfo<SegmentKind>& p) {
                           return std::string(p.param.name);
                         });

// A segment of kChunk + 2000 bytes: failures in the second chunk leave the
// first behind.
using Out = const std::string&;  // the output file

struct CopyFault {
  const char* name;
  uint64_t start;
  long dataBytes;  // in the data file after byte 100; -1: no data file
  void (*setUp)(SysLedger&, Out);
  const char* err;  // "@SRC": the data file, "@OUT": the output
  long kept;        // bytes of the segment in the output; -1: no output file,
                    // -2: not read back (/dev/full)
  uint8_t inUse = 1;
};

void PrintTo(const CopyFault& row, std::ostream* os) { *os << row.name; }

const CopyFault kFaults[] = {
    {"SegmentNotInUse", 100, 10, nullptr, "", -1, 0},
    {"DataFileMissing", 100, -1, nullptr,
     "[ERROR] Failed to open source file: @SRC\n", -1},
    {"SeekPastTheSignedRange", 1ULL << 63, 10, nullptr,
     "[ERROR] Seek failed at offset 9223372036854775808\n", -1},
    {"OutputCannotBeCreated", 100, 10,
     [](SysLedger&, Out out) { mkdir(out.c_str(), 0755); },
     "[ERROR] Failed to create output file: @OUT\n", -1},
    // An older copy is emptied all the same.
    {"NoMemory", 100, 10,
     [](SysLedger& ledger, Out out) {
       writeFile(out, "an older copy");
       ledger.failMalloc();
     },
     "[ERROR] Memory allocation failed (4MB request)\n", 0},
    {"DataFileEndsEarly", 100, kChunk + 500, nullptr,
     "[ERROR] Unexpected EOF (remaining: 1500 bytes)\n"
     "[ERROR] Incomplete extraction (missing: 1500 bytes)\n",
     kChunk + 500},
    {"ReadError", 100, kChunk + 2000,
     [](SysLedger& ledger, Out) { ledger.failFread(EIO, 2); },
     "[ERROR] Read operation failed: Input/output error\n"
     "[ERROR] Incomplete extraction (missing: 2000 bytes)\n",
     kChunk},
    // Half of the second chunk written still counts as missing.
    {"WriteFallsShort", 100, kChunk + 2000,
     [](SysLedger& ledger, Out) { ledger.shortFwrite(2, 1000); },
     "[ERROR] Write operation failed: No space left on device\n"
     "[ERROR] Incomplete extraction (missing: 2000 bytes)\n",
     kChunk + 1000},
    {"FullFileSystem", 100, kChunk + 2000,
     [](SysLedger&, Out out) {
       ASSERT_EQ(symlink("/dev/full", out.c_str()), 0);
     },
     "[ERROR] Write operation failed: No space left on device\n"
     "[ERROR] Incomplete extraction (missing: 4196304 bytes)\n",
     -2},
    {"OutputCloseFails", 100, kChunk + 2000,
     [](SysLedger& ledger, Out) { ledger.failOutputClose(); },
     "[ERROR] Write operation failed: Input/output error\n", kChunk + 2000},
};

using SegmentFaultTest = MediaTest<std::tuple<SegmentKind, CopyFault>>;

TEST_P(SegmentFaultTest, ReportsItAndKeepsWhatWasCopied) {
  const SegmentKind& kind = std::get<0>(GetParam());
  const CopyFault& row = std::get<1>(GetParam());
  const std::string source = dir_.file(kind.dataFile);
  const std::string output = dir_.file(kind.outputFile);
  const std::string data = pattern(100 + std::max(row.dataBytes, 0L), 5);
  if (row.dataBytes >= 0) writeFile(source, data);
  SysLedger ledger;
  if (row.setUp != nullptr) row.setUp(ledger, output);
  int result = 0;
  const Captured c = capture(
      [&] { result = extract(kind, row.inUse, row.start, kChunk + 2000); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, row.inUse == 0 ? kind.noData : "");
  EXPECT_EQ(c.err, withPaths(row.err, source, output));
  if (row.kept == -1) {
    EXPECT_FALSE(isRegularFile(output));
  } else if (row.kept >= 0) {
    EXPECT_TRUE(readFile(output) == data.substr(100, row.kept));
  }
  EXPECT_EQ(ledger.openStreams(), 0);
  EXPECT_EQ(ledger.liveBlocks(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    BothKinds, SegmentFaultTest,
    testing::Combine(testing::ValuesIn(kKinds), testing::ValuesIn(kFaults)),
    [](const testing::TestParamInfo<SegmentFaultTest::ParamType>& p) {
      return std::string(std::get<0>(p.param).name) + "_" +
             std::get<1>(p.param).name;
    });

}  // namespace
}  // namespace test
}  // namespace tr
