// The read-only console: the dispatcher refuses the writing commands, and
// the device routines refuse to open the device for writing on their own.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "base/device.h"
#include "maintain/commands.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Every command of the table, then a read-write open: no open asks for
// write access.
TEST(ReadOnlyTest, NoCommandOpensTheDeviceForWriting) {
  TempDir dir;
  ASSERT_TRUE(sizeFile(dir.file("card.img"), 2147483648));
  useDevice(dir.file("card.img"));
  const SysCalls saved = sys;
  static int writableOpens = 0;
  sys.open = [](const char* path, int flags) {
    writableOpens += (flags & O_ACCMODE) != O_RDONLY;
    return kSystemCalls.open(path, flags);
  };
  setReadOnly(true);
  std::string refusals;
  std::string expected;
  for (const CommandRow& row : kCommands) {
    std::string word = row.word;
    char one[] = "1";
    char* words[] = {&word[0], one, one, one};
    const Captured c = capture([&] { tr_maintain(wordCount(row.args), words); });
    if (row.reader != nullptr) continue;
    refusals += c.err;
    expected += "maintain " + std::string(row.word) +
                ": not written: the console is read-only (-r or "
                "TRELLIS_READ_ONLY); start it without them to write\n";
  }
  const Captured direct =
      capture([] { _tr_maintainOpenDevice(DeviceMode::kReadWrite); });
  setReadOnly(false);
  sys = saved;
  EXPECT_EQ(writableOpens, 0);
  EXPECT_EQ(refusals, expected);
  EXPECT_NE(direct.err.find("Read-only file system (30)"), std::string::npos);
}

}  // namespace
}  // namespace test
}  // namespace tr
