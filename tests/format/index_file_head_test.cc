#include <gtest/gtest.h>

#include <string>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/printout.h"

namespace tr {
namespace test {
namespace {

class IndexFileHeadTest : public CardTest {
 protected:
  // A valid record header with distinct values in every field.
  void writeHeader(uint64_t base) {
    for (int c = 0; c < 32; ++c) image_.put32(base + 16 + 4 * c, c);
    putIndexDimensions(image_, base, 7, 100, 50);
    putRecord(image_, base,
              {{7, "\x01\xA0\xA1\xA2\xA3\xA4\xA5\xA6\xA7"}, {28, le(10000, 4)},
               {32, le(10001, 4)}, {156, le(3, 4)}, {160, le(1048577, 8)},
               {176, le(1709622489, 8)},  // 2024-03-05 07:08:09
               {184, "\x11"}, {262, "\x22"}});
  }
};

TEST_F(IndexFileHeadTest, PrintsEveryFieldOfAValidHeader) {
  writeHeader(kCard2GRec);
  EXPECT_EQ(print("recIndexFileHead"), golden("index_file_head_full.txt"));
}

TEST_F(IndexFileHeadTest, DamageChangesColoursNotLines) {
  writeHeader(kCard2GPic);
  putRecord(image_, kCard2GPic,  // no magic word: marked abnormal
            {{0, std::string("\0\0\0\0\0\0\0\x03", 8)}, {160, le(1024, 8)}, {168, "\xFF"}});
  const std::string out = print("picIndexFileHead");
  EXPECT_TRUE(has(out, fieldLine("Magic Word", "", kTestRed)));
  EXPECT_TRUE(has(out, fieldLine("File Type", "Unknown")));
  EXPECT_TRUE(has(out, fieldLine("Exception Flag", "Abnormal", kTestRed)));
  EXPECT_TRUE(has(out, fieldLine("File Size", "1024 Bytes")));
}

TEST_F(IndexFileHeadTest, HeaderCrossingOrAtTheDeviceEndIsNotPrinted) {
  // The record index file starts 100 bytes before the end of the first
  // card, exactly at the end of the second.
  for (const uint64_t size : {51428, 51328}) {
    CardImage card(dir_.file("short.img"), size);
    const RunResult r = runOn(card, "recIndexFileHead");
    EXPECT_EQ(r.out, fieldLine("targetOffset", "51328"));
    const std::string device = "\x1b[0m\n  Device: " + card.path();
    EXPECT_EQ(r.err, size == 51428 ? "<TS> \x1b[31mINCOMPLETE READ" + device +
                                         "\n  Expected: 264 bytes\n  Actual: 100 bytes\n\n"
                                   : "<TS> \x1b[31mREAD FAILED" + device +
                                         "\n  Requested: 264 bytes\n  Error: Success (0)\n\n");
  }
}

// A number the header does not admit is refused before any record is
// read. The header given is the only one on the card; all zeros stands for
// a blank one.
struct Refusal {
  const char* command;
  uint64_t base;
  uint32_t maxFile, maxSegment, maxAux;
  const char* number;
  const char* bound;
};
void PrintTo(const Refusal& c, std::ostream* os) { *os << c.command; }

class NumberCheckTest : public CardTest, public testing::WithParamInterface<Refusal> {};

TEST_P(NumberCheckTest, RefusesWithTheNumberAndItsBound) {
  const Refusal& c = GetParam();
  if (c.maxFile + c.maxSegment + c.maxAux != 0) {
    putIndexDimensions(image_, c.base, c.maxFile, c.maxSegment, c.maxAux);
  }
  const RunResult r = runOn(image_, c.command);
  EXPECT_EQ(r.out, "");
  const std::string number = c.number;
  EXPECT_EQ(r.err, "<TS> \x1b[31m" + number.substr(0, number.find(':')) +
                       " INVALID\x1b[0m\n " + number + "\n " + c.bound + "\n");
}

const Refusal kRefusals[] = {
    {"recDataFileHead 0", kCard2GRec, 5, 100, 100, "fileNum: 0", "maxFileNum: 5"},
    {"recDataFileHead 6", kCard2GRec, 5, 100, 100, "fileNum: 6", "maxFileNum: 5"},
    {"recDataFileHead -1", kCard2GRec, 5, 100, 100, "fileNum: -1", "maxFileNum: 5"},
    {"picBackUpDataFileHead 1", kCard2GPicBackUp, 0, 0, 0, "fileNum: 1", "maxFileNum: 0"},
    // The file number is checked first.
    {"recDataFileInfo 0 0", kCard2GRec, 3, 100, 0, "fileNum: 0", "maxFileNum: 3"},
    {"recDataFileInfo 1 0", kCard2GRec, 3, 100, 0, "segmentNum: 0", "maxSegmentNum: 100"},
    {"recDataFileInfo 1 101", kCard2GRec, 3, 100, 0, "segmentNum: 101", "maxSegmentNum: 100"},
    {"recIndexAuxHead 0", kCard2GRec, 1, 1, 3, "auxNum: 0", "maxAuxNumber: 3"},
    {"recIndexAuxHead 4", kCard2GRec, 1, 1, 3, "auxNum: 4", "maxAuxNumber: 3"},
    {"recBackUpIndexAuxHead 1", kCard2GRecBackUp, 0, 0, 0, "auxNum: 1", "maxAuxNumber: 0"},
    // A header claiming more auxiliaries than the region holds is held to 100.
    {"picIndexAuxHead 101", kCard2GPic, 1, 1, 200, "auxNum: 101", "maxAuxNumber: 100"},
    {"recIndexFileAux 101 1", kCard2GRec, 1, 1, 150, "auxNum: 101", "maxAuxNumber: 100"},
    {"recIndexFileAux -1 1", kCard2GRec, 1, 1, 100, "auxNum: -1", "maxAuxNumber: 100"},
    {"recIndexFileAux 51 1", kCard2GRec, 1, 1, 50, "auxNum: 51", "maxAuxNumber: 50"},
    {"recIndexFileAux 1 0", kCard2GRec, 1, 1, 100, "ctxNum: 0", "maxCtxNum: 100"},
    {"recIndexFileAux 1 101", kCard2GRec, 1, 1, 1, "ctxNum: 101", "maxCtxNum: 100"},
};

INSTANTIATE_TEST_SUITE_P(EveryCheck, NumberCheckTest, testing::ValuesIn(kRefusals));

}  // namespace
}  // namespace test
}  // namespace tr
