// The writing commands failing at each step of their device accesses, on the
// record index file of a 2 GiB card (51328 = 0xc880; auxiliary 7's head at
// 0x6673fa) whose storage head and header hold non-zero bytes everywhere.
// tests/golden/repair_faults.txt holds, for each row, the block the step
// prints and the bytes of the card the writes that reached the device
// changed, the card compared whole; and for each command the change it
// completes once the fault is gone.
#include <gtest/gtest.h>

#include "repair/aux_switch.h"
#include "repair/markers.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// By the name of the completed change in repair_faults.txt.
const std::pair<const char*, int (*)()> kWriters[] = {
    {"Exception", [] { return _tr_maintainIndexFileException(51328); }},
    {"Normal", [] { return _tr_maintainIndexFileNormal(51328); }},
    {"Reset", [] { return _tr_maintainMemsetTrellisHead(); }},
    // auxNum 7 into the header, currentCount 772 = 0x0304 into the head.
    {"Switch", [] { return _tr_maintainChangeAuxCtxNum(51328, 7, 772); }},
};

struct WriteFault {
  const char* name;  // of its block in repair_faults.txt
  int writer;
  Fault fault;
  int offsetLines;  // how many offset lines the command printed
};
void PrintTo(const WriteFault& row, std::ostream* os) { *os << row.name; }

// A short header write of 157 bytes reaches byte 156 only, the low byte of
// the new auxNum; a short head write of 3 bytes the low byte of the count.
const WriteFault kFaults[] = {
    {"Markers/ExceptionWriteComesShort", 0, {Call::kWrite, 1, 3, 0}, 1},
    {"Markers/NormalCloseFails", 1, {Call::kClose, 1, -1, EIO}, 1},
    {"Reset/WriteSeekFails", 2, {Call::kSeek, 1, -1, EIO}, 0},
    {"Reset/WriteComesShort", 2, {Call::kWrite, 1, 100, 0}, 0},
    {"Reset/CloseFails", 2, {Call::kClose, 1, -1, EBADF}, 0},
    {"Switch/OpenDenied", 3, {Call::kOpen, 1, -1, EACCES}, 0},
    {"Switch/HeaderReadSeekFails", 3, {Call::kSeek, 1, -1, EIO}, 1},
    {"Switch/HeaderReadComesShort", 3, {Call::kRead, 1, 200, 0}, 1},
    {"Switch/HeaderWriteSeekFails", 3, {Call::kSeek, 2, -1, EIO}, 1},
    {"Switch/HeaderWriteComesShort", 3, {Call::kWrite, 1, 157, 0}, 1},
    {"Switch/HeadReadSeekFails", 3, {Call::kSeek, 3, -1, EIO}, 2},
    {"Switch/HeadReadMovesNothing", 3, {Call::kRead, 2, 0, 0}, 2},
    {"Switch/HeadWriteSeekFails", 3, {Call::kSeek, 4, -1, EINVAL}, 2},
    {"Switch/HeadWriteComesShort", 3, {Call::kWrite, 2, 3, 0}, 2},
    {"Switch/HeadWriteErrs", 3, {Call::kWrite, 2, -1, EIO}, 2},
    {"Switch/CloseFails", 3, {Call::kClose, 1, -1, EIO}, 2},
};

// The block under "== <name>": what goes to standard error, and after
// "-- changes" the changed bytes.
std::pair<std::string, std::string> block(const std::string& name) {
  const std::string blocks = golden("repair_faults.txt");
  const size_t from = blocks.find("== " + name + "\n") + name.size() + 4;
  const size_t split = blocks.find("-- changes\n", from);
  const size_t next = blocks.find("\n== ", split);
  const size_t end = next == std::string::npos ? blocks.size() : next + 1;
  return {blocks.substr(from, split - from), blocks.substr(split + 11, end - split - 11)};
}

class RepairFaultTest : public testing::TestWithParam<WriteFault> {};

TEST_P(RepairFaultTest, ReportsTheStepAndLeavesItsState) {
  const WriteFault& row = GetParam();
  TempDir dir;
  const std::string card = dir.file("card.img");
  std::string bytes(264, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(0x80 | ((i * 5) & 0x7F));
  // maxAuxNumber 50, auxiliary 7 in use with currentCount 0x0102.
  ASSERT_TRUE(sizeFile(card, 2147483648ULL) && poke(card, 51200, bytes.substr(0, 128)) &&
              poke(card, 51328, bytes.replace(152, 4, le(50, 4))) &&
              poke(card, 6714362, std::string("\x01\x00\x02\x01\xE1\xE2\xE3\xE4", 8)));
  useDevice(card);
  const Extents before = extents(card);
  int result = 0;
  Captured c;
  int fd = -1;
  {
    SysFaults faults(row.fault);
    c = capture([&] { result = kWriters[row.writer].second(); });
    fd = faults.lastFd();
    EXPECT_EQ(faults.unreturned(), 0);
  }
  EXPECT_EQ(result, -1);
  const std::string lines[] = {"", "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n",
                               "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n"
                               "IndexFileAuxiliaryHead targetOffset: \x1b[32m6714362\x1b[0m\n"};
  EXPECT_EQ(c.out, lines[row.offsetLines]);
  const auto [err, changed] = block(row.name);
  EXPECT_EQ(c.err, replaced(replaced(err, "@DEV", card), "@FD", std::to_string(fd)));
  EXPECT_EQ(changes(before, extents(card)), changed);

  capture([&] { result = kWriters[row.writer].second(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(changes(before, extents(card)), block(std::string("Done/") + kWriters[row.writer].first).second);
}

INSTANTIATE_TEST_SUITE_P(Steps, RepairFaultTest, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<WriteFault>& p) {
                           return replaced(p.param.name, "/", "");
                         });

}  // namespace
}  // namespace test
}  // namespace tr
