#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class IndexFileHeadTest : public testing::Test {
 protected:
  IndexFileHeadTest() : image_(dir_.file("card.img"), kCard2G) {}

  RunResult run(const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", image_.path()}});
  }

  // A valid record header with distinct values in every field.
  void writeHeader(uint64_t base) {
    image_.putText(base, std::string("IDX_01\0", 7));
    image_.put8(base + 7, 1);
    for (int i = 0; i < 8; ++i) image_.put8(base + 8 + i, 0xA0 + i);
    for (int c = 0; c < 32; ++c) image_.put32(base + 16 + 4 * c, c);
    image_.put32(base + 16 + 4 * 3, 10000);
    image_.put32(base + 16 + 4 * 4, 10001);
    image_.put32(base + 144, 7);
    image_.put32(base + 148, 100);
    image_.put32(base + 152, 50);
    image_.put32(base + 156, 3);
    image_.put64(base + 160, 1048577);
    image_.put8(base + 168, 0);
    image_.put64(base + 176, 1709622489);  // 2024-03-05 07:08:09
    image_.put8(base + 184, 0x11);
    image_.put8(base + 262, 0x22);
  }

  TempDir dir_;
  CardImage image_;
};

std::string channelLines() {
  std::string text;
  for (int c = 1; c <= 32; ++c) {
    char line[64];
    if (c == 5) {
      std::snprintf(line, sizeof line, "  Channel %02d: \x1b[31m10001\x1b[0m\n", c);
    } else {
      std::snprintf(line, sizeof line, "  Channel %02d: %d\n", c,
                    c == 4 ? 10000 : c - 1);
    }
    text += line;
  }
  return text;
}

std::string reserved2Dump() {
  std::string text = "\x1b[36m\n0000: 11 ";
  for (int i = 1; i < 79; ++i) {
    if (i % 16 == 0) {
      char head[16];
      std::snprintf(head, sizeof head, "\n%04X: ", i);
      text += head;
    }
    text += i == 78 ? "22 " : "00 ";
  }
  return text + "\x1b[0m\n";
}

TEST_F(IndexFileHeadTest, PrintsEveryFieldOfAValidHeader) {
  writeHeader(kCard2GRec);
  const RunResult r = run("maintain recIndexFileHead\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  const std::string expected =
      "targetOffset        : \x1b[32m51328\x1b[0m\n"
      "\n<TS>\n"
      "\x1b[35m=== tr_IndexFileHead ===\n\x1b[0m"
      "Magic Word          : \x1b[32mIDX_01\x1b[0m\n"
      "File Type           : \x1b[32mAV\x1b[0m\n"
      "\x1b[34mWrite File Indexes:\n\x1b[0m" +
      channelLines() +
      "Max File Number     : \x1b[32m7\x1b[0m\n"
      "Max Data Number     : \x1b[32m100\x1b[0m\n"
      "Max Aux Number      : \x1b[32m50\x1b[0m\n"
      "Aux Number          : \x1b[32m3\x1b[0m\n"
      "File Size           : \x1b[32m1.00 MB\x1b[0m\n"
      "Exception Flag      : \x1b[32mNormal\x1b[0m\n"
      "utc startTime       : \x1b[32m2024-03-05 07:08:09\x1b[0m\n"
      "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
      "\x1b[36m\n0000: A0 A1 A2 A3 A4 A5 A6 A7 \x1b[0m\n" +
      reserved2Dump() + "\x1b[35m===========END==========\n\x1b[0m";
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)), expected);
}

TEST_F(IndexFileHeadTest, EachSelectorReadsItsOwnIndexFile) {
  const std::pair<const char*, uint64_t> files[] = {
      {"recIndexFileHead", kCard2GRec},
      {"recBackUpIndexFileHead", kCard2GRecBackUp},
      {"picIndexFileHead", kCard2GPic},
      {"picBackUpIndexFileHead", kCard2GPicBackUp}};
  uint32_t marker = 11;
  for (const auto& file : files) image_.put32(file.second + 144, marker++);
  marker = 11;
  for (const auto& file : files) {
    const RunResult r = run(std::string("maintain ") + file.first + "\n");
    const std::string out = commandOutput(r.out);
    EXPECT_NE(out.find("targetOffset        : \x1b[32m" +
                       std::to_string(file.second) + "\x1b[0m\n"),
              std::string::npos)
        << file.first;
    EXPECT_NE(out.find("Max File Number     : \x1b[32m" +
                       std::to_string(marker++) + "\x1b[0m\n"),
              std::string::npos)
        << file.first;
  }
}

TEST_F(IndexFileHeadTest, DamageChangesColoursNotLines) {
  writeHeader(kCard2GPic);
  image_.put(kCard2GPic, "\0\0\0\0\0\0\0", 7);  // marked abnormal
  image_.put8(kCard2GPic + 7, 3);
  image_.put8(kCard2GPic + 168, 255);
  image_.put64(kCard2GPic + 160, 1024);
  const std::string out =
      commandOutput(run("maintain picIndexFileHead\n").out);
  EXPECT_NE(out.find("Magic Word          : \x1b[31m\x1b[0m\n"), std::string::npos);
  EXPECT_NE(out.find("File Type           : \x1b[32mUnknown\x1b[0m\n"), std::string::npos);
  EXPECT_NE(out.find("Exception Flag      : \x1b[31mAbnormal\x1b[0m\n"), std::string::npos);
  EXPECT_NE(out.find("File Size           : \x1b[32m1024 Bytes\x1b[0m\n"), std::string::npos);
}

TEST_F(IndexFileHeadTest, HeaderCrossingOrAtTheDeviceEndIsNotPrinted) {
  // On a card this small the record index file starts 100 bytes before the
  // end; on the second exactly at the end.
  CardImage crossing(dir_.file("crossing.img"), 51428);
  RunResult r = runConsole("maintain recIndexFileHead\n",
                           {{"TRELLIS_DEVICE", crossing.path()}});
  EXPECT_EQ(commandOutput(r.out), "targetOffset        : \x1b[32m51328\x1b[0m\n");
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n"
            "  Device: " + crossing.path() + "\n"
            "  Expected: 264 bytes\n"
            "  Actual: 100 bytes\n\n");

  CardImage atEnd(dir_.file("at-end.img"), 51328);
  r = runConsole("maintain recIndexFileHead\n", {{"TRELLIS_DEVICE", atEnd.path()}});
  EXPECT_EQ(commandOutput(r.out), "targetOffset        : \x1b[32m51328\x1b[0m\n");
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mREAD FAILED\x1b[0m\n"
            "  Device: " + atEnd.path() + "\n"
            "  Requested: 264 bytes\n"
            "  Error: Success (0)\n\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
