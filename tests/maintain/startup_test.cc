#include "maintain/startup.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

struct Layout {
  uint64_t capacity;
  uint64_t reserve;
  uint64_t fileSize;
  uint64_t offsets[4];
};

class StartUpLayoutTest : public testing::TestWithParam<Layout> {};

TEST_P(StartUpLayoutTest, ComputesTheFourIndexFilesFromTheCapacity) {
  const Layout& want = GetParam();
  EXPECT_EQ(_tr_maintainGetReserveSpaceSzie(want.capacity), want.reserve);
  const tr_TrellisHead head = computeTrellisHead(want.capacity);
  EXPECT_STREQ(head.magicWord, "TR_V001");
  EXPECT_EQ(head.idxFileSize, want.fileSize);
  EXPECT_EQ(head.idxFileOffsetAV, want.offsets[0]);
  EXPECT_EQ(head.idxFileBackupOffsetAV, want.offsets[1]);
  EXPECT_EQ(head.idxFileOffsetPic, want.offsets[2]);
  EXPECT_EQ(head.idxFileBackupOffsetPic, want.offsets[3]);
  EXPECT_EQ(head.idxCheckFlagAV, 0u);
  EXPECT_EQ(head.AVSectorSize, 0u);
  for (uint8_t byte : head.reserved) EXPECT_EQ(byte, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Capacities, StartUpLayoutTest,
    testing::Values(
        Layout{8589934592ULL, 171798691, 42936840,
               {51328, 42988168, 85925008, 128861848}},
        // The smallest card with room for the head: empty index files.
        Layout{2566400, 51328, 0, {51328, 51328, 51328, 51328}},
        // Smaller cards wrap, and every command then misses the device.
        Layout{0, 0, 4611686018427375072ULL,
               {51328, 4611686018427426400ULL, 9223372036854801472ULL,
                13835058055282176544ULL}},
        // An index area that is not a multiple of 4 leaves 1 byte over.
        Layout{1000000050, 20000001, 4987168,
               {51328, 5038496, 10025664, 15012832}}),
    [](const testing::TestParamInfo<Layout>& param) {
      return "Capacity" + std::to_string(param.param.capacity);
    });

TEST(DeviceCapacityTest, MeasuresImagesSilentlyAndReportsTheRest) {
  TempDir dir;
  CardImage image(dir.file("card.img"), 123456789);
  Captured c = capture([&] {
    EXPECT_EQ(_tr_maintainGetDeviceCapacity(image.path().c_str()), 123456789u);
  });
  EXPECT_EQ(c.err, "");

  c = capture([&] {
    EXPECT_EQ(_tr_maintainGetDeviceCapacity(dir.file("missing").c_str()), 0u);
  });
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31m_tr_maintainGetDeviceCapacity open failed\x1b[0m\n");

  // A character device is neither an image nor a block device.
  c = capture([&] { EXPECT_EQ(_tr_maintainGetDeviceCapacity("/dev/null"), 0u); });
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31m_tr_maintainGetDeviceCapacity get size failed\x1b[0m\n");

  c = capture([&] { EXPECT_EQ(_tr_maintainGetDeviceCapacity(nullptr), 0u); });
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31m_tr_maintainGetDeviceCapacity deviceName is NULL\x1b[0m\n");
}

TEST(DeviceCapacityTest, ClosesWhatItOpenedOnEveryPath) {
  SysOverride guard;
  static int opened;
  static int closed;
  opened = closed = 0;
  sys.open = [](const char* path, int flags) {
    const int fd = kSystemCalls.open(path, flags);
    if (fd >= 0) ++opened;
    return fd;
  };
  sys.close = [](int fd) {
    ++closed;
    return kSystemCalls.close(fd);
  };
  capture([] {
    _tr_maintainGetDeviceCapacity("/dev/null");
    _tr_maintainGetDeviceCapacity("/proc/self/exe");
  });
  EXPECT_EQ(opened, 2);
  EXPECT_EQ(closed, 2);
}

TEST(StartUpTest, PrintsTheNineLinesInOrder) {
  TempDir dir;
  CardImage image(dir.file("card.img"), 8589934592ULL);
  const RunResult r = runConsole("", {{"TRELLIS_DEVICE", image.path()}});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(splitAtPrompts(r.out)[0],
            "\x1b[31mHello Trellis Maintain\x1b[0m\n"
            "deviceSize          : \x1b[32m8589934592\x1b[0m\n"
            "reserveSpaceSize    : \x1b[32m171798691\x1b[0m\n"
            "idxSectorSize       : \x1b[32m171747363\x1b[0m\n"
            "idxFileSize         : \x1b[32m42936840\x1b[0m\n"
            "magicWord           : \x1b[32mTR_V001\x1b[0m\n"
            "idxFileOffsetAV     : \x1b[32m51328\x1b[0m\n"
            "idxFileBackupOffsetAV: \x1b[32m42988168\x1b[0m\n"
            "idxFileOffsetPic    : \x1b[32m85925008\x1b[0m\n"
            "idxFileBackupOffsetPic: \x1b[32m128861848\x1b[0m\n");
}

TEST(StartUpTest, AnUnopenableDeviceStillReachesThePrompt) {
  TempDir dir;
  const std::string missing = dir.file("no-such-card");
  const RunResult r =
      runConsole("maintain recIndexFileHead\n", {{"TRELLIS_DEVICE", missing}});
  EXPECT_EQ(r.status, 0);
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_NE(parts[0].find("idxSectorSize       : \x1b[32m18446744073709500288\x1b[0m\n"),
            std::string::npos);
  EXPECT_NE(parts[0].find("idxFileBackupOffsetPic: \x1b[32m13835058055282176544\x1b[0m\n"),
            std::string::npos);
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31m_tr_maintainGetDeviceCapacity open failed\x1b[0m\n"
            "<TS> \x1b[31mOPEN FAILED\x1b[0m\n"
            "  Device: " + missing + "\n"
            "  Error: No such file or directory (2)\n\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
