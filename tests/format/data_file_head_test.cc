#include "format/data_file_head.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

using DataFileHeadTest = CardTest;

TEST_F(DataFileHeadTest, PrintsEveryFieldOfAValidHead) {
  // Record file, 100 segment infos a file: blocks of 32 + 100 x 640 bytes,
  // so data file 2 starts at 51328 + 264 + 64032.
  putIndexDimensions(image_, kCard2GRec, 3, 100, 100);
  putRecord(image_, 115624,
            {{0, std::string("DATA\0\x07\x01\x01", 8)}, {8, le(2, 4)}, {12, le(16909060, 4)},
             {16, le(1048577, 4)}, {20, le(99, 4)}, {24, "\xA0\xA1\xA2\xA3\xA4\xA5\xA6\xA7"}});
  EXPECT_EQ(print("recDataFileHead 2"), golden("data_file_head_full.txt"));
}

class DataFileHeadFieldTest : public CardTest, public testing::WithParamInterface<FieldCase> {};

// Stored codes pick word and colour; codes past the tables show their
// number. Data file 1 of a file with one segment info starts at 51592.
TEST_P(DataFileHeadFieldTest, ShowsTheStoredValue) {
  putIndexDimensions(image_, kCard2GRec, 1, 1, 100);
  image_.putText(51592 + GetParam().at, GetParam().bytes);
  EXPECT_TRUE(has(print("recDataFileHead 1"), GetParam().line));
}

const FieldCase kFields[] = {
    {0, "DATAX", fieldLine("Magic Word", "DATAX", kTestRed)},
    {6, le(0, 1), fieldLine("Validity", "Invalid", kTestRed)},
    {6, le(2, 1), fieldLine("Validity", "Read-Only", "\x1b[33m")},
    {6, le(3, 1), fieldLine("Validity", "Unknown (3)", kTestRed)},
    {7, le(0, 1), fieldLine("In Use", "No", kTestRed)},
    {7, le(2, 1), fieldLine("In Use", "Unknown (2)")},
    {16, le(1024, 4), fieldLine("Used Size", "1024 Bytes")},
    {16, le(1025, 4), fieldLine("Used Size", "1.00 KB")},
    {16, le(1048576, 4), fieldLine("Used Size", "1024.00 KB")},
    {16, le(4294967295, 4), fieldLine("Used Size", "4096.00 MB")},
};

INSTANTIATE_TEST_SUITE_P(Fields, DataFileHeadFieldTest, testing::ValuesIn(kFields));

TEST(DataFileHeadNullTest, MissingRecordIsReportedNotRead) {
  const Captured c = withoutDevice([] {
    EXPECT_EQ(_tr_maintainGetDataFileHeader(1, 1, 51328, nullptr), -1);
    _tr_maintainPrintDataFileHeader(nullptr, 1);
  });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintDataFileHeader header is null\n");
  EXPECT_EQ(c.err, "<TS> \x1b[31m_tr_maintainGetDataFileHeader header is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
