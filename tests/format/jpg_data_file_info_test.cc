#include "format/jpg_data_file_info.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

// Picture index file of the 2 GiB card with maxFileNum 4, maxSegmentNum 60:
// blocks of 32 + 60 x 1680 = 100832 bytes, so segment info (2, 3) lies at
// 21500500 + 264 + 100832 + 32 + 2 x 1680.
constexpr uint64_t kSeg23 = 21604988;

class JpgDataFileInfoTest : public CardTest {
 protected:
  JpgDataFileInfoTest() {
    putIndexDimensions(image_, kCard2GPic, 4, 60, 0);
    writeSegment();
  }
  std::string print23() { return print("picDataFileInfo 2 3"); }

  void putDetail(int entry, uint64_t time, int32_t zone, uint32_t dst, uint32_t size) {
    putRecord(image_, kSeg23 + 32 + 24 * entry,
              {{0, le(time, 8)}, {8, le(zone, 4)}, {12, le(dst, 4)}, {16, le(size, 4)}});
  }

  void writeSegment() {
    putRecord(image_, kSeg23,
              {{0, "DF_INFO\x01"}, {8, le(0xEEEEEEEE, 4)},  // not interpreted
               {12, le(12, 4)}, {16, le(0x200000000ULL, 8)}, {24, le(1025, 8)},
               {1472, le(0xFF, 8)}, {1480, "AM"}, {1488, le(0x11, 8)}, {1496, le(0x22, 8)},
               {1504, le(0x33, 8)}, {1512, le(0x44, 8)}, {1520, le(5, 4)}, {1524, le(7, 4)},
               {1608, le(5, 4)}, {1612, le(640, 4)}, {1616, le(480, 4)},
               {1620, le(0x3F800000, 4)},  // 1.0f
               {1632, "\x03\xEE"}, {1656, "\xD0"}, {1679, "\xD1"}});
    putDetail(0, 1709622489, 28800, 1, 1024);
    putDetail(1, 1709622490, -19800, 0, 1048576);
    putDetail(2, 1709622491, -1800, 2, 1048577);
    putDetail(3, 1, 0, 0, 0);  // past validNum
  }
};

const char kDetailsTitle[] = "\x1b[34m\n[Image Details]\n\x1b[0m";
const char kFileTypeTitle[] = "\n\x1b[34m[File Type]\n\x1b[0m";

TEST_F(JpgDataFileInfoTest, PrintsEveryFieldAndEachValidPicture) {
  EXPECT_EQ(print23(), golden("jpg_data_file_info_full.txt"));
}

// The picture printer shares the record-type block and its red lines with
// the record printer, and has its own encode line.
TEST_F(JpgDataFileInfoTest, ClearedBitsReplaceTheirGroups) {
  image_.put64(kSeg23 + 1472, 0x7);
  EXPECT_EQ(print23(), golden("jpg_data_file_info_mask7.txt"));
}

// A count past the 60 entries lists the 60 there are, ending with the last
// entry; what follows the array (the mask, the record types) is never read
// as a picture.
TEST_F(JpgDataFileInfoTest, CountsAboveSixtyListSixtyPictures) {
  putDetail(59, 1709622489, 3600, 1, 59);
  const std::string last = fieldLine("utcTime", "2024-03-05 07:08:09") +
                           fieldLine("timeZone", "+01:00") + fieldLine("DST", "Enabled") +
                           fieldLine("jpgSize", "59 Bytes");
  for (int count : {60, 61, 255}) {
    image_.put8(kSeg23 + 1632, static_cast<uint8_t>(count));
    const std::string out = print23();
    EXPECT_TRUE(has(out, fieldLine("validNum", std::to_string(count))));
    EXPECT_TRUE(has(out, last + kFileTypeTitle)) << count;
  }
}

class JpgFieldTest : public JpgDataFileInfoTest, public testing::WithParamInterface<FieldCase> {};

TEST_P(JpgFieldTest, ShowsTheStoredValue) {
  image_.putText(kSeg23 + GetParam().at, GetParam().bytes);
  EXPECT_TRUE(has(print23(), GetParam().line));
}

const FieldCase kFields[] = {
    {1632, le(0, 1),  // no valid picture: only the title
     fieldLine("validNum", "0") + fieldLine("effinfoMask", "0x00000000000000FF") + kDetailsTitle +
         kFileTypeTitle},
    {24, le(1024, 4), fieldLine("fragmentSize", "1024 Bytes")},
    {24, le(1048576, 4), fieldLine("fragmentSize", "1024.00 KB")},
    {24, le(1048577, 4), fieldLine("fragmentSize", "1.00 MB")},
    {1608, le(0, 4), fieldLine("type", "Undefined Video")},
    {1608, le(11, 4), fieldLine("type", "Undefined Video")},
    {1620, le(0x41EFC28F, 4), fieldLine("fps", "29.969999")},
    {1520, le(8, 4), fieldLine("streamType", "Unknown (8)")},
    {7, le(0, 1), fieldLine("In Use", "No", kTestRed)},
    {7, le(2, 1), fieldLine("In Use", "Unknown (2)")},
    {3, le(0, 1), fieldLine("Magic Word", "DF_", kTestRed)},
};

INSTANTIATE_TEST_SUITE_P(Fields, JpgFieldTest, testing::ValuesIn(kFields));

TEST(JpgDataFileInfoCallTest, NullRecordIsReported) {
  const Captured c = withoutDevice([] { _tr_maintainPrintJpgDataInfo(nullptr, 1, 1); });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintJpgDataInfo info is null\n");
  EXPECT_EQ(c.err, "");
}

}  // namespace
}  // namespace test
}  // namespace tr
