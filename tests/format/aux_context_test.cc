#include "format/aux_context.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <ostream>
#include <cstdio>
#include <string>

#include "tests/support/printout.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// On the 2 GiB card (idxFileSize 10724586) the auxiliary region starts
// 10724586 - 4320800 = 6403786 bytes into each index file. Context 1 of
// auxiliary 1 of the record index file lies at 51328 + 6403786 + 8; context
// 100 of auxiliary 100 at 51328 + 10724586 - 432, ending where the record
// backup index file begins.
constexpr uint64_t kCtx1of1 = 6455122;
constexpr uint64_t kCtx100of100 = 10775482;

class AuxContextTest : public testing::Test {
 protected:
  AuxContextTest() : image_(dir_.file("card.img"), kCard2G) {
    image_.put32(kCard2GRec + 152, 100);  // maxAuxNumber
  }

  RunResult run(const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", image_.path()}});
  }
  std::string print(const std::string& args) {
    const RunResult r = run("maintain recIndexFileAux " + args + "\n");
    EXPECT_EQ(r.err, "");
    return maskTimestamps(commandOutput(r.out));
  }
  void putPosition(uint64_t context, int index, uint32_t value) {
    image_.put32(context + 32 + 4 * index, value);
  }

  TempDir dir_;
  CardImage image_;
};

std::string emptyPositions(int from, int to) {
  std::string text;
  for (int i = from; i <= to; ++i) {
    char line[64];
    std::snprintf(line, sizeof line,
                  "  [%03d] \x1b[0mFile#0     Seg#0    \x1b[0m\n", i);
    text += line;
  }
  return text;
}

TEST_F(AuxContextTest, LastContextEndsAtTheEndOfTheIndexFile) {
  const uint64_t c = kCtx100of100;
  image_.put64(c, 1709622489);                   // 2024-03-05 07:08:09
  image_.put64(c + 8, 0x100000000ULL + 1709626089);  // high half ignored
  image_.put32(c + 16, 19800);
  image_.put32(c + 20, 1);
  image_.put32(c + 24, 1);
  image_.put8(c + 28, 0);
  image_.putText(c + 29, "\xE1\xE2\xE3");
  putPosition(c, 0, 0x00010002);
  putPosition(c, 1, 0x07D00005);  // file 2000
  putPosition(c, 2, 0x07D10006);  // file 2001
  putPosition(c, 3, 0xFFFF0000);
  putPosition(c, 4, 0xFFFFFFFF);
  putPosition(c, 99, 0x00070008);  // the last four bytes of the index file
  image_.put32(kCard2GRecBackUp, 0x01020304);  // first bytes after it

  const std::string expected =
      "targetOffset        : \x1b[32m10775482\x1b[0m\n"
      "\n<TS>\n"
      "\x1b[35m=== auxNum:100, ctxNum:100 IndexFileAuxiliaryContext ===\x1b[0m\n"
      "utc startTime       : \x1b[32m2024-03-05 07:08:09\x1b[0m\n"
      "utc endTime         : \x1b[32m2024-03-05 08:08:09\x1b[0m\n"
      "timeZone            : \x1b[32m+05:30\x1b[0m\n"
      "DST                 : \x1b[32mEnabled\x1b[0m\n"
      "isUsed              : \x1b[32mYes\x1b[0m\n"
      "isFull              : \x1b[31mNo\x1b[0m\n"
      "Valid Position Count: \x1b[32m6\x1b[0m\n"
      "\x1b[34m  Position Array:\n\x1b[0m"
      "  [000] \x1b[0mFile#1     Seg#2    \x1b[0m\n"
      "  [001] \x1b[0mFile#2000  Seg#5    \x1b[0m\n"
      "  [002] \x1b[33mFile#2001  Seg#6    \x1b[0m\n"
      "  [003] \x1b[31mFile#65535 Seg#0    \x1b[0m\n"
      "  [004] \x1b[31mFile#65535 Seg#65535\x1b[0m\n" +
      emptyPositions(5, 98) +
      "  [099] \x1b[0mFile#7     Seg#8    \x1b[0m\n"
      "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
      "\x1b[36m\n0000: E1 E2 E3 \x1b[0m\n"
      "\x1b[35m===========END==========\n\x1b[0m";
  EXPECT_EQ(print("100 100"), expected);
}

