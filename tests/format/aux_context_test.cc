#include "format/aux_context.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

#include "tests/support/golden.h"
#include "tests/support/printout.h"

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

class AuxContextTest : public CardTest {
 protected:
  AuxContextTest() { image_.put32(kCard2GRec + 152, 100); }  // maxAuxNumber
};

TEST_F(AuxContextTest, LastContextEndsAtTheEndOfTheIndexFile) {
  putRecord(image_, kCtx100of100,
            {{0, le(1709622489, 8)},                   // 2024-03-05 07:08:09
             {8, le(0x100000000ULL + 1709626089, 8)},  // high half ignored
             {16, le(19800, 4)}, {20, le(1, 4)}, {24, le(1, 4)}, {29, "\xE1\xE2\xE3"},
             {32, le(0x00010002, 4)}, {36, le(0x07D00005, 4)},  // file 2000
             {40, le(0x07D10006, 4)},                           // file 2001
             {44, le(0xFFFF0000, 4)}, {48, le(0xFFFFFFFF, 4)},
             {428, le(0x00070008, 4)}});  // the last four bytes of the index file
  image_.put32(kCard2GRecBackUp, 0x01020304);  // first bytes after it
  EXPECT_EQ(print("recIndexFileAux 100 100"), golden("aux_context_last.txt"));
}

TEST_F(AuxContextTest, BlankContextListsEveryEmptySlot) {
  EXPECT_EQ(print("recIndexFileAux 1 1"), golden("aux_context_blank.txt"));
}

class AuxContextFieldTest : public AuxContextTest, public testing::WithParamInterface<FieldCase> {};

TEST_P(AuxContextFieldTest, ShowsTheStoredValue) {
  image_.putText(kCtx1of1 + GetParam().at, GetParam().bytes);
  EXPECT_TRUE(has(print("recIndexFileAux 1 1"), GetParam().line));
}

const FieldCase kFields[] = {
    {16, le(-12600, 4), fieldLine("timeZone", "-03:30")},
    {16, le(-1800, 4), fieldLine("timeZone", "-00:30")},
    {16, le(INT_MIN, 4), fieldLine("timeZone", "-596523")},
    {20, le(2, 4), fieldLine("DST", "Unknown (2)")},
    {24, le(7, 4), fieldLine("isUsed", "Unknown (7)")},
    {28, le(1, 1), fieldLine("isFull", "Yes")},
    {28, le(255, 1), fieldLine("isFull", "Unknown (255)")},
    {32, le(0xFFFF0000, 4), fieldLine("Valid Position Count", "1")},
};

INSTANTIATE_TEST_SUITE_P(Fields, AuxContextFieldTest, testing::ValuesIn(kFields));

TEST(AuxContextCallTest, PositionListingStaysInsideTheArray) {
  uint32_t positions[100] = {};
  positions[0] = 0x00010001;
  positions[98] = 0x00620001;
  positions[99] = 0x00630001;
  const auto chunk = [&](int from, int count, const char* title) {
    return capture([&] { _tr_maintainPrintPositionChunk(positions, from, count, title); }).out;
  };
  const std::string p98 = "  [098] \x1b[0mFile#98    Seg#1    \x1b[0m\n";
  const std::string p99 = "  [099] \x1b[0mFile#99    Seg#1    \x1b[0m\n";
  EXPECT_EQ(chunk(98, 10, "Tail"), "\x1b[34m  Tail:\n\x1b[0m" + p98 + p99);
  EXPECT_EQ(chunk(-3, 4, "Head"),
            "\x1b[34m  Head:\n\x1b[0m  [000] \x1b[0mFile#1     Seg#1    \x1b[0m\n");
  EXPECT_EQ(chunk(99, INT_MAX, "End"), "\x1b[34m  End:\n\x1b[0m" + p99);

  EXPECT_EQ(_tr_maintainCountValidPositions(positions, 100), 3);
  EXPECT_EQ(_tr_maintainCountValidPositions(positions, 99), 2);
  EXPECT_EQ(_tr_maintainCountValidPositions(positions, 0), 0);
  EXPECT_EQ(_tr_maintainCountValidPositions(positions, -1), 0);
}

TEST(AuxContextCallTest, NullPointersAreRefused) {
  const Captured c = withoutDevice([] {
    EXPECT_EQ(_tr_maintainGetIndexFileAux(1, 1, 1, 0, nullptr), -1);
    _tr_maintainPrintIndexAuxContext(nullptr, 1, 1);
  });
  EXPECT_EQ(c.out, "[ERROR] _tr_maintainPrintIndexAuxContext ctx is null\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
