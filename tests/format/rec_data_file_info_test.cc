#include "format/rec_data_file_info.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "tests/support/printout.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Record index file of the 2 GiB card with maxFileNum 3, maxSegmentNum 100:
// blocks of 32 + 100 x 640 = 64032 bytes, so segment info (2, 3) lies at
// 51328 + 264 + 64032 + 32 + 2 x 640 = 116936 and (1, 1) at 51328 + 296.
constexpr uint64_t kSeg23 = 116936;
constexpr uint64_t kSeg11 = 51624;

const std::string kZeros16 = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";

class RecDataFileInfoTest : public testing::Test {
 protected:
  RecDataFileInfoTest() : image_(dir_.file("card.img"), kCard2G) {
    image_.put32(kCard2GRec + 144, 3);    // maxFileNum
    image_.put32(kCard2GRec + 148, 100);  // maxSegmentNum
  }

  RunResult run(const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", image_.path()}});
  }
  std::string print23() {
    return maskTimestamps(commandOutput(run("maintain recDataFileInfo 2 3\n").out));
  }

  // Every field distinct; the bytes nobody interprets hold 0xEE.
  void writeSegment(uint64_t at) {
    image_.putText(at, "DF_INFO");
    image_.put8(at + 7, 1);
    image_.put64(at + 8, 0x123456789ULL);
    image_.put64(at + 16, 1048577);
    image_.put64(at + 24, 0xABCDE);
    image_.put64(at + 32, 0x140);
    image_.put64(at + 40, 0xFF);
    image_.put64(at + 48, 1709622489);  // 2024-03-05 07:08:09
    image_.put64(at + 56, 1709626089);  // one hour later
    image_.put32(at + 64, 28800);
    image_.put8(at + 68, 1);
    image_.put8(at + 69, 0xEE);
    image_.putText(at + 96, std::string("FR\0\0\0\0\0\0", 8));
    image_.put64(at + 104, 0x1111);
    image_.put64(at + 112, 0x2222);
    image_.put64(at + 120, 0x3333);
    image_.put64(at + 128, 0x4444);
    image_.put32(at + 136, 2);
    image_.put32(at + 140, 0xFFFFFFFF);
    image_.put8(at + 144, 0xEE);
    image_.put32(at + 224, 1);
    image_.put32(at + 228, 2);
    image_.put32(at + 232, 8000);
    image_.put32(at + 236, 16);
    image_.put32(at + 240, 1);
    image_.put8(at + 244, 0xEE);
    image_.put32(at + 260, 1);
    image_.put32(at + 264, 4);
    image_.put32(at + 268, 1920);
    image_.put32(at + 272, 1080);
    image_.put32(at + 276, 0x41EFC28F);  // 29.97f
    image_.put8(at + 280, 0xEE);
    image_.put32(at + 552, 4000000000U);
    image_.put8(at + 556, 1);
    image_.putText(at + 557, "\xA1\xA2\xA3");
    image_.put32(at + 560, 3);
    image_.put32(at + 564, 3);
    image_.putText(at + 568, "\xB1\xB2\xB3\xB4");
    image_.put8(at + 572, 0xC0);
    image_.put8(at + 639, 0xC1);
  }

  TempDir dir_;
  CardImage image_;
};

const std::string kHead =
    "targetOffset        : \x1b[32m116936\x1b[0m\n"
    "\n<TS>\n"
    "\x1b[35m=== fileNum:2, segmentNum:3 tr_RecDataFileInfo ===\x1b[0m\n"
    "Magic Word          : \x1b[32mDF_INFO\x1b[0m\n"
    "In Use              : \x1b[32mYes\x1b[0m\n"
    "dataOffset          : \x1b[32m0x0000000123456789\x1b[0m\n"
    "datalen             : \x1b[32m1.00 MB\x1b[0m\n"
    "iFrameInfoOffset    : \x1b[32m0x00000000000ABCDE\x1b[0m\n"
    "iFrameInfoSize      : \x1b[32m0x0000000000000140\x1b[0m\n"
    "\x1b[34m\n[Media Info]\n\x1b[0m"
    "\x1b[34m\n[Time Info]\n\x1b[0m";
const std::string kTime =
    "utc startTime       : \x1b[32m2024-03-05 07:08:09\x1b[0m\n"
    "utc endTime         : \x1b[32m2024-03-05 08:08:09\x1b[0m\n"
    "timeZone            : \x1b[32m+08:00\x1b[0m\n"
    "DST                 : \x1b[32mEnabled\x1b[0m\n";