TEST_F(AuxContextTest, BlankContextListsEveryEmptySlot) {
  const std::string expected =
      "targetOffset        : \x1b[32m6455122\x1b[0m\n"
      "\n<TS>\n"
      "\x1b[35m=== auxNum:1, ctxNum:1 IndexFileAuxiliaryContext ===\x1b[0m\n"
      "utc startTime       : \x1b[32m1970-01-01 00:00:00\x1b[0m\n"
      "utc endTime         : \x1b[32m1970-01-01 00:00:00\x1b[0m\n"
      "timeZone            : \x1b[32m+00:00\x1b[0m\n"
      "DST                 : \x1b[32mDisabled\x1b[0m\n"
      "isUsed              : \x1b[31mNo\x1b[0m\n"
      "isFull              : \x1b[31mNo\x1b[0m\n"
      "Valid Position Count: \x1b[32m0\x1b[0m\n"
      "\x1b[34m  Position Array:\n\x1b[0m" +
      emptyPositions(0, 99) +
      "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
      "\x1b[36m\n0000: 00 00 00 \x1b[0m\n"
      "\x1b[35m===========END==========\n\x1b[0m";
  EXPECT_EQ(print("1 1"), expected);
}

struct FieldCase {
  uint64_t offset;  // in the context
  uint32_t value;   // written as 4 bytes (isFull: its byte and the reserved)
  std::string line;
};
void PrintTo(const FieldCase& c, std::ostream* os) {
  *os << "byte " << c.offset << " = " << c.value;
}

class AuxFieldTest : public AuxContextTest,
                     public testing::WithParamInterface<FieldCase> {};

TEST_P(AuxFieldTest, ShowsTheStoredValue) {
  image_.put32(kCtx1of1 + GetParam().offset, GetParam().value);
  const std::string out = print("1 1");
  EXPECT_NE(out.find(GetParam().line), std::string::npos) << out;
}

INSTANTIATE_TEST_SUITE_P(
    Fields, AuxFieldTest,
    testing::Values(
        FieldCase{16, 28800, fieldLine("timeZone", "+08:00")},
        FieldCase{16, static_cast<uint32_t>(-18000), fieldLine("timeZone", "-05:00")},
        FieldCase{16, static_cast<uint32_t>(-12600), fieldLine("timeZone", "-03:30")},
        FieldCase{16, static_cast<uint32_t>(-1800), fieldLine("timeZone", "-00:30")},
        FieldCase{16, static_cast<uint32_t>(INT_MIN), fieldLine("timeZone", "-596523")},
        FieldCase{20, 2, fieldLine("DST", "Unknown (2)")},
        FieldCase{24, 7, fieldLine("isUsed", "Unknown (7)")},
        FieldCase{28, 1, fieldLine("isFull", "Yes")},
        FieldCase{28, 255, fieldLine("isFull", "Unknown (255)")},
        FieldCase{32, 0xFFFF0000, fieldLine("Valid Position Count", "1")}));

struct NumberCase {
  uint32_t maxAuxNumber;
  const char* args;
  std::string err;
};
void PrintTo(const NumberCase& c, std::ostream* os) {
  *os << "max " << c.maxAuxNumber << ", " << c.args;
}

class AuxNumberTest : public AuxContextTest,
                      public testing::WithParamInterface<NumberCase> {};

// The auxiliary number is checked first, against the header but never
// beyond the 100 auxiliaries there are; the context number against 100.
TEST_P(AuxNumberTest, NumbersOutsideTheRegionAreRefused) {
  image_.put32(kCard2GRec + 152, GetParam().maxAuxNumber);
  const RunResult r =
      run(std::string("maintain recIndexFileAux ") + GetParam().args + "\n");
  EXPECT_EQ(maskTimestamps(r.err), GetParam().err);
  EXPECT_EQ(commandOutput(r.out), "");
}

const char kAuxInvalid[] = "<TS> \x1b[31mauxNum INVALID\x1b[0m\n";
const char kCtxInvalid[] = "<TS> \x1b[31mctxNum INVALID\x1b[0m\n";

