// The I-frame listing when its data file fails it: unreadable, not
// positioned, or a read error inside the table. The title is shown first
// in every case; a read error keeps the entries before it and ends the
// listing normally.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "format/iframe_index.h"
#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

SysCalls gNext;
int gReads = 0;

const char kTitle[] =
    "\n<TS>\n\x1b[35m=== fileNum:7, segmentNum:2 tr_IFrameIndex ===\x1b[0m\n";
const char kEnd[] = "\x1b[35m===========END==========\n\x1b[0m";

class IFrameFaultTest : public testing::Test {
 protected:
  IFrameFaultTest() : media_(dir_.path()) {
    // Two entries at 4096: 2024-03-05 07:08:09 at offset 123, then zeros.
    std::string table(64, '\0');
    const unsigned char first[12] = {0xD9, 0xC4, 0xE6, 0x65, 0, 0, 0, 0, 123};
    std::memcpy(&table[0], first, sizeof first);
    writeFile(dir_.file("TR00007.mp4"), std::string(4096, 'x') + table);
    std::memset(&info_, 0, sizeof info_);
    info_.inUse = 1;
    info_.iFrameInfoOffset = 4096;
    info_.iFrameInfoSize = 64;
    gNext = sys;
    gReads = 0;
  }
  Captured list(int* result) {
    return capture([&] { *result = _tr_maintainPrintIFrameIndex(&info_, 7, 2); });
  }

  TempDir dir_;
  UseMediaDir media_;
  SysLedger ledger_;
  tr_RecDataFileInfo info_;
};

TEST_F(IFrameFaultTest, UnreadableDataFile) {
  sys.fopen = [](const char*, const char*) -> FILE* {
    errno = EACCES;
    return nullptr;
  };
  int result = 0;
  const Captured c = list(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.out), kTitle);
  EXPECT_EQ(c.err, "[ERROR] Failed to open source file: " +
                       dir_.file("TR00007.mp4") + "\n");
}

TEST_F(IFrameFaultTest, FailedPositioningClosesTheFile) {
  sys.fseek = [](FILE*, uint64_t) {
    errno = EIO;
    return -1;
  };
  int result = 0;
  const Captured c = list(&result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.out), kTitle);
  EXPECT_EQ(c.err, "[ERROR] Seek failed at offset 4096\n");
  EXPECT_EQ(ledger_.openStreams(), 0);
}

TEST_F(IFrameFaultTest, ReadErrorInsideTheTableEndsTheListing) {
  sys.fread = [](void* buf, size_t size, size_t count, FILE* stream) {
    if (++gReads == 2) {
      errno = EIO;
      return size_t{0};
    }
    return gNext.fread(buf, size, count, stream);
  };
  int result = -1;
  const Captured c = list(&result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(maskTimestamps(c.out),
            std::string(kTitle) +
                "Frame [1/2]:\n"
                "utcTime             : \x1b[32m2024-03-05 07:08:09\x1b[0m\n"
                "offset              : \x1b[32m123\x1b[0m\n"
                "\x1b[36m\nReserved Fields Hex Dump:\x1b[0m"
                "\x1b[36m\n0000: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "00 \n0010: 00 00 00 00 \x1b[0m\n" +
                kEnd);
  EXPECT_EQ(c.err, "[ERROR]  fread failed: Input/output error\n");
  EXPECT_EQ(ledger_.openStreams(), 0);
}

}  // namespace
}  // namespace test
}  // namespace tr