const std::string kTimeInvalid =
    "\x1b[31m\n[Time Info effinfoMask invalid]\n\x1b[0m";
const std::string kFileTypeTitle = "\n\x1b[34m[File Type]\n\x1b[0m";
const std::string kFlags =
    "flag                : \x1b[32mManualScheduled\x1b[0m\n"
    "manualMask          : \x1b[32m0x0000000000001111\x1b[0m\n"
    "TimingMask          : \x1b[32m0x0000000000004444\x1b[0m\n";
const std::string kFlagsInvalid =
    "\x1b[31m\n[File Type ETR_MEDIAFILEEFFINFO_FILETYPE effinfoMask invalid]\n\x1b[0m";
const std::string kStream = "streamType          : \x1b[32mExtra-1\x1b[0m\n";
const std::string kStreamInvalid =
    "\x1b[31m\n[File Type ETR_MEDIAFILEEFFINFO_STREAMTYPE effinfoMask invalid]\n\x1b[0m";
const std::string kChannel = "channel             : \x1b[32m-1\x1b[0m\n";
const std::string kChannelInvalid =
    "\x1b[31m\n[File Type ETR_MEDIAFILEEFFINFO_CHANNEL effinfoMask invalid]\n\x1b[0m";
const std::string kEncodeTitle = "\n\x1b[34m[Encode Info]\n\x1b[0m";
const std::string kEncode =
    "aEnable             : \x1b[32m1\x1b[0m\n"
    "aFormat.type        : \x1b[32mG711A\x1b[0m\n"
    "aFormat.frequency   : \x1b[32m8.0 kHz\x1b[0m\n"
    "aFormat.depth       : \x1b[32m16\x1b[0m\n"
    "aFormat.mode        : \x1b[32m1\x1b[0m\n"
    "vEnable             : \x1b[32m1\x1b[0m\n"
    "vFormat.type        : \x1b[32mH.264/AVC\x1b[0m\n"
    "vFormat.width       : \x1b[32m1920\x1b[0m\n"
    "vFormat.height      : \x1b[32m1080\x1b[0m\n"
    "vFormat.fps         : \x1b[32m29.969999\x1b[0m\n";
const std::string kEncodeInvalid =
    "\x1b[31m\n[Encode Info ETR_MEDIAFILEEFFINFO_ENCODE effinfoMask invalid]\n\x1b[0m";
const std::string kTail =
    "dataIndex           : \x1b[32m4000000000\x1b[0m\n"
    "\n\x1b[34m[InfoEx]\n\x1b[0m"
    "Is Incomplete       : \x1b[32mYES\x1b[0m\n"
    "infoEx.position     : \x1b[32mTail\x1b[0m\n"
    "infoEx.nextFileNum  : \x1b[32m3\x1b[0m\n"
    "\x1b[36m\n0000: A1 A2 A3 \x1b[0m\n"
    "\x1b[36m\n0000: B1 B2 B3 B4 \x1b[0m\n"
    "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
    "\x1b[36m\n0000: C0 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "\n0010: " + kZeros16 + "\n0020: " + kZeros16 + "\n0030: " + kZeros16 +
    "\n0040: 00 00 00 C1 \x1b[0m\n"
    "\x1b[35m===========END==========\n\x1b[0m";

// The printout of the record above with its mask replaced by `mask`.
std::string expectedFor(uint64_t mask, const std::string& maskText) {
  return kHead + fieldLine("effinfoMask", maskText) +
         ((mask & 0xF) == 0xF ? kTime : kTimeInvalid) + kFileTypeTitle +
         (mask & 0x10 ? kFlags : kFlagsInvalid) +
         (mask & 0x20 ? kStream : kStreamInvalid) +
         (mask & 0x40 ? kChannel : kChannelInvalid) + kEncodeTitle +
         (mask & 0x80 ? kEncode : kEncodeInvalid) + kTail;
}

TEST_F(RecDataFileInfoTest, PrintsEveryFieldOfAFullSegmentInfo) {
  writeSegment(kSeg23);
  const RunResult r = run("maintain recDataFileInfo 2 3\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)),
            expectedFor(0xFF, "0x00000000000000FF"));
}

