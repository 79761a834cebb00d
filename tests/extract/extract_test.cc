// Copying media out of the data files: a record or picture segment exactly
// through one 4 MiB buffer, or one picture of a picture segment; and every
// way either can fail, with the messages, the result, what is left of the
// output file, and every stream and buffer given back.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "extract/picture_extract.h"
#include "extract/segment_extract.h"
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

const SegmentKind kKinds[] = {
    {"Record", false, "TR00005.mp4", "00005_0009.mp4",
     "[ERROR] _tr_maintainGetRecDataToFile This segment has no data\n"},
    {"Picture", true, "TR00005.picture", "00005_0009.jpg",
     "[ERROR] _tr_maintainGetJpgDataToFile This segment has no data\n"},
};

void PrintTo(const SegmentKind& kind, std::ostream* os) { *os << kind.name; }

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

// A copy longer than 64 MiB shows one progress line when standard error is
// a terminal, redrawn at most five times a second and wiped before the
// result; when it is not a terminal, nothing extra is printed.
TEST(SegmentProgressTest, DrawnOnlyOnATerminalAndWipedBeforeTheResult) {
  TempDir dir;
  UseMediaDir media(dir.path());
  SysOverride restore;
  CardImage data(dir.file("TR00005.mp4"), 72 * 1048576);
  ASSERT_EQ(symlink("/dev/null", dir.file("00005_0009.mp4").c_str()), 0);
  sys.fread = [](void* buf, size_t size, size_t count, FILE* stream) {
    usleep(50000);
    return kSystemCalls.fread(buf, size, count, stream);
  };
  EXPECT_EQ(capture([] { extract(kKinds[0], 1, 0, 72 * 1048576); }).err, "");

  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
  const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(capture([terminal] {
              const int saved = dup(2);
              dup2(terminal, 2);
              extract(kKinds[0], 1, 0, 72 * 1048576);
              dup2(saved, 2);
              close(saved);
            }).out,
            "[SUCCESS] Extracted 75497472 bytes to " + dir.file("00005_0009.mp4") + "\n");
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  close(terminal);
  std::string screen;
  char buf[4096];
  for (ssize_t got; (got = read(master, buf, sizeof buf)) > 0;) screen.append(buf, got);
  close(master);
  EXPECT_NE(screen.find(" of 75497472 bytes ("), std::string::npos) << screen;
  const size_t draws = std::count(screen.begin(), screen.end(), '\r') - 2;
  EXPECT_TRUE(draws >= 1 && draws <= seconds * 5 + 1) << draws << " in " << seconds;
  const size_t wipe = screen.find_last_of('\r', screen.size() - 2);
  EXPECT_EQ(screen.substr(wipe + 1), std::string(screen.size() - wipe - 2, ' ') + "\r");
}

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
                    // -2: not looked at (a directory, /dev/full)
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
     "[ERROR] Failed to create output file: @OUT\n", -2},
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
    EXPECT_FALSE(fileExists(output));
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

// Picture `picNum` of data file 3, segment 12, whose fragment holds
// pictures of 100, 200 and 300 bytes from byte 1000, after `setUp`.
using Info = tr_JPGDataFileInfo;
using Dir = const std::string&;  // the media directory

struct PictureCase {
  const char* name;
  uint32_t picNum;
  void (*setUp)(Info&, SysLedger&, Dir);
  const char* out;  // "@OUT": the picture file, "@SRC": the data file
  const char* err;
  long at;    // where the picture file's bytes lie in the data file;
  long size;  // -1: no picture file, -2: not looked at (a directory, /dev/full)
};

void PrintTo(const PictureCase& row, std::ostream* os) { *os << row.name; }

constexpr char kSaved[] = "[SUCCESS] Saved @OUT (Size: 0.00MB)\n";

