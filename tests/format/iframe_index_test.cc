#include "format/iframe_index.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/golden.h"
#include "tests/support/media_seams.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

const std::string kTitle =
    "\n<TS>\n\x1b[35m=== fileNum:7, segmentNum:2 tr_IFrameIndex ===\x1b[0m\n";

// One 32-byte entry: time, offset in the file, 20 reserved bytes.
std::string entry(uint64_t time, uint32_t offset, const std::string& reserved) {
  return le(time, 8) + le(offset, 4) + reserved + std::string(20 - reserved.size(), '\0');
}

// Three entries and four stray bytes, as the recorder lays them out.
const std::string kTable =
    entry(1709622489, 123, "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10"
                           "\x11\x12\x13\x14") +
    entry(0, 0xFFFFFFFF, "") + entry(1709622490, 7, "\xAB" + std::string(18, '\0') + "\xAB") +
    "\xEE\xEE\xEE\xEE";

// Segment (7, 2) in use, its record data file in a media directory of its
// own; every stream the listing takes is given back.
class IFrameIndexTest : public testing::Test {
 protected:
  IFrameIndexTest() : media_(dir_.path()) {
    std::memset(&info_, 0, sizeof info_);
    info_.inUse = 1;
  }
  ~IFrameIndexTest() override { EXPECT_EQ(ledger_.openStreams(), 0); }

  void setTable(uint64_t offset, uint64_t size, const std::string& file) {
    info_.iFrameInfoOffset = offset;
    info_.iFrameInfoSize = size;
    if (!file.empty()) writeFile(dir_.file("TR00007.mp4"), file);
  }
  Captured list(int expected) {
    int result = 99;
    Captured c = capture([&] { result = _tr_maintainPrintIFrameIndex(&info_, 7, 2); });
    EXPECT_EQ(result, expected);
    c.out = maskTimestamps(c.out);
    return c;
  }

  TempDir dir_;
  UseMediaDir media_;
  SysLedger ledger_;
  tr_RecDataFileInfo info_;
};
// The same listing, its data file failing it.
using IFrameIndexInProcess = IFrameIndexTest;
using IFrameFaultTest = IFrameIndexTest;

// 100 bytes hold three whole entries; the four left over are not one.
TEST_F(IFrameIndexTest, ListsEveryWholeEntryOfTheTable) {
  setTable(4096, 100, std::string(4096, 'x') + kTable);
  const Captured c = list(0);
  EXPECT_EQ(c.out, golden("iframe_index_three.txt"));
  EXPECT_EQ(c.err, "");
}

TEST_F(IFrameIndexTest, TableBeyondFourGiBIsReachedExactly) {
  CardImage data(dir_.file("TR00007.mp4"), 4294967296ULL + 8192);
  data.putText(4294971395ULL, kTable.substr(0, 32));
  setTable(4294971395ULL, 32, "");
  EXPECT_TRUE(has(list(0).out, "Frame [1/1]:\n" + fieldLine("utcTime", "2024-03-05 07:08:09")));
}

TEST_F(IFrameIndexTest, NothingToListOrNoFileToListFrom) {
  setTable(4096, 31, "");  // not one entry: no data file is opened
  Captured c = list(0);
  EXPECT_EQ(c.out, kTitle + "_tr_maintainPrintIFrameIndex iFrameCount = 0\n");
  EXPECT_EQ(c.err, "");

  setTable(4096, 32, "");
  c = list(-1);
  EXPECT_EQ(c.out, kTitle);
  EXPECT_EQ(c.err, "[ERROR] Failed to open source file: " + dir_.file("TR00007.mp4") + "\n");

  setTable(9223372036854775808ULL, 32, kTable);
  c = list(-1);
  EXPECT_EQ(c.out, kTitle);
  EXPECT_EQ(c.err, "[ERROR] Seek failed at offset 9223372036854775808\n");

  info_.inUse = 0;
  EXPECT_EQ(list(-1).out, "[ERROR] _tr_maintainPrintIFrameIndex This segment has no data\n");
}

// The file holds 4096 bytes and then only the first 48 of a table that
// claims 96 (three entries).
TEST_F(IFrameIndexInProcess, FileEndingInsideTheTableListsWhatItHolds) {
  setTable(4096, 96, std::string(4096, 'x') + kTable.substr(0, 48));
  const Captured c = list(-1);
  EXPECT_EQ(c.out, golden("iframe_index_cut.txt"));
  EXPECT_EQ(c.err, "[ERROR]  fread failed: Success\n");
}

// A read error keeps the entries before it and fails the listing.
TEST_F(IFrameFaultTest, ReadErrorInsideTheTableEndsTheListing) {
  setTable(4096, 96, std::string(4096, 'x') + kTable);
  ledger_.failFread(EIO, 2);
  const Captured c = list(-1);
  EXPECT_EQ(c.out, golden("iframe_index_cut.txt"));
  EXPECT_EQ(c.err, "[ERROR]  fread failed: Input/output error\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
