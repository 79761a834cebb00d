#include "format/data_file_head.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/index_image.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class DataFileHeadTest : public testing::Test {
 protected:
  DataFileHeadTest() : image_(dir_.file("card.img"), kCard2G) {}

  RunResult run(const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", image_.path()}});
  }
  // What each command line printed, timestamps masked.
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

TEST_F(DataFileHeadTest, PrintsEveryFieldOfAValidHead) {
  // Record file, 100 segment infos a file: blocks of 32 + 100 x 640 bytes,
  // so data file 2 starts at 51328 + 264 + 64032.
  putIndexDimensions(image_, kCard2GRec, 3, 100, 100);
  const uint64_t head = 115624;
  image_.putText(head, std::string("DATA\0", 5));
  image_.put8(head + 5, 7);
  image_.put8(head + 6, 1);
  image_.put8(head + 7, 1);
  image_.put32(head + 8, 2);
  image_.put32(head + 12, 16909060);
  image_.put32(head + 16, 1048577);
  image_.put32(head + 20, 99);
  for (int i = 0; i < 8; ++i) image_.put8(head + 24 + i, 0xA0 + i);
  const RunResult r = run("maintain recDataFileHead 2\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(maskTimestamps(commandOutput(r.out)),
            "targetOffset        : \x1b[32m115624\x1b[0m\n"
            "\n<TS>\n"
            "\x1b[35m=== fileNum:2 tr_DataFileHead ===\x1b[0m\n"
            "Magic Word          : \x1b[32mDATA\x1b[0m\n"
            "Channel             : \x1b[32m7\x1b[0m\n"
            "Validity            : \x1b[32mRead/Write\x1b[0m\n"
            "In Use              : \x1b[32mYes\x1b[0m\n"
            "File Number         : \x1b[32m2\x1b[0m\n"
            "Write Data Index    : \x1b[32m16909060\x1b[0m\n"
            "Used Size           : \x1b[32m1.00 MB\x1b[0m\n"
            "Valid Segments      : \x1b[32m99\x1b[0m\n"
            "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
            "\x1b[36m\n0000: A0 A1 A2 A3 A4 A5 A6 A7 \x1b[0m\n"
            "\x1b[35m===========END==========\n\x1b[0m");
}

TEST_F(DataFileHeadTest, StoredCodesPickWordAndColourOutOfTableOnesShowN) {
  // One segment info a file: blocks of 32 + 640 = 672 bytes from 51592.
  putIndexDimensions(image_, kCard2GRec, 5, 1, 100);
  const uint8_t codes[5][2] = {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {255, 255}};
  for (int f = 0; f < 5; ++f) {
    image_.put8(51592 + 672 * f + 6, codes[f][0]);
    image_.put8(51592 + 672 * f + 7, codes[f][1]);
  }
  const std::vector<std::string> out = perCommand(
      "maintain recDataFileHead 1\nmaintain recDataFileHead 2\n"
      "maintain recDataFileHead 3\nmaintain recDataFileHead 4\n"
      "maintain recDataFileHead 5\n");
  ASSERT_EQ(out.size(), 6u);
  EXPECT_TRUE(has(out[0],
                  "Validity            : \x1b[31mInvalid\x1b[0m\n"
                  "In Use              : \x1b[31mNo\x1b[0m\n"));
  EXPECT_TRUE(has(out[1],
                  "Validity            : \x1b[32mRead/Write\x1b[0m\n"
                  "In Use              : \x1b[32mYes\x1b[0m\n"));
  EXPECT_TRUE(has(out[2], "Validity            : \x1b[33mRead-Only\x1b[0m\n"));
  EXPECT_TRUE(has(out[3],
                  "Validity            : \x1b[31mUnknown (3)\x1b[0m\n"
                  "In Use              : \x1b[32mUnknown (2)\x1b[0m\n"));
  EXPECT_TRUE(has(out[4],
                  "Validity            : \x1b[31mUnknown (255)\x1b[0m\n"
                  "In Use              : \x1b[32mUnknown (255)\x1b[0m\n"
                  "File Number         : "));
}

TEST_F(DataFileHeadTest, MagicNeedsItsNulAndUsedSizeSwitchesUnits) {
  putIndexDimensions(image_, kCard2GRec, 4, 1, 100);
  image_.putText(51592, "DATAX");
  image_.put32(51592 + 16, 1024);
  image_.putText(51592 + 672, std::string("DATA\0", 5));
  image_.put32(51592 + 672 + 16, 1025);
  image_.put32(51592 + 1344 + 16, 1048576);
  image_.put32(51592 + 2016 + 16, 4294967295);
  const std::vector<std::string> out = perCommand(
      "maintain recDataFileHead 1\nmaintain recDataFileHead 2\n"
      "maintain recDataFileHead 3\nmaintain recDataFileHead 4\n");
  ASSERT_EQ(out.size(), 5u);
  EXPECT_TRUE(has(out[0],
                  "Magic Word          : \x1b[31mDATAX\x1b[0m\n"
                  "Channel             : \x1b[32m0\x1b[0m\n"));
  EXPECT_TRUE(has(out[0], "Used Size           : \x1b[32m1024 Bytes\x1b[0m\n"));
  EXPECT_TRUE(has(out[1], "Magic Word          : \x1b[32mDATA\x1b[0m\n"));
  EXPECT_TRUE(has(out[1], "Used Size           : \x1b[32m1.00 KB\x1b[0m\n"));
  EXPECT_TRUE(has(out[2], "Used Size           : \x1b[32m1024.00 KB\x1b[0m\n"));
  EXPECT_TRUE(has(out[3], "Used Size           : \x1b[32m4096.00 MB\x1b[0m\n"));
}

