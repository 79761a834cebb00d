#include "format/rec_data_file_info.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

// Record index file of the 2 GiB card with maxFileNum 3, maxSegmentNum 100:
// blocks of 32 + 100 x 640 = 64032 bytes, so segment info (2, 3) lies at
// 51328 + 264 + 64032 + 32 + 2 x 640.
constexpr uint64_t kSeg23 = 116936;

class RecDataFileInfoTest : public CardTest {
 protected:
  RecDataFileInfoTest() { putIndexDimensions(image_, kCard2GRec, 3, 100, 0); }

  // Every field distinct; the bytes nobody interprets hold 0xEE.
  void writeSegment() {
    putRecord(image_, kSeg23,
              {{0, "DF_INFO\x01"}, {8, le(0x123456789, 8)}, {16, le(1048577, 8)},
               {24, le(0xABCDE, 8)}, {32, le(0x140, 8)}, {40, le(0xFF, 8)},
               {48, le(1709622489, 8)},  // 2024-03-05 07:08:09
               {56, le(1709626089, 8)},  // one hour later
               {64, le(28800, 4)}, {68, "\x01\xEE"}, {96, std::string("FR\0\0\0\0\0\0", 8)},
               {104, le(0x1111, 8)}, {112, le(0x2222, 8)}, {120, le(0x3333, 8)},
               {128, le(0x4444, 8)}, {136, le(2, 4)}, {140, le(0xFFFFFFFF, 4)}, {144, "\xEE"},
               {224, le(1, 4)}, {228, le(2, 4)}, {232, le(8000, 4)}, {236, le(16, 4)},
               {240, le(1, 4)}, {244, "\xEE"}, {260, le(1, 4)}, {264, le(4, 4)},
               {268, le(1920, 4)}, {272, le(1080, 4)}, {276, le(0x41EFC28F, 4)},  // 29.97f
               {280, "\xEE"}, {552, le(4000000000U, 4)}, {556, "\x01\xA1\xA2\xA3"},
               {560, le(3, 4)}, {564, le(3, 4)}, {568, "\xB1\xB2\xB3\xB4\xC0"},
               {639, "\xC1"}});
  }
};

TEST_F(RecDataFileInfoTest, PrintsEveryFieldOfAFullSegmentInfo) {
  writeSegment();
  EXPECT_EQ(print("recDataFileInfo 2 3"), golden("rec_data_file_info_full.txt"));
}

// Segment info (1, 1) at 51328 + 264 + 32.
TEST_F(RecDataFileInfoTest, BlankSegmentInfoIsPrintedInFull) {
  EXPECT_EQ(print("recDataFileInfo 1 1"), golden("rec_data_file_info_blank.txt"));
}

// Each group of the mask, the red line that replaces it and a line it
// shows when its bits are set.
const struct {
  uint64_t bits;
  const char* invalid;
  const char* shown;
} kGroups[] = {
    {0xF, "[Time Info effinfoMask invalid]", "utc startTime "},
    {0x10, "[File Type ETR_MEDIAFILEEFFINFO_FILETYPE effinfoMask invalid]", "flag "},
    {0x20, "[File Type ETR_MEDIAFILEEFFINFO_STREAMTYPE effinfoMask invalid]", "streamType "},
    {0x40, "[File Type ETR_MEDIAFILEEFFINFO_CHANNEL effinfoMask invalid]", "channel "},
    {0x80, "[Encode Info ETR_MEDIAFILEEFFINFO_ENCODE effinfoMask invalid]", "aEnable "},
};

class RecMaskTest : public RecDataFileInfoTest, public testing::WithParamInterface<uint64_t> {};

// A group shows only with all of its bits set, else its red line stands in
// its place; bits above the eight are ignored and the printout always ends.
TEST_P(RecMaskTest, EachGroupFollowsItsBits) {
  writeSegment();
  image_.put64(kSeg23 + 40, GetParam());
  const std::string out = print("recDataFileInfo 2 3");
  char mask[32];
  std::snprintf(mask, sizeof mask, "0x%016llX", static_cast<unsigned long long>(GetParam()));
  EXPECT_TRUE(has(out, fieldLine("effinfoMask", mask)));
  for (const auto& group : kGroups) {
    const bool set = (GetParam() & group.bits) == group.bits;
    EXPECT_EQ(has(out, group.invalid), !set) << group.invalid;
    EXPECT_EQ(has(out, group.shown), set) << group.shown;
  }
  EXPECT_TRUE(has(out, "===========END=========="));
}

