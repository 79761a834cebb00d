#include "format/aux_head.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/index_image.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// On the 2 GiB card each index file is 10724586 bytes and its auxiliary
// region is the last 100 x 43208 = 4320800 of them.
constexpr uint64_t kRecAux1 = 6455114;  // 51328 + 10724586 - 4320800

class AuxHeadTest : public testing::Test {
 protected:
  AuxHeadTest() : image_(dir_.file("card.img"), kCard2G) {}

  RunResult run(const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", image_.path()}});
  }
  std::vector<std::string> perCommand(const std::string& script) {
    std::vector<std::string> parts = splitAtPrompts(run(script).out);
    parts.erase(parts.begin());
    for (std::string& part : parts) part = maskTimestamps(part);
    return parts;
  }

  TempDir dir_;
  CardImage image_;
};

bool has(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

std::string startsWithOffset(uint64_t offset) {
  return "targetOffset        : \x1b[32m" + std::to_string(offset) +
         "\x1b[0m\n";
}

TEST_F(AuxHeadTest, PrintsEveryFieldOfAStoredHead) {
  putIndexDimensions(image_, kCard2GRec, 1, 1, 100);
  image_.put8(kRecAux1, 1);
  image_.put8(kRecAux1 + 1, 0);
  image_.put16(kRecAux1 + 2, 65535);
  image_.put32(kRecAux1 + 4, 0xEFBEADDE);
  const RunResult r = run("maintain recIndexAuxHead 1\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)),
            "targetOffset        : \x1b[32m6455114\x1b[0m\n"
            "\n<TS>\n"
            "\x1b[35m=== auxNum:1 IndexFileAuxiliaryHead ===\x1b[0m\n"
            "isUsed              : \x1b[32mYes\x1b[0m\n"
            "isFull              : \x1b[31mNo\x1b[0m\n"
            "Current Count       : \x1b[32m65535\x1b[0m\n"
            "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
            "\x1b[36m\n0000: DE AD BE EF \x1b[0m\n"
            "\x1b[35m===========END==========\n\x1b[0m");
}

TEST_F(AuxHeadTest, FlagsOutsideTheTableShowTheirValueInGreen) {
  putIndexDimensions(image_, kCard2GRec, 1, 1, 100);
  image_.put8(kRecAux1, 0);
  image_.put8(kRecAux1 + 1, 1);
  image_.put8(kRecAux1 + 43208, 2);
  image_.put8(kRecAux1 + 43208 + 1, 255);
  const std::vector<std::string> out =
      perCommand("maintain recIndexAuxHead 1\nmaintain recIndexAuxHead 2\n");
  ASSERT_EQ(out.size(), 3u);
  EXPECT_TRUE(has(out[0],
                  "isUsed              : \x1b[31mNo\x1b[0m\n"
                  "isFull              : \x1b[32mYes\x1b[0m\n"
                  "Current Count       : \x1b[32m0\x1b[0m\n"));
  EXPECT_TRUE(has(out[1],
                  "isUsed              : \x1b[32mUnknown (2)\x1b[0m\n"
                  "isFull              : \x1b[32mUnknown (255)\x1b[0m\n"));
}

TEST_F(AuxHeadTest, RegionIsTheLastPartOfEachIndexFile) {
  // Auxiliary 100 ends exactly where the next index file (or the reserve)
  // begins: auxiliary 1 + 99 x 43208 + 43208.
  const struct {
    const char* selector;
    uint64_t base;
    uint64_t aux1;
    uint64_t aux100;
  } files[] = {
      {"rec", kCard2GRec, 6455114, 10732706},
      {"recBackUp", kCard2GRecBackUp, 17179700, 21457292},
      {"pic", kCard2GPic, 27904286, 32181878},
      {"picBackUp", kCard2GPicBackUp, 38628872, 42906464},
  };
  std::string script;
  uint16_t count = 1000;
  for (const auto& file : files) {
    putIndexDimensions(image_, file.base, 1, 1, 100);
    image_.put16(file.aux1 + 2, count++);
    image_.put16(file.aux100 + 2, count++);
    script += std::string("maintain ") + file.selector + "IndexAuxHead 1\n";
    script += std::string("maintain ") + file.selector + "IndexAuxHead 100\n";
  }
  const std::vector<std::string> out = perCommand(script);
  ASSERT_EQ(out.size(), 9u);
  count = 1000;
  for (int i = 0; i < 4; ++i) {
    const uint64_t offsets[2] = {files[i].aux1, files[i].aux100};
    for (int k = 0; k < 2; ++k) {
      const std::string& printed = out[2 * i + k];
      EXPECT_EQ(printed.rfind(startsWithOffset(offsets[k]), 0), 0u)
          << files[i].selector << " " << k;
      EXPECT_TRUE(has(printed, "Current Count       : \x1b[32m" +
                                   std::to_string(count++) + "\x1b[0m\n"))
          << files[i].selector << " " << k;
    }
  }
}

TEST_F(AuxHeadTest, AuxNumberMustLieWithinHeaderAndRegion) {
  putIndexDimensions(image_, kCard2GRec, 1, 1, 3);
  // A header claiming more auxiliaries than the region holds is held to 100.
  putIndexDimensions(image_, kCard2GPic, 1, 1, 200);
  // The record backup file keeps a blank header: maxAuxNumber 0.
  const RunResult r =
      run("maintain recIndexAuxHead 0\n"
          "maintain recIndexAuxHead 3\n"
          "maintain recIndexAuxHead 4\n"
          "maintain recIndexAuxHead -1\n"
          "maintain recBackUpIndexAuxHead 1\n"
          "maintain picIndexAuxHead 100\n"
          "maintain picIndexAuxHead 101\n"
          "maintain picIndexAuxHead 200\n");
  const std::vector<std::string> out = splitAtPrompts(r.out);
  ASSERT_EQ(out.size(), 10u);
  EXPECT_EQ(out[1], "");
  // Auxiliary 3 of the record file: 6455114 + 2 x 43208.
  EXPECT_EQ(out[2].rfind(startsWithOffset(6541530), 0), 0u);
  EXPECT_TRUE(has(out[2], "=== auxNum:3 IndexFileAuxiliaryHead ==="));
  EXPECT_EQ(out[3] + out[4] + out[5], "");
  EXPECT_EQ(out[6].rfind(startsWithOffset(32181878), 0), 0u);
  EXPECT_EQ(out[7] + out[8], "");
  const auto invalid = [](const char* number, const char* bound) {
    return std::string("<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: ") +
           number + "\n maxAuxNumber: " + bound + "\n";
  };
  EXPECT_EQ(maskTimestamps(r.err), invalid("0", "3") + invalid("4", "3") +
                                       invalid("-1", "3") + invalid("1", "0") +
                                       invalid("101", "100") +
                                       invalid("200", "100"));
}

TEST(AuxHeadLargeCardTest, PictureBackupRegionBeyond4GiB) {
  // 400 GiB: reserve 8589934592, idxFileSize 2147470816. The picture backup
  // file starts at 51328 + 3 x 2147470816 = 6442463776; its auxiliary 100 at
  // 6442463776 + 2147470816 - 4320800 + 99 x 43208, 43208 bytes before the
  // reserve's end.
  TempDir dir;
  CardImage card(dir.file("large.img"), 429496729600ULL);
  putIndexDimensions(card, 6442463776ULL, 1, 1, 100);
  putIndexDimensions(card, 4294992960ULL, 1, 1, 100);
  card.put16(8589891384ULL + 2, 4242);
  card.put16(6438142976ULL + 2, 4343);  // picture file, auxiliary 1
  const RunResult r = runConsole(
      "maintain picBackUpIndexAuxHead 100\nmaintain picIndexAuxHead 1\n",
      {{"TRELLIS_DEVICE", card.path()}});
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> out = splitAtPrompts(r.out);
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ(out[1].rfind(startsWithOffset(8589891384ULL), 0), 0u);
  EXPECT_TRUE(has(out[1], "Current Count       : \x1b[32m4242\x1b[0m\n"));
  EXPECT_EQ(out[2].rfind(startsWithOffset(6438142976ULL), 0), 0u);
  EXPECT_TRUE(has(out[2], "Current Count       : \x1b[32m4343\x1b[0m\n"));
}

TEST(AuxHeadSmallCardTest, RegionThatWouldStartBeforeTheFileFailsTheSeek) {
  // 100 MiB: reserve 2097152, idxFileSize 511456, smaller than the region.
  // Auxiliary 1 of the record file would start at 51328 + 511456 - 4320800,
  // which wraps below zero.
  TempDir dir;
  CardImage card(dir.file("small.img"), 104857600);
  putIndexDimensions(card, 51328, 1, 1, 100);
  const RunResult r = runConsole("maintain recIndexAuxHead 1\n",
                                 {{"TRELLIS_DEVICE", card.path()}});
  EXPECT_EQ(commandOutput(r.out), startsWithOffset(18446744073705793600ULL));
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n"
            "  Device: " +
                card.path() +
                "\n"
                "  Offset: 0xffffffffffc6a840\n"
                "  Error: Invalid argument (22)\n\n");
}

TEST(AuxHeadNullTest, MissingRecordIsReportedNotRead) {
  SysOverride restore;
  sys.open = [](const char*, int) -> int {
    ADD_FAILURE() << "device opened without a destination";
    return -1;
  };
  int result = 0;
  const Captured c = capture([&] {
    result = _tr_maintainGetIndexAuxHeader(1, 1, 51328, nullptr);
    _tr_maintainPrintIndexAuxHeader(nullptr, 1);
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintIndexAuxHeader header is null\n");
  EXPECT_EQ(
      maskTimestamps(c.err),
      "<TS> \x1b[31m_tr_maintainGetIndexAuxHeader header is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
