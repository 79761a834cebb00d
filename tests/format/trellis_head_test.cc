#include "format/trellis_head.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "maintain/platform.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class TrellisHeadTest : public testing::Test {
 protected:
  TrellisHeadTest() : image_(dir_.file("card.img"), kCard2G) {}

  std::string printed() {
    const RunResult r = runConsole("maintain TrellisHead\n",
                                   {{"TRELLIS_DEVICE", image_.path()}});
    EXPECT_EQ(r.err, "");
    return maskTimestamps(commandOutput(r.out));
  }

  TempDir dir_;
  CardImage image_;
};

const char kZeroLine[] = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";

TEST_F(TrellisHeadTest, PrintsEveryFieldOfAStoredHead) {
  image_.putText(51200, std::string("TR_V001\0", 8));
  image_.put64(51208, 51328);
  image_.put64(51216, 4886718345);  // 0x1_2345_6789
  image_.put64(51224, 21500500);
  image_.put64(51232, 0x0102030405060708);
  image_.put64(51240, 10724586);
  image_.put32(51248, 16909060);
  image_.put32(51252, 4294967295);
  image_.put64(51256, 1025);
  image_.put64(51264, 6442450944);
  image_.put8(51272, 0x11);
  image_.put8(51327, 0x22);
  EXPECT_EQ(
      printed(),
      std::string(
          "\n<TS>\n"
          "\x1b[35m=== tr_TrellisHead ===\n\x1b[0m"
          "Magic Word          : \x1b[32mTR_V001\x1b[0m\n"
          "idxFileOffsetAV     : \x1b[32m51328\x1b[0m\n"
          "idxFileBackupOffsetAV: \x1b[32m4886718345\x1b[0m\n"
          "idxFileOffsetPic    : \x1b[32m21500500\x1b[0m\n"
          "idxFileBackupOffsetPic: \x1b[32m72623859790382856\x1b[0m\n"
          "File Size           : \x1b[32m10.23 MB\x1b[0m\n"
          "idxCheckFlagAV      : \x1b[32m16909060\x1b[0m\n"
          "idxCheckFlagPic     : \x1b[32m4294967295\x1b[0m\n"
          "AVSectorSize        : \x1b[32m1.00 KB\x1b[0m\n"
          "PicSectorSize       : \x1b[32m6144.00 MB\x1b[0m\n"
          "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
          "\x1b[36m\n0000: 11 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
          "\n0010: ") +
          kZeroLine + "\n0020: " + kZeroLine +
          "\n0030: 00 00 00 00 00 00 00 22 \x1b[0m\n"
          "\x1b[35m===========END==========\n\x1b[0m");
}

TEST_F(TrellisHeadTest, ZeroedHeadPrintsEmptyRedMagicAndZeros) {
  EXPECT_EQ(printed(),
            std::string("\n<TS>\n"
                        "\x1b[35m=== tr_TrellisHead ===\n\x1b[0m"
                        "Magic Word          : \x1b[31m\x1b[0m\n"
                        "idxFileOffsetAV     : \x1b[32m0\x1b[0m\n"
                        "idxFileBackupOffsetAV: \x1b[32m0\x1b[0m\n"
                        "idxFileOffsetPic    : \x1b[32m0\x1b[0m\n"
                        "idxFileBackupOffsetPic: \x1b[32m0\x1b[0m\n"
                        "File Size           : \x1b[32m0 Bytes\x1b[0m\n"
                        "idxCheckFlagAV      : \x1b[32m0\x1b[0m\n"
                        "idxCheckFlagPic     : \x1b[32m0\x1b[0m\n"
                        "AVSectorSize        : \x1b[32m0 Bytes\x1b[0m\n"
                        "PicSectorSize       : \x1b[32m0 Bytes\x1b[0m\n"
                        "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
                        "\x1b[36m\n0000: ") +
                kZeroLine + "\n0010: " + kZeroLine + "\n0020: " + kZeroLine +
                "\n0030: 00 00 00 00 00 00 00 00 \x1b[0m\n"
                "\x1b[35m===========END==========\n\x1b[0m");
}

TEST_F(TrellisHeadTest, MagicWithoutItsNulIsShownWholeInRed) {
  image_.put64(51208, 51328);
  image_.putText(51200, "ABCDEFGH");
  std::string out = printed();
  EXPECT_NE(out.find("Magic Word          : \x1b[31mABCDEFGH\x1b[0m\n"
                     "idxFileOffsetAV     : \x1b[32m51328\x1b[0m\n"),
            std::string::npos);
  // The right seven letters do not make it valid: the eighth byte counts.
  image_.putText(51200, "TR_V001X");
  out = printed();
  EXPECT_NE(out.find("Magic Word          : \x1b[31mTR_V001X\x1b[0m\n"),
            std::string::npos);
}

TEST_F(TrellisHeadTest, DeviceEndingBeforeTheHeadEndPrintsNoHead) {
  CardImage crossing(dir_.file("crossing.img"), 51300);
  RunResult r = runConsole("maintain TrellisHead\n",
                           {{"TRELLIS_DEVICE", crossing.path()}});
  EXPECT_EQ(commandOutput(r.out), "");
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n"
            "  Device: " +
                crossing.path() +
                "\n"
                "  Expected: 128 bytes\n"
                "  Actual: 100 bytes\n\n");

  CardImage atEnd(dir_.file("at-end.img"), 51200);
  r = runConsole("maintain TrellisHead\n", {{"TRELLIS_DEVICE", atEnd.path()}});
  EXPECT_EQ(commandOutput(r.out), "");
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mREAD FAILED\x1b[0m\n"
            "  Device: " +
                atEnd.path() +
                "\n"
                "  Requested: 128 bytes\n"
                "  Error: Success (0)\n\n");
}

TEST_F(TrellisHeadTest, FailedSeekShowsNoOffsetForTheFixedHead) {
  SysOverride restore;
  UseDevice device(image_.path());
  sys.lseek = [](int, int64_t) -> int64_t {
    errno = EIO;
    return -1;
  };
  tr_TrellisHead head;
  int result = 0;
  const Captured c =
      capture([&] { result = _tr_maintainGetTrellisHead(&head); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n"
            "  Device: " +
                image_.path() +
                "\n"
                "  Error: Input/output error (5)\n\n");
}

// Every reader of this unit and its neighbours opens the device first; a
// path that cannot be opened stops each one at its first block.
TEST_F(TrellisHeadTest, UnopenableDeviceStopsEveryReaderAtTheOpen) {
  const std::string missing = dir_.file("no-such-card.img");
  const RunResult r = runConsole(
      "maintain TrellisHead\n"
      "maintain recDataFileHead 1\n"
      "maintain picBackUpIndexAuxHead 1\n",
      {{"TRELLIS_DEVICE", missing}});
  EXPECT_EQ(commandOutput(r.out), "");
  const std::string block =
      "<TS> \x1b[31mOPEN FAILED\x1b[0m\n"
      "  Device: " +
      missing +
      "\n"
      "  Error: No such file or directory (2)\n\n";
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31m_tr_maintainGetDeviceCapacity open failed\x1b[0m\n" +
                block + block + block);
}

TEST(TrellisHeadNullTest, MissingRecordIsReportedNotRead) {
  SysOverride restore;
  sys.open = [](const char*, int) -> int {
    ADD_FAILURE() << "device opened without a destination";
    return -1;
  };
  int result = 0;
  const Captured c = capture([&] {
    result = _tr_maintainGetTrellisHead(nullptr);
    _tr_maintainPrintTrellisHead(nullptr);
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintTrellisHead header is null\n");
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31m_tr_maintainGetTrellisHead head is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
