#include "format/aux_head.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

// On the 2 GiB card the auxiliary region is the last 100 x 43208 bytes of
// each 10724586-byte index file: auxiliary 1 of the record file lies at
// 51328 + 10724586 - 4320800.
constexpr uint64_t kRecAux1 = 6455114;

class AuxHeadTest : public CardTest {
 protected:
  AuxHeadTest() { putIndexDimensions(image_, kCard2GRec, 1, 1, 100); }
};

TEST_F(AuxHeadTest, PrintsEveryFieldOfAStoredHead) {
  // In use, not full, count 65535, reserved DE AD BE EF.
  image_.putText(kRecAux1, std::string("\x01\0\xFF\xFF\xDE\xAD\xBE\xEF", 8));
  EXPECT_EQ(print("recIndexAuxHead 1"), golden("aux_head_full.txt"));
}

TEST_F(AuxHeadTest, FlagsOutsideTheTableShowTheirValueInGreen) {
  image_.putText(kRecAux1, std::string("\0\x01", 2));
  image_.putText(kRecAux1 + 43208, "\x02\xFF");  // auxiliary 2
  EXPECT_TRUE(has(print("recIndexAuxHead 1"), fieldLine("isUsed", "No", kTestRed) +
                                                  fieldLine("isFull", "Yes") +
                                                  fieldLine("Current Count", "0")));
  EXPECT_TRUE(has(print("recIndexAuxHead 2"),
                  fieldLine("isUsed", "Unknown (2)") + fieldLine("isFull", "Unknown (255)")));
}

TEST(AuxHeadNullTest, MissingRecordIsReportedNotRead) {
  const Captured c = withoutDevice([] {
    EXPECT_EQ(_tr_maintainGetIndexAuxHeader(1, 1, 51328, nullptr), -1);
    _tr_maintainPrintIndexAuxHeader(nullptr, 1);
  });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintIndexAuxHeader header is null\n");
  EXPECT_EQ(c.err, "<TS> \x1b[31m_tr_maintainGetIndexAuxHeader header is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