INSTANTIATE_TEST_SUITE_P(
    Numbers, AuxNumberTest,
    testing::Values(
        NumberCase{100, "0 0", std::string(kAuxInvalid) + " auxNum: 0\n maxAuxNumber: 100\n"},
        NumberCase{100, "-1 1", std::string(kAuxInvalid) + " auxNum: -1\n maxAuxNumber: 100\n"},
        NumberCase{50, "51 1", std::string(kAuxInvalid) + " auxNum: 51\n maxAuxNumber: 50\n"},
        NumberCase{0, "1 1", std::string(kAuxInvalid) + " auxNum: 1\n maxAuxNumber: 0\n"},
        NumberCase{150, "101 1", std::string(kAuxInvalid) + " auxNum: 101\n maxAuxNumber: 100\n"},
        NumberCase{100, "1 0", std::string(kCtxInvalid) + " ctxNum: 0\n maxCtxNum: 100\n"},
        NumberCase{1, "1 101", std::string(kCtxInvalid) + " ctxNum: 101\n maxCtxNum: 100\n"}));

TEST_F(AuxContextTest, HeaderAboveAHundredStillReachesAuxiliaryHundred) {
  image_.put32(kCard2GRec + 152, 0xFFFFFFFF);
  const RunResult r = run("maintain recIndexFileAux 100 1\n");
  // 51328 + 6403786 + 99 x 43208 + 8
  EXPECT_EQ(commandOutput(r.out).rfind(
                "targetOffset        : \x1b[32m10732714\x1b[0m\n", 0),
            0u);
}

// Context (2, 3) lies 6403786 + 43208 + 8 + 2 x 432 = 6447866 bytes into
// whichever index file the command names.
TEST_F(AuxContextTest, EachSelectorReadsItsOwnIndexFile) {
  const std::pair<const char*, uint64_t> files[] = {
      {"recIndexFileAux", kCard2GRec + 6447866},
      {"recBackUpIndexFileAux", 17223780},
      {"picIndexFileAux", 27948366},
      {"picBackUpIndexFileAux", 38672952}};
  const uint64_t bases[] = {kCard2GRec, kCard2GRecBackUp, kCard2GPic,
                            kCard2GPicBackUp};
  for (int i = 0; i < 4; ++i) {
    image_.put32(bases[i] + 152, 2);
    putPosition(files[i].second, 0, (10u + i) << 16);
  }
  for (int i = 0; i < 4; ++i) {
    const std::string out = commandOutput(
        run(std::string("maintain ") + files[i].first + " 2 3\n").out);
    EXPECT_EQ(out.rfind("targetOffset        : \x1b[32m" +
                            std::to_string(files[i].second) + "\x1b[0m\n",
                        0),
              0u)
        << files[i].first;
    EXPECT_NE(out.find("File#" + std::to_string(10 + i) + " "),
              std::string::npos)
        << files[i].first;
  }
}

TEST(AuxContextCallTest, PositionListingStaysInsideTheArray) {
  uint32_t positions[100] = {};
  positions[0] = 0x00010001;
  positions[98] = 0x00620001;
  positions[99] = 0x00630001;
  Captured c = capture(
      [&] { _tr_maintainPrintPositionChunk(positions, 98, 10, "Tail"); });
  EXPECT_EQ(c.out,
            "\x1b[34m  Tail:\n\x1b[0m"
            "  [098] \x1b[0mFile#98    Seg#1    \x1b[0m\n"
            "  [099] \x1b[0mFile#99    Seg#1    \x1b[0m\n");
  c = capture([&] { _tr_maintainPrintPositionChunk(positions, -3, 4, "Head"); });
  EXPECT_EQ(c.out,
            "\x1b[34m  Head:\n\x1b[0m"
            "  [000] \x1b[0mFile#1     Seg#1    \x1b[0m\n");
  c = capture(
      [&] { _tr_maintainPrintPositionChunk(positions, 99, INT_MAX, "End"); });
  EXPECT_EQ(c.out,
            "\x1b[34m  End:\n\x1b[0m"
            "  [099] \x1b[0mFile#99    Seg#1    \x1b[0m\n");

  EXPECT_EQ(_tr_maintainCountValidPositions(positions, 100), 3);
  EXPECT_EQ(_tr_maintainCountValidPositions(positions, 99), 2);
  EXPECT_EQ(_tr_maintainCountValidPositions(positions, 0), 0);
  EXPECT_EQ(_tr_maintainCountValidPositions(positions, -1), 0);
}

TEST(AuxContextCallTest, NullPointersAreRefused) {
  const Captured c =
      capture([] { _tr_maintainPrintIndexAuxContext(nullptr, 1, 1); });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintIndexAuxContext ctx is null\n");
  EXPECT_EQ(_tr_maintainGetIndexFileAux(1, 1, 1, 0, nullptr), -1);
}

}  // namespace
}  // namespace test
}  // namespace tr
