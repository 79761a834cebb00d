// Where each record command reads, for every selector: the offsets are
// worked out by hand from the layout (a 264-byte header, then per data file
// a 32-byte head and maxSegmentNum segment infos of 640 or 1680 bytes; the
// last 100 x 43208 bytes of an index file are the auxiliaries, each an
// 8-byte head and 100 contexts of 432 bytes).
#include <gtest/gtest.h>

#include <string>

#include "tests/support/index_image.h"
#include "tests/support/printout.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// 400 GiB: reserve 8589934592, idxFileSize (8589934592 - 51328) / 4 =
// 2147470816; the picture files start at 51328 + 2 and 3 x 2147470816.
constexpr uint64_t kCard400G = 429496729600ULL;
constexpr uint64_t kPic400G = 4294992960ULL;
constexpr uint64_t kPicBackUp400G = 6442463776ULL;

// Only the named index file gets a header: a command that took its numbers
// from another file would find no file admitted and refuse.
struct Placement {
  const char* command;
  uint64_t card;
  uint64_t base;
  uint32_t maxFile, maxSegment, maxAux;
  uint64_t offset;
  const char* failure = nullptr;  // the read's report, "" after the title
  const char* detail = "";
};
void PrintTo(const Placement& p, std::ostream* os) { *os << p.command; }

// A field of each record that shows the value written into it.
FieldCase markerOf(const std::string& command) {
  if (has(command, "IndexFileHead")) return {156, le(4242, 4), fieldLine("Aux Number", "4242")};
  if (has(command, "DataFileHead")) return {12, le(4242, 4), fieldLine("Write Data Index", "4242")};
  if (has(command, "DataFileInfo"))
    return {command[0] == 'r' ? 552u : 12u, le(4242, 4), fieldLine("dataIndex", "4242")};
  if (has(command, "AuxHead")) return {2, le(4242, 2), fieldLine("Current Count", "4242")};
  return {32, le(4242u << 16, 4), "File#4242 "};  // first position
}

class IndexLayoutTest : public testing::TestWithParam<Placement> {};

TEST_P(IndexLayoutTest, CommandReadsItsRecordWhereItLies) {
  const Placement& p = GetParam();
  TempDir dir;
  CardImage card(dir.file("card.img"), p.card);
  putIndexDimensions(card, p.base, p.maxFile, p.maxSegment, p.maxAux);
  const FieldCase marker = markerOf(p.command);
  if (p.offset < p.card) card.putText(p.offset + marker.at, marker.bytes);
  const RunResult r = runOn(card, p.command);
  const std::string label = fieldLine("targetOffset", std::to_string(p.offset));
  if (p.failure == nullptr) {
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.rfind(label, 0), 0u) << r.out;
    EXPECT_TRUE(has(r.out, marker.line)) << r.out;
  } else {
    EXPECT_EQ(r.out, label);
    EXPECT_EQ(r.err, std::string("<TS> \x1b[31m") + p.failure + "\x1b[0m\n  Device: " +
                         card.path() + "\n" + p.detail + "\n");
  }
}

