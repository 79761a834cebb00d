#include "format/device_layout.h"
#include "maintain/startup.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

const Layout kLayouts[] = {
    {8589934592, 171798691, 42936840, {51328, 42988168, 85925008, 128861848}},
    // The smallest card with room for the head: empty index files.
    {2566400, 51328, 0, {51328, 51328, 51328, 51328}},
    // Smaller cards wrap, and every command then misses the device.
    {0,
     0,
     4611686018427375072ULL,
     {51328, 4611686018427426400ULL, 9223372036854801472ULL,
      13835058055282176544ULL}},
    // An index area that is not a multiple of 4 leaves 1 byte over.
    {1000000050, 20000001, 4987168, {51328, 5038496, 10025664, 15012832}},
};

TEST(StartUpLayoutTest, ComputesTheFourIndexFilesFromTheCapacity) {
  for (const Layout& want : kLayouts) {
    SCOPED_TRACE(want.capacity);
    EXPECT_EQ(_tr_maintainGetReserveSpaceSzie(want.capacity), want.reserve);
    const tr_TrellisHead head = computeTrellisHead(want.capacity);
    EXPECT_STREQ(head.magicWord, "TR_V001");
    EXPECT_EQ(head.idxFileSize, want.fileSize);
    EXPECT_EQ((std::vector<uint64_t>{
                  head.idxFileOffsetAV, head.idxFileBackupOffsetAV,
                  head.idxFileOffsetPic, head.idxFileBackupOffsetPic}),
              std::vector<uint64_t>(want.offsets, want.offsets + 4));
  }
}

// Start-up never stops the console: a device it cannot open or measure
// leaves the layout of a card of 0 bytes (wrapped), and the console prompts.
TEST(StartUpTest, AnUnmeasurableDeviceStillReachesThePrompt) {
  const std::string missing = "/proc/no-such-card";
  const std::string title = "<TS> \x1b[31m_tr_maintainGetDeviceCapacity ";
  const std::pair<std::string, std::string> cases[] = {
      {missing,
       title +
           "open failed\x1b[0m\n<TS> \x1b[31mOPEN FAILED\x1b[0m\n  Device: " +
           missing + "\n  Error: No such file or directory (2)\n\n"},
      // A character device is neither an image nor a block device.
      {"/dev/null",
       title +
           "get size failed\x1b[0m\n<TS> \x1b[31mREAD FAILED\x1b[0m\n  Device: "
           "/dev/null\n  Requested: 264 bytes\n  Error: Success (0)\n\n"}};
  for (const auto& [device, err] : cases) {
    const RunResult r =
        runConsole("maintain recIndexFileHead\n", {{"TRELLIS_DEVICE", device}});
    EXPECT_EQ(r.status, 0);
    const std::vector<std::string> parts = splitAtPrompts(r.out);
    ASSERT_EQ(parts.size(), 3u);
    EXPECT_NE(parts[0].find(
                  "idxSectorSize       : \x1b[32m18446744073709500288\x1b[0m\n"
                  "idxFileSize         : \x1b[32m4611686018427375072\x1b[0m\n"),
              std::string::npos);
    EXPECT_EQ(maskTimestamps(r.err), err);
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
