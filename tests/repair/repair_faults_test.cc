// The auxiliary switch when a read fails outright (the call returns -1) at
// either of its two reads: the first leaves the device as it was, the
// second after the header has already been rewritten.
#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>
#include <string>

#include "maintain/startup.h"
#include "repair/aux_switch.h"
#include "tests/support/device_faults.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// The index files of a 2 GiB card end at byte 42949672. The record index
// file's auxiliary 7 has its head at 51328 + 10724586 - 4320800 + 6 x 43208
// = 6714362 (0x6673fa).
constexpr uint64_t kLayoutEnd = 42949672;
constexpr uint64_t kAux7 = 6714362;

struct ReadFailure {
  const char* name;
  int read;             // which of the two reads fails
  const char* stdOut;   // the offset lines printed before the failure
  size_t size;          // of the record that read was for
  ByteChanges changes;  // what the device holds afterwards
};

const ReadFailure kFailures[] = {
    {"HeaderReadErrs", 1,
     "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n", 264, {}},
    // auxNum 3 -> 7 at 51328 + 156; the head keeps its count.
    {"HeadReadErrs", 2,
     "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n"
     "IndexFileAuxiliaryHead targetOffset: \x1b[32m6714362\x1b[0m\n",
     8, {{51484, {0x03, 0x07}}}},
};

void PrintTo(const ReadFailure& k, std::ostream* os) { *os << k.name; }

class SwitchReadErrorTest : public testing::TestWithParam<ReadFailure> {};

TEST_P(SwitchReadErrorTest, ReportsMinusOneAndLeavesItsState) {
  const ReadFailure& k = GetParam();
  TempDir dir;
  CardImage image(dir.file("card.img"), kLayoutEnd);
  UseDevice device(image.path(), kCard2G);
  image.putText(51328, std::string("IDX_01\0", 7));
  image.put32(51328 + 152, 50);  // maxAuxNumber
  image.put32(51328 + 156, 3);   // auxNum
  image.put16(kAux7 + 2, 9);     // currentCount
  const std::string before = readFile(image.path());

  int result = 0;
  Captured c;
  {
    FaultyDevice faulty({SysCall::kRead, k.read, -1, EIO});
    c = capture([&] { result = _tr_maintainChangeAuxCtxNum(51328, 7, 772); });
    EXPECT_EQ(faulty.opened(), 1);
    EXPECT_EQ(faulty.closed(), 1);
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, k.stdOut);
  EXPECT_EQ(maskTimestamps(c.err),
            shortTransferBlock("INCOMPLETE READ", image.path(), k.size, -1));
  EXPECT_EQ(changedBytes(before, readFile(image.path())), k.changes);
}

INSTANTIATE_TEST_SUITE_P(
    BothReads, SwitchReadErrorTest, testing::ValuesIn(kFailures),
    [](const testing::TestParamInfo<ReadFailure>& param) {
      return std::string(param.param.name);
    });

}  // namespace
}  // namespace test
}  // namespace tr