const Placement kPlacements[] = {
    {"recIndexFileHead", kCard2G, kCard2GRec, 1, 1, 1, 51328},
    {"recBackUpIndexFileHead", kCard2G, kCard2GRecBackUp, 1, 1, 1, 10775914},
    {"picIndexFileHead", kCard2G, kCard2GPic, 1, 1, 1, 21500500},
    {"picBackUpIndexFileHead", kCard2G, kCard2GPicBackUp, 1, 1, 1, 32225086},
    // 51328 + 264 + 64032; the others + 264 + 2 x 6432, + 100832, + 3 x 1712
    {"recDataFileHead 2", kCard2G, kCard2GRec, 2, 100, 0, 115624},
    {"recBackUpDataFileHead 3", kCard2G, kCard2GRecBackUp, 3, 10, 0, 10789042},
    {"picDataFileHead 2", kCard2G, kCard2GPic, 2, 60, 0, 21601596},
    {"picBackUpDataFileHead 4", kCard2G, kCard2GPicBackUp, 4, 1, 0, 32230486},
    {"picDataFileHead 2", kCard400G, kPic400G, 2, 60, 0, 4295094056ULL},
    // 51328 + 264 + 64032 + 32 + 2 x 640; both maxima: + 2 x 64032 + 99 x 640
    {"recDataFileInfo 2 3", kCard2G, kCard2GRec, 3, 100, 0, 116936},
    {"recDataFileInfo 3 100", kCard2G, kCard2GRec, 3, 100, 0, 243048},
    {"recBackUpDataFileInfo 1 1", kCard2G, kCard2GRecBackUp, 1, 1, 0, 10776210},
    // 21500500 + 264 + 100832 + 32 + 2 x 1680
    {"picDataFileInfo 2 3", kCard2G, kCard2GPic, 4, 60, 0, 21604988},
    {"picBackUpDataFileInfo 1 1", kCard2G, kCard2GPicBackUp, 1, 1, 0, 32225382},
    // Auxiliary 1 at base + 10724586 - 4320800; 100 ends the index file.
    {"recIndexAuxHead 3", kCard2G, kCard2GRec, 1, 1, 3, 6541530},
    {"recBackUpIndexAuxHead 1", kCard2G, kCard2GRecBackUp, 1, 1, 100, 17179700},
    {"picIndexAuxHead 100", kCard2G, kCard2GPic, 1, 1, 200, 32181878},
    {"picIndexAuxHead 1", kCard400G, kPic400G, 1, 1, 100, 6438142976ULL},
    {"picBackUpIndexAuxHead 100", kCard400G, kPicBackUp400G, 1, 1, 100, 8589891384ULL},
    // Context (2, 3) at base + 6403786 + 43208 + 8 + 2 x 432; a header
    // above 100 still reaches auxiliary 100: + 99 x 43208 + 8.
    {"recIndexFileAux 2 3", kCard2G, kCard2GRec, 1, 1, 2, 6499194},
    {"recBackUpIndexFileAux 2 3", kCard2G, kCard2GRecBackUp, 1, 1, 2, 17223780},
    {"picIndexFileAux 2 3", kCard2G, kCard2GPic, 1, 1, 2, 27948366},
    {"picBackUpIndexFileAux 2 3", kCard2G, kCard2GPicBackUp, 1, 1, 2, 38672952},
    {"recIndexFileAux 100 1", kCard2G, kCard2GRec, 1, 1, 0xFFFFFFFF, 10732714},
    // -1 is file 4294967295 when the header admits it: 51328 + 264 +
    // 4294967294 x 672, far past the card.
    {"recDataFileHead -1", kCard2G, kCard2GRec, 0xFFFFFFFF, 1, 0,
      2886218073160ULL, "READ FAILED",
      "  Requested: 32 bytes\n  Error: Success (0)\n"},
    // 21500500 + 264 + 21084 x 100832 + 32 + 24 x 1680, 644 bytes
    // before the card's end.
    {"picDataFileInfo 21085 25", kCard2G, kCard2GPic, 30000, 60, 0,
      2147483004, "INCOMPLETE READ",
      "  Expected: 1680 bytes\n  Actual: 644 bytes\n"},
    // 100 MiB: idxFileSize 511456 is smaller than the auxiliary region,
    // which would start at 51328 + 511456 - 4320800, below zero.
    {"recIndexAuxHead 1", 104857600, 51328, 1, 1, 100,
      18446744073705793600ULL, "LSEEK FAILED",
      "  Offset: 0xffffffffffc6a840\n  Error: Invalid argument (22)\n"},
};

INSTANTIATE_TEST_SUITE_P(EverySelector, IndexLayoutTest, testing::ValuesIn(kPlacements));

}  // namespace
}  // namespace test
}  // namespace tr
