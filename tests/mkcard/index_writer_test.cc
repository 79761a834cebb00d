// A formatted card as trellis-mkcard writes it, checked byte by byte at
// offsets worked out by hand.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// The header of each index file of the 2 GiB card below.
std::string indexHeader(char fileType) {
  return std::string("IDX_01\0", 7) + fileType +
         std::string(8 + 128, '\0') +  // reserved1, no channel writing
         leBytes(16, 4) + leBytes(64, 4) + leBytes(50, 4) + leBytes(1, 4) +
         leBytes(10724586, 8) + std::string(8, '\0') +  // exception flag, gap
         leBytes(1709622489, 8) +                       // 2024-03-05 07:08:09
         std::string(80, '\0');                         // reserved2 and gap
}

TEST(MkcardIndexWriterTest, TwoGigabyteCardAtLiteralOffsets) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  const RunResult r =
      runMkcard({"--size", "2G", "--files", "16", "--segments", "64", "--aux",
                 "50", "--time", "1709622489", image});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  auto at = [&](uint64_t offset, size_t count) {
    return readAt(image, offset, count);
  };
  // Storage head: reserve 42949672, index files of 10724586 bytes.
  EXPECT_EQ(at(51200, 128), std::string("TR_V001\0", 8) + leBytes(51328, 8) +
                                leBytes(10775914, 8) + leBytes(21500500, 8) +
                                leBytes(32225086, 8) + leBytes(10724586, 8) +
                                std::string(80, '\0'));
  EXPECT_EQ(at(51328, 264), indexHeader(1));
  EXPECT_EQ(at(21500500, 264), indexHeader(2));
  // Record blocks of 32 + 64 x 640 = 40992 bytes from 51592.
  const std::string freeHead = std::string("DATA\0\0\1\0", 8);
  const std::string zero20(20, '\0');
  EXPECT_EQ(at(51592, 32), freeHead + leBytes(1, 4) + zero20);
  EXPECT_EQ(at(51624, 640), "DF_INFO" + std::string(633, '\0'));
  EXPECT_EQ(at(666472, 32), freeHead + leBytes(16, 4) + zero20);
  EXPECT_EQ(at(706824, 8), std::string("DF_INFO\0", 8));  // (16, 64)
  EXPECT_EQ(at(707464, 8), std::string(8, '\0'));  // past the data-file area
  // Picture blocks of 32 + 64 x 1680 = 107552 bytes from 21500764.
  EXPECT_EQ(at(23114044, 32), freeHead + leBytes(16, 4) + zero20);
  EXPECT_EQ(at(23219916, 1680), "DF_INFO" + std::string(1673, '\0'));
  EXPECT_EQ(at(23221596, 8), std::string(8, '\0'));
  // The auxiliary region (from 6403786 into each index file) is empty.
  EXPECT_EQ(at(6455114, 43208), std::string(43208, '\0'));
  EXPECT_EQ(at(27904286, 43208), std::string(43208, '\0'));
  EXPECT_TRUE(at(10775914, 10724586) == at(51328, 10724586));
  EXPECT_TRUE(at(32225086, 10724586) == at(21500500, 10724586));
  // A sparse image: the records only, not 2 GiB.
  EXPECT_LT(allocatedBytes(image), uint64_t{16} << 20);
}

// 300 GiB: reserve 6442450944, index files of 1610599904 bytes; the
// picture backup starts at 4831851040, its data file head 16 at
// 4831851040 + 264 + 15 x 107552.
TEST(MkcardIndexWriterTest, OffsetsBeyondFourGigabytes) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  ASSERT_EQ(runMkcard({"--size", "300G", "--segments", "64", "--time",
                       "1709622489", image})
                .status,
            0);
  EXPECT_EQ(readAt(image, 51216, 32),
            leBytes(1610651232, 8) + leBytes(3221251136, 8) +
                leBytes(4831851040, 8) + leBytes(1610599904, 8));
  EXPECT_EQ(readAt(image, 4831851040, 8), std::string("IDX_01\0\2", 8));
  EXPECT_EQ(readAt(image, 4831851040 + 160, 8), leBytes(1610599904, 8));
  EXPECT_EQ(readAt(image, 4833464584 + 8, 4), leBytes(16, 4));
  const std::string out =
      commandOutput(runConsole("maintain picBackUpDataFileHead 16\n",
                               {{"TRELLIS_DEVICE", image}})
                        .out);
  EXPECT_NE(out.find("targetOffset        : \x1b[32m4833464584\x1b[0m\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("File Number         : \x1b[32m16\x1b[0m\n"),
            std::string::npos);
}

}  // namespace
}  // namespace test
}  // namespace tr
