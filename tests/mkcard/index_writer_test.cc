// A formatted card as trellis-mkcard writes it, checked byte by byte at
// offsets worked out by hand, and read back through the console.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

const std::string kZero8(8, '\0');

class MkcardIndexWriterTest : public testing::Test {
 protected:
  std::string image() const { return dir_.file("card.img"); }
  std::string at(uint64_t offset, size_t count) const {
    return readAt(image(), offset, count);
  }
  // The header every index file of the 2 GiB card below carries.
  static std::string expectedHeader(char fileType, uint64_t fileSize) {
    std::string h = std::string("IDX_01\0", 7) + fileType;
    h += std::string(8 + 128, '\0');  // reserved1, no channel writing
    h += leBytes(16, 4) + leBytes(64, 4) + leBytes(50, 4) + leBytes(1, 4);
    h += leBytes(fileSize, 8);
    h += std::string(8, '\0');         // exception flag and gap
    h += leBytes(1709622489, 8);       // 2024-03-05 07:08:09
    return h + std::string(80, '\0');  // reserved2 and gap
  }

  TempDir dir_;
};

TEST_F(MkcardIndexWriterTest, TwoGigabyteCardAtLiteralOffsets) {
  const RunResult r =
      runMkcard({"--size", "2G", "--files", "16", "--segments", "64", "--aux",
                 "50", "--time", "1709622489", image()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");

  // Storage head: reserve 42949672, index files of 10724586 bytes.
  EXPECT_EQ(at(51200, 128), std::string("TR_V001\0", 8) + leBytes(51328, 8) +
                                leBytes(10775914, 8) + leBytes(21500500, 8) +
                                leBytes(32225086, 8) + leBytes(10724586, 8) +
                                std::string(80, '\0'));
  EXPECT_EQ(at(51328, 264), expectedHeader(1, 10724586));
  EXPECT_EQ(at(21500500, 264), expectedHeader(2, 10724586));

  // Record blocks of 32 + 64 x 640 = 40992 bytes from 51592.
  const std::string freeHead = std::string("DATA\0", 5) + '\0' + '\1' + '\0';
  EXPECT_EQ(at(51592, 32), freeHead + leBytes(1, 4) + std::string(20, '\0'));
  EXPECT_EQ(at(51624, 640), "DF_INFO" + std::string(633, '\0'));
  EXPECT_EQ(at(666472, 32), freeHead + leBytes(16, 4) + std::string(20, '\0'));
  EXPECT_EQ(at(706824, 8), std::string("DF_INFO\0", 8));  // (16, 64)
  EXPECT_EQ(at(707464, 8), kZero8);  // past the data-file area
  // Picture blocks of 32 + 64 x 1680 = 107552 bytes from 21500764.
  EXPECT_EQ(at(23114044, 32),
            freeHead + leBytes(16, 4) + std::string(20, '\0'));
  EXPECT_EQ(at(23219916, 1680), "DF_INFO" + std::string(1673, '\0'));
  EXPECT_EQ(at(23221596, 8), kZero8);
  // The auxiliary region (from 6403786 into each index file) is empty.
  EXPECT_EQ(at(6455114, 43208), std::string(43208, '\0'));
  EXPECT_EQ(at(27904286, 43208), std::string(43208, '\0'));

  EXPECT_EQ(at(10775914, 10724586), at(51328, 10724586));
  EXPECT_EQ(at(32225086, 10724586), at(21500500, 10724586));
  // A sparse image: the records only, not 2 GiB.
  EXPECT_LT(allocatedBytes(image()), uint64_t{16} << 20);
}

TEST_F(MkcardIndexWriterTest, ConsoleFindsTheLastRecordsAndTheBounds) {
  ASSERT_EQ(runMkcard({"--size", "2G", "--segments", "64", "--time",
                       "1709622489", image()})
                .status,
            0);
  const RunResult r = runConsole(
      "maintain picBackUpDataFileInfo 16 64\nmaintain recDataFileHead 17\n",
      {{"TRELLIS_DEVICE", image()}});
  const std::string out = commandOutput(r.out);
  EXPECT_NE(out.find("targetOffset        : \x1b[32m33944502\x1b[0m\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("Magic Word          : \x1b[32mDF_INFO\x1b[0m\n"),
            std::string::npos);
  EXPECT_NE(out.find("In Use              : \x1b[31mNo\x1b[0m\n"),
            std::string::npos);
  EXPECT_NE(maskTimestamps(r.err).find("<TS> \x1b[31mfileNum INVALID\x1b[0m\n"
                                       " fileNum: 17\n maxFileNum: 16\n"),
            std::string::npos)
      << r.err;
}

TEST_F(MkcardIndexWriterTest, OffsetsBeyondFourGigabytes) {
  // 300 GiB: reserve 6442450944, index files of 1610599904 bytes; the
  // picture backup starts at 4831851040.
  ASSERT_EQ(runMkcard({"--size", "300G", "--segments", "64", "--time",
                       "1709622489", image()})
                .status,
            0);
  const std::string head = at(51200, 48);
  EXPECT_EQ(le64(head, 16), 1610651232u);
  EXPECT_EQ(le64(head, 24), 3221251136u);
  EXPECT_EQ(le64(head, 32), 4831851040u);
  EXPECT_EQ(le64(head, 40), 1610599904u);
  const std::string header = at(4831851040, 264);
  EXPECT_EQ(header.substr(0, 8), std::string("IDX_01\0\2", 8));
  EXPECT_EQ(le64(header, 160), 1610599904u);
  EXPECT_EQ(le32(at(4833464584, 32), 8), 16u);  // data file head 16

  const RunResult r = runConsole("maintain picBackUpDataFileHead 16\n",
                                 {{"TRELLIS_DEVICE", image()}});
  const std::string out = commandOutput(r.out);
  EXPECT_NE(out.find("targetOffset        : \x1b[32m4833464584\x1b[0m\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("File Number         : \x1b[32m16\x1b[0m\n"),
            std::string::npos);
}

}  // namespace
}  // namespace test
}  // namespace tr