TEST_F(RecDataFileInfoTest, BlankSegmentInfoIsPrintedInFull) {
  const RunResult r = run("maintain recDataFileInfo 1 1\n");
  EXPECT_EQ(r.err, "");
  const std::string expected =
      "targetOffset        : \x1b[32m51624\x1b[0m\n"
      "\n<TS>\n"
      "\x1b[35m=== fileNum:1, segmentNum:1 tr_RecDataFileInfo ===\x1b[0m\n"
      "Magic Word          : \x1b[31m\x1b[0m\n"
      "In Use              : \x1b[31mNo\x1b[0m\n"
      "dataOffset          : \x1b[32m0x0000000000000000\x1b[0m\n"
      "datalen             : \x1b[32m0 Bytes\x1b[0m\n"
      "iFrameInfoOffset    : \x1b[32m0x0000000000000000\x1b[0m\n"
      "iFrameInfoSize      : \x1b[32m0x0000000000000000\x1b[0m\n"
      "\x1b[34m\n[Media Info]\n\x1b[0m"
      "\x1b[34m\n[Time Info]\n\x1b[0m"
      "effinfoMask         : \x1b[32m0x0000000000000000\x1b[0m\n" +
      kTimeInvalid + kFileTypeTitle + kFlagsInvalid + kStreamInvalid +
      kChannelInvalid + kEncodeTitle + kEncodeInvalid +
      "dataIndex           : \x1b[32m0\x1b[0m\n"
      "\n\x1b[34m[InfoEx]\n\x1b[0m"
      "Is Incomplete       : \x1b[32mNO\x1b[0m\n"
      "infoEx.position     : \x1b[32mUnknown\x1b[0m\n"
      "infoEx.nextFileNum  : \x1b[32m0\x1b[0m\n"
      "\x1b[36m\n0000: 00 00 00 \x1b[0m\n"
      "\x1b[36m\n0000: 00 00 00 00 \x1b[0m\n"
      "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
      "\x1b[36m\n0000: " + kZeros16 + "\n0010: " + kZeros16 + "\n0020: " +
      kZeros16 + "\n0030: " + kZeros16 +
      "\n0040: 00 00 00 00 \x1b[0m\n"
      "\x1b[35m===========END==========\n\x1b[0m";
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)), expected);
}

struct MaskCase {
  uint64_t mask;
  const char* text;
};
void PrintTo(const MaskCase& c, std::ostream* os) { *os << c.text; }

class RecMaskTest : public RecDataFileInfoTest,
                    public testing::WithParamInterface<MaskCase> {};

