#include "format/jpg_data_file_info.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "tests/support/printout.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Picture index file of the 2 GiB card with maxFileNum 4, maxSegmentNum 60:
// blocks of 32 + 60 x 1680 = 100832 bytes, so segment info (2, 3) lies at
// 21500500 + 264 + 100832 + 32 + 2 x 1680 = 21500500 + 104488.
constexpr uint64_t kSeg23 = 21604988;

class JpgDataFileInfoTest : public testing::Test {
 protected:
  JpgDataFileInfoTest() : image_(dir_.file("card.img"), kCard2G) {
    image_.put32(kCard2GPic + 144, 4);   // maxFileNum
    image_.put32(kCard2GPic + 148, 60);  // maxSegmentNum
    writeSegment();
  }

  std::string print23() {
    const RunResult r = runConsole("maintain picDataFileInfo 2 3\n",
                                   {{"TRELLIS_DEVICE", image_.path()}});
    EXPECT_EQ(r.err, "");
    return maskTimestamps(commandOutput(r.out));
  }

  void putDetail(int entry, uint64_t time, int32_t zone, uint32_t dst,
                 uint32_t size) {
    const uint64_t at = kSeg23 + 32 + 24 * entry;
    image_.put64(at, time);
    image_.put32(at + 8, static_cast<uint32_t>(zone));
    image_.put32(at + 12, dst);
    image_.put32(at + 16, size);
  }

  void writeSegment() {
    image_.putText(kSeg23, "DF_INFO");
    image_.put8(kSeg23 + 7, 1);
    image_.put32(kSeg23 + 8, 0xEEEEEEEE);  // not interpreted
    image_.put32(kSeg23 + 12, 12);
    image_.put64(kSeg23 + 16, 0x200000000ULL);
    image_.put64(kSeg23 + 24, 1025);
    putDetail(0, 1709622489, 28800, 1, 1024);
    putDetail(1, 1709622490, -19800, 0, 1048576);
    putDetail(2, 1709622491, -1800, 2, 1048577);
    putDetail(3, 1, 0, 0, 0);  // past validNum
    image_.put64(kSeg23 + 1472, 0xFF);
    image_.putText(kSeg23 + 1480, "AM");
    image_.put64(kSeg23 + 1488, 0x11);
    image_.put64(kSeg23 + 1496, 0x22);
    image_.put64(kSeg23 + 1504, 0x33);
    image_.put64(kSeg23 + 1512, 0x44);
    image_.put32(kSeg23 + 1520, 5);
    image_.put32(kSeg23 + 1524, 7);
    image_.put32(kSeg23 + 1608, 5);
    image_.put32(kSeg23 + 1612, 640);
    image_.put32(kSeg23 + 1616, 480);
    image_.put32(kSeg23 + 1620, 0x3F800000);  // 1.0f
    image_.put8(kSeg23 + 1632, 3);
    image_.put8(kSeg23 + 1633, 0xEE);
    image_.put8(kSeg23 + 1656, 0xD0);
    image_.put8(kSeg23 + 1679, 0xD1);
  }

  TempDir dir_;
  CardImage image_;
};

const std::string kHead =
    "targetOffset        : \x1b[32m21604988\x1b[0m\n"
    "\n<TS>\n"
    "\x1b[35m=== fileNum:2, segmentNum:3 tr_JPGDataFileInfo ===\x1b[0m\n"
    "Magic Word          : \x1b[32mDF_INFO\x1b[0m\n"
    "In Use              : \x1b[32mYes\x1b[0m\n"
    "dataIndex           : \x1b[32m12\x1b[0m\n"
    "fragmentOffset      : \x1b[32m0x0000000200000000\x1b[0m\n"
    "fragmentSize        : \x1b[32m1.00 KB\x1b[0m\n"
    "\x1b[34m\n[Media Info]\n\x1b[0m"
    "\x1b[34m\n[JPG Info]\n\x1b[0m";