TEST_F(DataFileHeadTest, EachSelectorReadsItsOwnIndexFileAndKind) {
  // Record files take 640 bytes a segment info, picture files 1680.
  putIndexDimensions(image_, kCard2GRec, 2, 100, 100);       // file 2
  putIndexDimensions(image_, kCard2GRecBackUp, 3, 10, 100);  // file 3
  putIndexDimensions(image_, kCard2GPic, 2, 60, 100);        // file 2
  putIndexDimensions(image_, kCard2GPicBackUp, 4, 1, 100);   // file 4
  const struct {
    const char* command;
    uint64_t head;  // worked out by hand
  } cases[] = {
      {"recDataFileHead 2", 115624},          // 51328 + 264 + 64032
      {"recBackUpDataFileHead 3", 10789042},  // + 264 + 2 x 6432
      {"picDataFileHead 2", 21601596},        // + 264 + 100832
      {"picBackUpDataFileHead 4", 32230486},  // + 264 + 3 x 1712
  };
  std::string script;
  for (int i = 0; i < 4; ++i) {
    image_.put8(cases[i].head + 5, 41 + i);
    script += std::string("maintain ") + cases[i].command + "\n";
  }
  const std::vector<std::string> out = perCommand(script);
  ASSERT_EQ(out.size(), 5u);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(out[i].rfind("targetOffset        : \x1b[32m" +
                               std::to_string(cases[i].head) + "\x1b[0m\n",
                           0),
              0u)
        << cases[i].command;
    EXPECT_TRUE(has(out[i], "Channel             : \x1b[32m" +
                                std::to_string(41 + i) + "\x1b[0m\n"))
        << cases[i].command;
  }
}

TEST_F(DataFileHeadTest, FileNumberMustLieWithinTheHeader) {
  putIndexDimensions(image_, kCard2GRec, 5, 100, 100);
  // The picture backup file keeps a blank header: maxFileNum 0.
  const RunResult r =
      run("maintain recDataFileHead 0\n"
          "maintain recDataFileHead 5\n"
          "maintain recDataFileHead 6\n"
          "maintain recDataFileHead -1\n"
          "maintain picBackUpDataFileHead 1\n");
  const std::vector<std::string> out = splitAtPrompts(r.out);
  ASSERT_EQ(out.size(), 7u);
  // Only the last file of the header is read: 51328 + 264 + 4 x 64032.
  EXPECT_EQ(out[1], "");
  EXPECT_EQ(out[2].rfind("targetOffset        : \x1b[32m307720\x1b[0m\n", 0),
            0u);
  EXPECT_TRUE(has(out[2], "=== fileNum:5 tr_DataFileHead ==="));
  EXPECT_EQ(out[3], "");
  EXPECT_EQ(out[4], "");
  EXPECT_EQ(out[5], "");
  const auto invalid = [](const char* number, const char* bound) {
    return std::string("<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: ") +
           number + "\n maxFileNum: " + bound + "\n";
  };
  EXPECT_EQ(maskTimestamps(r.err), invalid("0", "5") + invalid("6", "5") +
                                       invalid("-1", "5") + invalid("1", "0"));
}

TEST_F(DataFileHeadTest, HeaderAdmittingEveryNumberStillAddsUpIn64Bits) {
  // maxFileNum 4294967295 lets -1 through as file 4294967295; with one
  // segment info a file its head lies at 51328 + 264 + 4294967294 x 672,
  // about 2.6 TiB, far past the card.
  putIndexDimensions(image_, kCard2GRec, 4294967295, 1, 100);
  const RunResult r = run("maintain recDataFileHead -1\n");
  EXPECT_EQ(commandOutput(r.out),
            "targetOffset        : \x1b[32m2886218073160\x1b[0m\n");
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mREAD FAILED\x1b[0m\n"
            "  Device: " +
                image_.path() +
                "\n"
                "  Requested: 32 bytes\n"
                "  Error: Success (0)\n\n");
}

TEST(DataFileHeadLargeCardTest, PictureFileBeyond4GiB) {
  // 400 GiB: reserve 8589934592, idxFileSize (8589934592 - 51328) / 4 =
  // 2147470816, so the picture index file starts at 51328 + 2 x 2147470816.
  TempDir dir;
  CardImage card(dir.file("large.img"), 429496729600ULL);
  putIndexDimensions(card, 4294992960ULL, 2, 60, 100);
  const uint64_t head = 4295094056ULL;  // + 264 + 32 + 60 x 1680
  card.put8(head + 5, 77);
  const RunResult r = runConsole("maintain picDataFileHead 2\n",
                                 {{"TRELLIS_DEVICE", card.path()}});
  EXPECT_EQ(r.err, "");
  const std::string out = commandOutput(r.out);
  EXPECT_EQ(out.rfind("targetOffset        : \x1b[32m4295094056\x1b[0m\n", 0),
            0u);
  EXPECT_TRUE(has(out, "Channel             : \x1b[32m77\x1b[0m\n"));
}

TEST(DataFileHeadNullTest, MissingRecordIsReportedNotRead) {
  SysOverride restore;
  sys.open = [](const char*, int) -> int {
    ADD_FAILURE() << "device opened without a destination";
    return -1;
  };
  int result = 0;
  const Captured c = capture([&] {
    result = _tr_maintainGetDataFileHeader(1, 1, 51328, nullptr);
    _tr_maintainPrintDataFileHeader(nullptr, 1);
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintDataFileHeader header is null\n");
  EXPECT_EQ(
      maskTimestamps(c.err),
      "<TS> \x1b[31m_tr_maintainGetDataFileHeader header is null\x1b[0m\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