// A cleared bit swaps its group for the red line; the order never changes
// and the printer always reaches the end.
TEST_P(RecMaskTest, EachGroupFollowsItsBit) {
  writeSegment(kSeg23);
  image_.put64(kSeg23 + 40, GetParam().mask);
  EXPECT_EQ(print23(), expectedFor(GetParam().mask, GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Masks, RecMaskTest,
    testing::Values(MaskCase{0x0, "0x0000000000000000"},
                    MaskCase{0x7, "0x0000000000000007"},
                    MaskCase{0xF, "0x000000000000000F"},
                    MaskCase{0x10, "0x0000000000000010"},
                    MaskCase{0x20, "0x0000000000000020"},
                    MaskCase{0x40, "0x0000000000000040"},
                    MaskCase{0x80, "0x0000000000000080"},
                    MaskCase{0xFF, "0x00000000000000FF"},
                    MaskCase{0xFFFFFFFFFFFFFF00ULL, "0xFFFFFFFFFFFFFF00"}));

struct FlagCase {
  std::string bytes;  // the eight flag bytes
  std::string lines;  // what the record-type group prints
};
void PrintTo(const FlagCase& c, std::ostream* os) {
  *os << testing::PrintToString(c.bytes);
}

class RecFlagTest : public RecDataFileInfoTest,
                    public testing::WithParamInterface<FlagCase> {};

TEST_P(RecFlagTest, ListsEveryLetterButMasksOnlyBeforeTheFirstNul) {
  writeSegment(kSeg23);
  image_.putText(kSeg23 + 96, GetParam().bytes);
  EXPECT_EQ(between(print23(), "flag ", "streamType"), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Flags, RecFlagTest,
    testing::Values(
        FlagCase{std::string("FR\0\0\0\0\0\0", 8), kFlags},
        FlagCase{std::string("F\0A\0\0\0\0\0", 8),
                 "flag                : \x1b[32mManualAlarm\x1b[0m\n"
                 "manualMask          : \x1b[32m0x0000000000001111\x1b[0m\n"},
        FlagCase{"RRRRRRRR",
                 "flag                : \x1b[32mScheduledScheduledScheduled"
                 "ScheduledScheduledScheduledScheduledScheduled\x1b[0m\n"
                 "TimingMask          : \x1b[32m0x0000000000004444\x1b[0m\n"},
        FlagCase{std::string("RxMAAF\0M", 8),
                 "flag                : \x1b[32mScheduledEventAlarmAlarmManual"
                 "Event\x1b[0m\n"
                 "manualMask          : \x1b[32m0x0000000000001111\x1b[0m\n"
                 "alarmMask           : \x1b[32m0x0000000000002222\x1b[0m\n"
                 "eventMask           : \x1b[32m0x0000000000003333\x1b[0m\n"
                 "TimingMask          : \x1b[32m0x0000000000004444\x1b[0m\n"},
        FlagCase{std::string(8, '\0'),
                 "flag                : \x1b[32m\x1b[0m\n"}));

struct FieldCase {
  uint64_t offset;  // in the segment info
  int width;        // bytes
  uint64_t value;
  std::string line;
};
void PrintTo(const FieldCase& c, std::ostream* os) {
  *os << "byte " << c.offset << " = " << c.value;
}

class RecFieldTest : public RecDataFileInfoTest,
                     public testing::WithParamInterface<FieldCase> {};

TEST_P(RecFieldTest, ShowsTheStoredValue) {
  writeSegment(kSeg23);
  const FieldCase& c = GetParam();
  if (c.width == 1) image_.put8(kSeg23 + c.offset, static_cast<uint8_t>(c.value));
  if (c.width == 4) image_.put32(kSeg23 + c.offset, static_cast<uint32_t>(c.value));
  if (c.width == 8) image_.put64(kSeg23 + c.offset, c.value);
  const std::string out = print23();
  EXPECT_NE(out.find(c.line), std::string::npos) << out;
  EXPECT_NE(out.find("===========END=========="), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Zones, RecFieldTest,
    testing::Values(
        FieldCase{64, 4, 28800, fieldLine("timeZone", "+08:00")},
        FieldCase{64, 4, static_cast<uint32_t>(-19800), fieldLine("timeZone", "-05:30")},
        FieldCase{64, 4, 19800, fieldLine("timeZone", "+05:30")},
        FieldCase{64, 4, 0, fieldLine("timeZone", "+00:00")},
        FieldCase{64, 4, static_cast<uint32_t>(-1800), fieldLine("timeZone", "-00:30")},
        FieldCase{64, 4, static_cast<uint32_t>(-12600), fieldLine("timeZone", "-03:30")}));

// The division by 1000 is single precision: 22050 gives 22.0, not 22.1.
INSTANTIATE_TEST_SUITE_P(
    Frequencies, RecFieldTest,
    testing::Values(
        FieldCase{232, 4, 999, fieldLine("aFormat.frequency", "999 Hz")},
        FieldCase{232, 4, 1000, fieldLine("aFormat.frequency", "1.0 kHz")},
        FieldCase{232, 4, 44100, fieldLine("aFormat.frequency", "44.1 kHz")},
        FieldCase{232, 4, 22050, fieldLine("aFormat.frequency", "22.0 kHz")},
        FieldCase{232, 4, 0xFFFFFFFF, fieldLine("aFormat.frequency", "4294967.5 kHz")}));

INSTANTIATE_TEST_SUITE_P(
    Sizes, RecFieldTest,
    testing::Values(
        FieldCase{16, 8, 1024, fieldLine("datalen", "1024 Bytes")},
        FieldCase{16, 8, 1025, fieldLine("datalen", "1.00 KB")},
        FieldCase{16, 8, 1048576, fieldLine("datalen", "1024.00 KB")},
        FieldCase{16, 8, 1048577, fieldLine("datalen", "1.00 MB")},
        FieldCase{16, 8, 0x10000000000ULL, fieldLine("datalen", "1048576.00 MB")}));

INSTANTIATE_TEST_SUITE_P(
    Encodings, RecFieldTest,
    testing::Values(
        FieldCase{264, 4, 0, fieldLine("vFormat.type", "Undefined Video")},
        FieldCase{264, 4, 10, fieldLine("vFormat.type", "SVAC3.0")},
        FieldCase{264, 4, 11, fieldLine("vFormat.type", "Undefined Video")},
        FieldCase{228, 4, 0, fieldLine("aFormat.type", "UNKNOW")},
        FieldCase{228, 4, 7, fieldLine("aFormat.type", "G723")},
        FieldCase{228, 4, 8, fieldLine("aFormat.type", "UNKNOW")},
        FieldCase{228, 4, 0xFFFFFFFF, fieldLine("aFormat.type", "UNKNOW")},
        FieldCase{276, 4, 0x41C80000, fieldLine("vFormat.fps", "25.000000")}));

// Values past a word table are shown, never used as an index.
INSTANTIATE_TEST_SUITE_P(
    Damage, RecFieldTest,
    testing::Values(
        FieldCase{0, 1, 'd', fieldLine("Magic Word", "dF_INFO", kTestRed)},
        FieldCase{7, 1, 0, fieldLine("In Use", "No", kTestRed)},
        FieldCase{7, 1, 2, fieldLine("In Use", "Unknown (2)")},
        FieldCase{68, 1, 0, fieldLine("DST", "Disabled")},
        FieldCase{68, 1, 200, fieldLine("DST", "Unknown (200)")},
        FieldCase{136, 4, 7, fieldLine("streamType", "Max")},
        FieldCase{136, 4, 8, fieldLine("streamType", "Unknown (8)")},
        FieldCase{556, 1, 0, fieldLine("Is Incomplete", "NO")},
        FieldCase{556, 1, 2, fieldLine("Is Incomplete", "Unknown (2)")},
        FieldCase{560, 4, 4, fieldLine("infoEx.position", "Max")},
        FieldCase{560, 4, 5, fieldLine("infoEx.position", "Unknown (5)")},
        FieldCase{560, 4, 0xFFFFFFFF, fieldLine("infoEx.position", "Unknown (4294967295)")}));

struct NumberCase {
  const char* args;
  std::string err;
};
void PrintTo(const NumberCase& c, std::ostream* os) { *os << c.args; }

class RecNumberTest : public RecDataFileInfoTest,
                      public testing::WithParamInterface<NumberCase> {};

// maxFileNum 3, maxSegmentNum 100; the file number is checked first.
TEST_P(RecNumberTest, NumbersOutsideTheHeaderAreRefused) {
  const RunResult r =
      run(std::string("maintain recDataFileInfo ") + GetParam().args + "\n");
  EXPECT_EQ(maskTimestamps(r.err), GetParam().err);
  EXPECT_EQ(commandOutput(r.out), "");
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, RecNumberTest,
    testing::Values(
        NumberCase{"0 1", "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: 0\n maxFileNum: 3\n"},
        NumberCase{"4 1", "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: 4\n maxFileNum: 3\n"},
        NumberCase{"-1 1", "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: -1\n maxFileNum: 3\n"},
        NumberCase{"1 0", "<TS> \x1b[31msegmentNum INVALID\x1b[0m\n segmentNum: 0\n maxSegmentNum: 100\n"},
        NumberCase{"1 101", "<TS> \x1b[31msegmentNum INVALID\x1b[0m\n segmentNum: 101\n maxSegmentNum: 100\n"},
        NumberCase{"0 0", "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: 0\n maxFileNum: 3\n"},
        NumberCase{"9 -7", "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: 9\n maxFileNum: 3\n"}));

// Both maxima are accepted.
TEST_F(RecDataFileInfoTest, LastSegmentOfTheLastFileIsReachable) {
  // 51328 + 264 + 2 x 64032 + 32 + 99 x 640
  image_.put8(243048 + 7, 1);
  const std::string out =
      maskTimestamps(commandOutput(run("maintain recDataFileInfo 3 100\n").out));
  EXPECT_EQ(out.rfind("targetOffset        : \x1b[32m243048\x1b[0m\n", 0), 0u);
  EXPECT_NE(out.find(fieldLine("In Use", "Yes")), std::string::npos);
}

TEST_F(RecDataFileInfoTest, BackUpCommandReadsTheBackUpFile) {
  image_.put32(kCard2GRecBackUp + 144, 1);
  image_.put32(kCard2GRecBackUp + 148, 1);
  image_.put32(kCard2GRecBackUp + 296 + 552, 31337);  // dataIndex of (1, 1)
  const RunResult r = run("maintain recBackUpDataFileInfo 1 1\n");
  const std::string out = commandOutput(r.out);
  EXPECT_EQ(out.rfind("targetOffset        : \x1b[32m10776210\x1b[0m\n", 0), 0u);
  EXPECT_NE(out.find(fieldLine("dataIndex", "31337")), std::string::npos);
}

TEST(RecDataFileInfoCallTest, NullPointersAreReported) {
  Captured c = capture([] { _tr_maintainPrintRecDataInfo(nullptr, 1, 1); });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintRecDataInfo info is null\n");
  int result = 0;
  c = capture([&] { result = _tr_maintainGetDataFileInfo(1, 1, 1, 0, nullptr); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31m_tr_maintainGetDataFileInfo info is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