const std::string kDetailsTitle = "\x1b[34m\n[Image Details]\n\x1b[0m";
const std::string kDetails =
    "utcTime             : \x1b[32m2024-03-05 07:08:09\x1b[0m\n"
    "timeZone            : \x1b[32m+08:00\x1b[0m\n"
    "DST                 : \x1b[32mEnabled\x1b[0m\n"
    "jpgSize             : \x1b[32m1024 Bytes\x1b[0m\n"
    "utcTime             : \x1b[32m2024-03-05 07:08:10\x1b[0m\n"
    "timeZone            : \x1b[32m-05:30\x1b[0m\n"
    "DST                 : \x1b[32mDisabled\x1b[0m\n"
    "jpgSize             : \x1b[32m1024.00 KB\x1b[0m\n"
    "utcTime             : \x1b[32m2024-03-05 07:08:11\x1b[0m\n"
    "timeZone            : \x1b[32m-00:30\x1b[0m\n"
    "DST                 : \x1b[32mUnknown (2)\x1b[0m\n"
    "jpgSize             : \x1b[32m1.00 MB\x1b[0m\n";
const std::string kFileTypeTitle = "\n\x1b[34m[File Type]\n\x1b[0m";
const std::string kFileType =
    "flag                : \x1b[32mAlarmEvent\x1b[0m\n"
    "alarmMask           : \x1b[32m0x0000000000000022\x1b[0m\n"
    "eventMask           : \x1b[32m0x0000000000000033\x1b[0m\n"
    "streamType          : \x1b[32mSnapshot\x1b[0m\n"
    "channel             : \x1b[32m7\x1b[0m\n";
const std::string kEncodeTitle = "\n\x1b[34m[PictureEncode Info]\n\x1b[0m";
const std::string kEncode =
    "type                : \x1b[32mM-JPEG\x1b[0m\n"
    "width               : \x1b[32m640\x1b[0m\n"
    "height              : \x1b[32m480\x1b[0m\n"
    "fps                 : \x1b[32m1.000000\x1b[0m\n";