const PictureCase kCases[] = {
    {"First", 1, nullptr, kSaved, "", 1000, 100},
    {"LastEndsWithTheFragment", 3, nullptr, kSaved, "", 1300, 300},
    {"SixtiethOfSixty", 60,
     [](Info& i, SysLedger&, Dir) {
       i.validNum = 200;
       for (auto& detail : i.imageDetails) detail.jpgSize = 10;
     },
     kSaved, "", 1590, 10},
    // Sizes are shown in MiB, two decimals: 500000 bytes are 0.48.
    {"SizeInMegabytes", 2,
     [](Info& i, SysLedger&, Dir) {
       i.imageDetails[1].jpgSize = 500000;
       i.fragmentSize = 500100;
     },
     "[SUCCESS] Saved @OUT (Size: 0.48MB)\n", "", 1100, 500000},
    // An empty picture needs no memory, whatever malloc(0) would do.
    {"EmptyPicture", 1,
     [](Info& i, SysLedger& ledger, Dir) {
       i.imageDetails[0].jpgSize = 0;
       ledger.failMalloc();
     },
     kSaved, "", 1000, 0},
    {"SegmentNotInUse", 1, [](Info& i, SysLedger&, Dir) { i.inUse = 0; },
     "[ERROR] _tr_maintainGetOneJpgToFile This segment has no data\n", "", 0,
     -1},
    {"PicNumZero", 0, nullptr, "",
     "[ERROR] Invalid picNum 0 (valid range: 1-3)\n", 0, -1},
    {"PicNumAboveValidNum", 4, nullptr, "",
     "[ERROR] Invalid picNum 4 (valid range: 1-3)\n", 0, -1},
    // validNum counts more pictures than the 60 entries can place.
    {"PicNumAboveSixty", 61, [](Info& i, SysLedger&, Dir) { i.validNum = 200; },
     "", "[ERROR] Invalid picNum 61 (valid range: 1-60)\n", 0, -1},
    {"OneBytePastTheFragment", 3,
     [](Info& i, SysLedger&, Dir) { i.fragmentSize = 599; }, "",
     "[ERROR] Image 3 exceeds fragment boundary\n", 0, -1},
    {"DataFileMissing", 1,
     [](Info&, SysLedger&, Dir d) { unlink((d + "/TR00003.picture").c_str()); },
     "", "[ERROR] Failed to open source file: @SRC\n", 0, -1},
    {"SeekPastTheSignedRange", 1,
     [](Info& i, SysLedger&, Dir) { i.fragmentOffset = 1ULL << 63; }, "",
     "[ERROR] Seek failed @ 0x8000000000000000 (errno 22)\n", 0, -1},
    // 2^64 - 50 + 100 passes the end of the 64-bit range.
    {"SeekOverflows", 2,
     [](Info& i, SysLedger&, Dir) { i.fragmentOffset = 0 - 50ULL; }, "",
     "[ERROR] Seek failed @ 0xffffffffffffffff (errno 75)\n", 0, -1},
    {"NoMemory", 1, [](Info&, SysLedger& ledger, Dir) { ledger.failMalloc(); },
     "", "[ERROR] Alloc 100 bytes failed\n", 0, -1},
    {"DataFileTooShort", 3,
     [](Info&, SysLedger&, Dir d) {
       writeFile(d + "/TR00003.picture", pattern(1500, 3));
     },
     "", "[ERROR] Read incomplete (200/300 bytes)\n", 0, -1},
    {"OutputCannotBeCreated", 1,
     [](Info&, SysLedger&, Dir d) {
       mkdir((d + "/00003_0012_01.jpg").c_str(), 0755);
     },
     "", "[ERROR] Failed to create @OUT (errno 21)\n", 0, -2},
    {"FullFileSystem", 2,
     [](Info&, SysLedger&, Dir d) {
       ASSERT_EQ(symlink("/dev/full", (d + "/00003_0012_02.jpg").c_str()), 0);
     },
     "", "[ERROR] Write incomplete (0/200 bytes)\n", 0, -2},
    {"WriteFallsShort", 2,
     [](Info&, SysLedger& ledger, Dir) { ledger.shortFwrite(1, 150); }, "",
     "[ERROR] Write incomplete (150/200 bytes)\n", 1100, 150},
    {"OutputCloseFails", 3,
     [](Info&, SysLedger& ledger, Dir) { ledger.failOutputClose(); }, "",
     "[ERROR] Write incomplete (300/300 bytes)\n", 1300, 300},
};

using PictureTest = MediaTest<PictureCase>;

TEST_P(PictureTest, SavesOnlyAPictureTheSegmentHolds) {
  const PictureCase& row = GetParam();
  const std::string data = pattern(1000 + 500100, 3);
  writeFile(dir_.file("TR00003.picture"), data);
  Info info{};
  info.inUse = 1;
  info.fragmentOffset = 1000;
  info.fragmentSize = 600;
  info.validNum = 3;
  info.imageDetails[0].jpgSize = 100;
  info.imageDetails[1].jpgSize = 200;
  info.imageDetails[2].jpgSize = 300;
  const std::string output =
      dir_.file(formatString("00003_0012_%02u.jpg", row.picNum));
  SysLedger ledger;
  if (row.setUp != nullptr) row.setUp(info, ledger, dir_.path());

  int result = 0;
  const Captured c = capture(
      [&] { result = _tr_maintainGetOneJpgToFile(&info, 3, 12, row.picNum); });
  const std::string source = dir_.file("TR00003.picture");
  EXPECT_EQ(c.out, withPaths(row.out, source, output));
  EXPECT_EQ(c.err, withPaths(row.err, source, output));
  EXPECT_EQ(result, std::strncmp(row.out, "[SUCCESS]", 9) == 0 ? 0 : -1);
  if (row.size == -1) {
    EXPECT_FALSE(fileExists(output));
  } else if (row.size >= 0) {
    EXPECT_TRUE(readFile(output) == data.substr(row.at, row.size));
  }
  EXPECT_EQ(ledger.openStreams(), 0);
  EXPECT_EQ(ledger.liveBlocks(), 0);
}

INSTANTIATE_TEST_SUITE_P(Cases, PictureTest, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<PictureCase>& p) {
                           return std::string(p.param.name);
                         });

}  // namespace
}  // namespace test
}  // namespace tr
