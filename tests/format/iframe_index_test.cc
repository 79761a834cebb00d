#include "format/iframe_index.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Record index file with maxFileNum 10 and maxSegmentNum 100: segment
// (7, 2) lies at 51328 + 264 + 6 x 64032 + 32 + 640 = 436456.
constexpr uint64_t kSegment72 = 436456;

const char kTitle72[] =
    "targetOffset        : \x1b[32m436456\x1b[0m\n"
    "\n<TS>\n"
    "\x1b[35m=== fileNum:7, segmentNum:2 tr_IFrameIndex ===\x1b[0m\n";
const char kEnd[] = "\x1b[35m===========END==========\n\x1b[0m";
const char kFirstFrame[] =
    "Frame [1/3]:\n"
    "utcTime             : \x1b[32m2024-03-05 07:08:09\x1b[0m\n"
    "offset              : \x1b[32m123\x1b[0m\n"
    "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
    "\x1b[36m\n0000: 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 "
    "\n0010: 11 12 13 14 \x1b[0m\n";

// Three entries and four stray bytes, as the recorder lays them out.
std::string threeEntryTable() {
  std::string table(100, '\0');
  const unsigned char first[12] = {0xD9, 0xC4, 0xE6, 0x65, 0, 0, 0, 0, 123};
  std::memcpy(&table[0], first, sizeof first);
  for (int i = 0; i < 20; ++i) table[12 + i] = static_cast<char>(i + 1);
  std::memset(&table[40], 0xFF, 4);            // entry 2: time 0, offset max
  table[64] = static_cast<char>(0xDA);         // entry 3: one second later
  std::memcpy(&table[65], "\xC4\xE6\x65", 3);
  table[72] = 7;
  table[76] = table[95] = static_cast<char>(0xAB);
  std::memset(&table[96], 0xEE, 4);
  return table;
}

class IFrameIndexTest : public testing::Test {
 protected:
  IFrameIndexTest() : card_(dir_.file("card.img"), kCard2G) {
    card_.put32(kCard2GRec + 144, 10);
    card_.put32(kCard2GRec + 148, 100);
    card_.put8(kSegment72 + 7, 1);
  }
  void setTable(uint64_t offset, uint64_t size) {
    card_.put64(kSegment72 + 24, offset);
    card_.put64(kSegment72 + 32, size);
  }
  RunResult run() {
    return runConsole("maintain recIFrameInfo 7 2\n",
                      {{"TRELLIS_DEVICE", card_.path()},
                       {"TRELLIS_MEDIA_DIR", dir_.path()}});
  }

  TempDir dir_;
  CardImage card_;
};

TEST_F(IFrameIndexTest, ListsEveryWholeEntryOfTheTable) {
  writeFile(dir_.file("TR00007.mp4"), std::string(4096, 'x') + threeEntryTable());
  setTable(4096, 100);
  const RunResult r = run();
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)),
            std::string(kTitle72) + kFirstFrame +
                "Frame [2/3]:\n"
                "utcTime             : \x1b[32m1970-01-01 00:00:00\x1b[0m\n"
                "offset              : \x1b[32m4294967295\x1b[0m\n"
                "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
                "\x1b[36m\n0000: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "\n0010: 00 00 00 00 \x1b[0m\n"
                "Frame [3/3]:\n"
                "utcTime             : \x1b[32m2024-03-05 07:08:10\x1b[0m\n"
                "offset              : \x1b[32m7\x1b[0m\n"
                "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
                "\x1b[36m\n0000: AB 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "\n0010: 00 00 00 AB \x1b[0m\n" +
                kEnd);
}

TEST_F(IFrameIndexTest, TableBeyondFourGiBIsReachedExactly) {
  CardImage data(dir_.file("TR00007.mp4"), 4294967296ULL + 8192);
  data.putText(4294971395ULL, threeEntryTable().substr(0, 32));
  setTable(4294971395ULL, 32);
  const std::string out = maskTimestamps(commandOutput(run().out));
  EXPECT_NE(out.find("Frame [1/1]:\nutcTime             : "
                     "\x1b[32m2024-03-05 07:08:09\x1b[0m\n"),
            std::string::npos)
      << out;
}

TEST_F(IFrameIndexTest, NothingToListOrNoFileToListFrom) {
  setTable(4096, 31);  // no data file at all: it is not opened
  RunResult r = run();
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)),
            std::string(kTitle72) + "_tr_maintainPrintIFrameIndex iFrameCount = 0\n");
  EXPECT_EQ(r.err, "");

  setTable(4096, 32);
  r = run();
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)), kTitle72);
  EXPECT_EQ(r.err, "[ERROR] Failed to open source file: " + dir_.path() +
                       "/TR00007.mp4\n");

  writeFile(dir_.file("TR00007.mp4"), threeEntryTable());
  setTable(9223372036854775808ULL, 32);
  r = run();
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)), kTitle72);
  EXPECT_EQ(r.err, "[ERROR] Seek failed at offset 9223372036854775808\n");

  card_.put8(kSegment72 + 7, 0);
  r = run();
  EXPECT_EQ(commandOutput(r.out),
            "targetOffset        : \x1b[32m436456\x1b[0m\n"
            "[ERROR] _tr_maintainPrintIFrameIndex This segment has no data\n");
}

TEST(IFrameIndexInProcess, FileEndingInsideTheTableListsWhatItHolds) {
  TempDir dir;
  UseMediaDir media(dir.path());
  writeFile(dir.file("TR00007.mp4"),
            std::string(4096, 'x') + threeEntryTable().substr(0, 48));
  tr_RecDataFileInfo info;
  std::memset(&info, 0, sizeof info);
  info.inUse = 1;
  info.iFrameInfoOffset = 4096;
  info.iFrameInfoSize = 96;
  SysLedger ledger;
  int result = -1;
  const Captured c =
      capture([&] { result = _tr_maintainPrintIFrameIndex(&info, 7, 2); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(maskTimestamps(c.out),
            "\n<TS>\n"
            "\x1b[35m=== fileNum:7, segmentNum:2 tr_IFrameIndex ===\x1b[0m\n" +
                std::string(kFirstFrame) + kEnd);
  EXPECT_EQ(c.err, "[ERROR]  fread failed: Success\n");
  EXPECT_EQ(ledger.openStreams(), 0);
}

}  // namespace
}  // namespace test
}  // namespace tr
