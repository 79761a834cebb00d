// Saving one picture of a picture segment: which pictures exist, where each
// lies, and every failure leaving no picture file behind (or the part a
// failing write got out), with every stream and buffer given back.
#include "extract/picture_extract.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ostream>
#include <string>

#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}

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
  long size;  // -1: no picture file, -2: not read back (/dev/full)
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
       writeFile(d + "/TR00003.picture", pattern(1500));
     },
     "", "[ERROR] Read incomplete (200/300 bytes)\n", 0, -1},
    {"OutputCannotBeCreated", 1,
     [](Info&, SysLedger&, Dir d) {
       mkdir((d + "/00003_0012_01.jpg").c_str(), 0755);
     },
     "", "[ERROR] Failed to create @OUT (errno 21)\n", 0, -1},
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

class PictureTest : public testing::TestWithParam<PictureCase> {};

TEST_P(PictureTest, SavesOnlyAPictureTheSegmentHolds) {
  const PictureCase& row = GetParam();
  TempDir dir;
  UseMediaDir media(dir.path());
  const std::string data = pattern(1000 + 500100);
  writeFile(dir.file("TR00003.picture"), data);
  Info info{};
  info.inUse = 1;
  info.fragmentOffset = 1000;
  info.fragmentSize = 600;
  info.validNum = 3;
  info.imageDetails[0].jpgSize = 100;
  info.imageDetails[1].jpgSize = 200;
  info.imageDetails[2].jpgSize = 300;
  const std::string output =
      dir.file(formatString("00003_0012_%02u.jpg", row.picNum));
  SysLedger ledger;
  if (row.setUp != nullptr) row.setUp(info, ledger, dir.path());

  int result = 0;
  const Captured c = capture(
      [&] { result = _tr_maintainGetOneJpgToFile(&info, 3, 12, row.picNum); });
  const std::string source = dir.file("TR00003.picture");
  EXPECT_EQ(c.out, withPaths(row.out, source, output));
  EXPECT_EQ(c.err, withPaths(row.err, source, output));
  EXPECT_EQ(result, std::strncmp(row.out, "[SUCCESS]", 9) == 0 ? 0 : -1);
  if (row.size == -1) {
    EXPECT_FALSE(isRegularFile(output));
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