const std::string kTail =
    "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
    "\x1b[36m\n0000: D0 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "\n0010: 00 00 00 00 00 00 00 D1 \x1b[0m\n"
    "\x1b[35m===========END==========\n\x1b[0m";

TEST_F(JpgDataFileInfoTest, PrintsEveryFieldAndEachValidPicture) {
  EXPECT_EQ(print23(), kHead + fieldLine("validNum", "3") +
                           fieldLine("effinfoMask", "0x00000000000000FF") +
                           kDetailsTitle + kDetails + kFileTypeTitle +
                           kFileType + kEncodeTitle + kEncode + kTail);
}

// The picture printer shares the record-type block and its red lines with
// the record printer, and has its own encode line.
TEST_F(JpgDataFileInfoTest, ClearedBitsReplaceTheirGroups) {
  image_.put64(kSeg23 + 1472, 0x7);
  EXPECT_EQ(
      print23(),
      kHead + fieldLine("validNum", "3") +
          fieldLine("effinfoMask", "0x0000000000000007") +
          "\x1b[31m\n[Time Info effinfoMask invalid]\n\x1b[0m" +
          kFileTypeTitle +
          "\x1b[31m\n[File Type ETR_MEDIAFILEEFFINFO_FILETYPE effinfoMask invalid]\n\x1b[0m"
          "\x1b[31m\n[File Type ETR_MEDIAFILEEFFINFO_STREAMTYPE effinfoMask invalid]\n\x1b[0m"
          "\x1b[31m\n[File Type ETR_MEDIAFILEEFFINFO_CHANNEL effinfoMask invalid]\n\x1b[0m" +
          kEncodeTitle +
          "\x1b[31m\n[PictureEncode Info ETR_MEDIAFILEEFFINFO_ENCODE effinfoMask invalid]\n\x1b[0m" +
          kTail);
}

TEST_F(JpgDataFileInfoTest, NoValidPictureLeavesOnlyTheTitle) {
  image_.put8(kSeg23 + 1632, 0);
  EXPECT_EQ(between(print23(), "validNum", "flag"),
            fieldLine("validNum", "0") +
                fieldLine("effinfoMask", "0x00000000000000FF") +
                kDetailsTitle + kFileTypeTitle);
}

// A count past the 60 entries lists the 60 there are; what follows the
// array (the mask, the record types) is never read as a picture.
TEST_F(JpgDataFileInfoTest, CountsAboveSixtyListSixtyPictures) {
  putDetail(59, 1709622489, 3600, 1, 59);
  for (int count : {60, 61, 255}) {
    image_.put8(kSeg23 + 1632, static_cast<uint8_t>(count));
    const std::string out = print23();
    EXPECT_NE(out.find(fieldLine("validNum", std::to_string(count))),
              std::string::npos);
    const std::string details = between(out, kDetailsTitle, kFileTypeTitle);
    size_t lines = 0;
    for (size_t at = details.find("utcTime"); at != std::string::npos;
         at = details.find("utcTime", at + 1)) {
      ++lines;
    }
    EXPECT_EQ(lines, 60u) << count;
    const std::string last = fieldLine("utcTime", "2024-03-05 07:08:09") +
                             fieldLine("timeZone", "+01:00") +
                             fieldLine("DST", "Enabled") +
                             fieldLine("jpgSize", "59 Bytes");
    EXPECT_EQ(details.substr(details.size() - last.size()), last) << count;
  }
}

struct FieldCase {
  uint64_t offset;  // in the segment info
  int width;        // 1 or 4 bytes
  uint32_t value;
  std::string line;
};
void PrintTo(const FieldCase& c, std::ostream* os) {
  *os << "byte " << c.offset << " = " << c.value;
}

class JpgFieldTest : public JpgDataFileInfoTest,
                     public testing::WithParamInterface<FieldCase> {};

TEST_P(JpgFieldTest, ShowsTheStoredValue) {
  const FieldCase& c = GetParam();
  if (c.width == 1) image_.put8(kSeg23 + c.offset, static_cast<uint8_t>(c.value));
  if (c.width == 4) image_.put32(kSeg23 + c.offset, c.value);
  const std::string out = print23();
  EXPECT_NE(out.find(GetParam().line), std::string::npos) << out;
}

INSTANTIATE_TEST_SUITE_P(
    Fields, JpgFieldTest,
    testing::Values(
        FieldCase{24, 4, 1024, fieldLine("fragmentSize", "1024 Bytes")},
        FieldCase{24, 4, 1048576, fieldLine("fragmentSize", "1024.00 KB")},
        FieldCase{24, 4, 1048577, fieldLine("fragmentSize", "1.00 MB")},
        FieldCase{1608, 4, 4, fieldLine("type", "H.264/AVC")},
        FieldCase{1608, 4, 0, fieldLine("type", "Undefined Video")},
        FieldCase{1608, 4, 11, fieldLine("type", "Undefined Video")},
        FieldCase{1620, 4, 0x41EFC28F, fieldLine("fps", "29.969999")},
        FieldCase{1520, 4, 8, fieldLine("streamType", "Unknown (8)")},
        FieldCase{7, 1, 0, fieldLine("In Use", "No", kTestRed)},
        FieldCase{7, 1, 2, fieldLine("In Use", "Unknown (2)")},
        FieldCase{3, 1, 0, fieldLine("Magic Word", "DF_", kTestRed)}));

TEST_F(JpgDataFileInfoTest, BackUpCommandReadsTheBackUpFile) {
  image_.put32(kCard2GPicBackUp + 144, 1);
  image_.put32(kCard2GPicBackUp + 148, 1);
  image_.put32(kCard2GPicBackUp + 296 + 12, 4242);  // dataIndex of (1, 1)
  const RunResult r = runConsole("maintain picBackUpDataFileInfo 1 1\n",
                                 {{"TRELLIS_DEVICE", image_.path()}});
  const std::string out = commandOutput(r.out);
  EXPECT_EQ(out.rfind("targetOffset        : \x1b[32m32225382\x1b[0m\n", 0), 0u);
  EXPECT_NE(out.find(fieldLine("dataIndex", "4242")), std::string::npos);
}

// With 30000 files of 60 pictures' segments, (21085, 25) lies at
// 21500500 + 264 + 21084 x 100832 + 32 + 24 x 1680 = 2147483004, 644 bytes
// before the end of the card: the whole 1680 bytes are asked for, the short
// read is reported and nothing is printed.
TEST_F(JpgDataFileInfoTest, SegmentInfoCrossingTheCardEndIsNotPrinted) {
  image_.put32(kCard2GPic + 144, 30000);
  const RunResult r = runConsole("maintain picDataFileInfo 21085 25\n",
                                 {{"TRELLIS_DEVICE", image_.path()}});
  EXPECT_EQ(commandOutput(r.out),
            "targetOffset        : \x1b[32m2147483004\x1b[0m\n");
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n"
            "  Device: " + image_.path() + "\n"
            "  Expected: 1680 bytes\n"
            "  Actual: 644 bytes\n\n");
}

TEST(JpgDataFileInfoCallTest, NullRecordIsReported) {
  const Captured c =
      capture([] { _tr_maintainPrintJpgDataInfo(nullptr, 1, 1); });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintJpgDataInfo info is null\n");
  EXPECT_EQ(c.err, "");
}

}  // namespace
}  // namespace test
}  // namespace tr