INSTANTIATE_TEST_SUITE_P(Masks, RecMaskTest,
                         testing::Values(0x0, 0x7, 0xE, 0xF, 0x10, 0x20, 0x40, 0x80, 0xFF,
                                         0xFFFFFFFFFFFFFF00ULL));

const std::string kManual = fieldLine("manualMask", "0x0000000000001111");
const std::string kTiming = fieldLine("TimingMask", "0x0000000000004444");

class RecFieldTest : public RecDataFileInfoTest, public testing::WithParamInterface<FieldCase> {};

TEST_P(RecFieldTest, ShowsTheStoredValue) {
  writeSegment();
  image_.putText(kSeg23 + GetParam().at, GetParam().bytes);
  EXPECT_TRUE(has(print("recDataFileInfo 2 3"), GetParam().line));
}

// Every flag letter is named, but only those before the first NUL select
// the masks shown. Zones keep the sign below one hour; the frequency is
// divided by 1000 in single precision (22050 gives 22.0); values past a word
// table are shown, never used as an index.
const FieldCase kFields[] = {
    {96, std::string("F\0A\0\0\0\0\0", 8),
     fieldLine("flag", "ManualAlarm") + kManual + "streamType"},
    {96, "RRRRRRRR",
     fieldLine("flag", "ScheduledScheduledScheduledScheduled"
                       "ScheduledScheduledScheduledScheduled") + kTiming + "streamType"},
    {96, std::string("RxMAAF\0M", 8),
     fieldLine("flag", "ScheduledEventAlarmAlarmManualEvent") + kManual +
         fieldLine("alarmMask", "0x0000000000002222") +
         fieldLine("eventMask", "0x0000000000003333") + kTiming + "streamType"},
    {96, std::string(8, '\0'), fieldLine("flag", "") + "streamType"},
    {64, le(-19800, 4), fieldLine("timeZone", "-05:30")},
    {64, le(0, 4), fieldLine("timeZone", "+00:00")},
    {64, le(-1800, 4), fieldLine("timeZone", "-00:30")},
    {232, le(999, 4), fieldLine("aFormat.frequency", "999 Hz")},
    {232, le(1000, 4), fieldLine("aFormat.frequency", "1.0 kHz")},
    {232, le(22050, 4), fieldLine("aFormat.frequency", "22.0 kHz")},
    {232, le(0xFFFFFFFF, 4), fieldLine("aFormat.frequency", "4294967.5 kHz")},
    {16, le(1024, 8), fieldLine("datalen", "1024 Bytes")},
    {16, le(1025, 8), fieldLine("datalen", "1.00 KB")},
    {16, le(1048576, 8), fieldLine("datalen", "1024.00 KB")},
    {16, le(0x10000000000ULL, 8), fieldLine("datalen", "1048576.00 MB")},
    {264, le(10, 4), fieldLine("vFormat.type", "SVAC3.0")},
    {264, le(11, 4), fieldLine("vFormat.type", "Undefined Video")},
    {228, le(7, 4), fieldLine("aFormat.type", "G723")},
    {228, le(8, 4), fieldLine("aFormat.type", "UNKNOW")},
    {0, "d", fieldLine("Magic Word", "dF_INFO", kTestRed)},
    {7, le(0, 1), fieldLine("In Use", "No", kTestRed)},
    {7, le(2, 1), fieldLine("In Use", "Unknown (2)")},
    {68, le(200, 1), fieldLine("DST", "Unknown (200)")},
    {136, le(7, 4), fieldLine("streamType", "Max")},
    {136, le(8, 4), fieldLine("streamType", "Unknown (8)")},
    {556, le(2, 1), fieldLine("Is Incomplete", "Unknown (2)")},
    {560, le(4, 4), fieldLine("infoEx.position", "Max")},
    {560, le(5, 4), fieldLine("infoEx.position", "Unknown (5)")},
    {560, le(0xFFFFFFFF, 4),
     fieldLine("infoEx.position", "Unknown (4294967295)")},
};

INSTANTIATE_TEST_SUITE_P(Values, RecFieldTest, testing::ValuesIn(kFields));

TEST(RecDataFileInfoCallTest, NullPointersAreReported) {
  const Captured c = withoutDevice([] {
    EXPECT_EQ(_tr_maintainGetDataFileInfo(1, 1, 1, 0, nullptr), -1);
    _tr_maintainPrintRecDataInfo(nullptr, 1, 1);
  });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintRecDataInfo info is null\n");
  EXPECT_EQ(c.err, "<TS> \x1b[31m_tr_maintainGetDataFileInfo info is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
