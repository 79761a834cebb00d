#include "format/trellis_head.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/golden.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

using TrellisHeadTest = CardTest;

TEST_F(TrellisHeadTest, PrintsEveryFieldOfAStoredHead) {
  putRecord(image_, 51200,
            {{0, std::string("TR_V001\0", 8)}, {8, le(51328, 8)},
             {16, le(4886718345, 8)},  // 0x1_2345_6789
             {24, le(21500500, 8)}, {32, le(0x0102030405060708, 8)}, {40, le(10724586, 8)},
             {48, le(16909060, 4)}, {52, le(4294967295, 4)}, {56, le(1025, 8)},
             {64, le(6442450944, 8)}, {72, "\x11"}, {127, "\x22"}});
  EXPECT_EQ(print("TrellisHead"), golden("trellis_head_full.txt"));
}

TEST_F(TrellisHeadTest, ZeroedHeadPrintsEmptyRedMagicAndZeros) {
  EXPECT_EQ(print("TrellisHead"), golden("trellis_head_blank.txt"));
}

// The eighth byte counts: without its NUL even the right seven letters
// are shown whole, in red.
TEST_F(TrellisHeadTest, MagicWithoutItsNulIsShownWholeInRed) {
  image_.put64(51208, 51328);
  for (const char* magic : {"ABCDEFGH", "TR_V001X"}) {
    image_.putText(51200, magic);
    EXPECT_TRUE(has(print("TrellisHead"), fieldLine("Magic Word", magic, kTestRed) +
                                              fieldLine("idxFileOffsetAV", "51328")));
  }
}

TEST(TrellisHeadNullTest, MissingRecordIsReportedNotRead) {
  const Captured c = withoutDevice([] {
    EXPECT_EQ(_tr_maintainGetTrellisHead(nullptr), -1);
    _tr_maintainPrintTrellisHead(nullptr);
  });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintTrellisHead header is null\n");
  EXPECT_EQ(c.err, "<TS> \x1b[31m_tr_maintainGetTrellisHead head is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
