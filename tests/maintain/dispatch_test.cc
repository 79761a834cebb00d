// The dispatcher: the read-only console refuses the writing commands (and
// the device routines refuse a writable open on their own); a writer holds
// signals back while it writes; every record the check reports is shown by
// a command of the table.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

#include "base/device.h"
#include "maintain/commands.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Every command of the table, then a read-write open: no open asks for
// write access.
TEST(DispatchTest, ReadOnlyNoCommandOpensTheDeviceForWriting) {
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

// Ctrl-C during a writer's write takes effect only once the write is made.
TEST(DispatchTest, AWriterHoldsSignalsBackWhileItWrites) {
  TempDir dir;
  ASSERT_TRUE(sizeFile(dir.file("card.img"), 2147483648));
  useDevice(dir.file("card.img"));
  static volatile sig_atomic_t caught = 0;
  static bool caughtWhileWriting = true;
  struct sigaction action = {};
  struct sigaction saved;
  action.sa_handler = [](int) { caught = 1; };
  sigaction(SIGINT, &action, &saved);
  const SysCalls savedCalls = sys;
  sys.write = [](int fd, const void* buf, size_t count) {
    raise(SIGINT);
    caughtWhileWriting = caught != 0;
    return kSystemCalls.write(fd, buf, count);
  };
  std::string word = "recException";
  char* words[] = {&word[0]};
  capture([&] { tr_maintain(1, words); });
  sys = savedCalls;
  sigaction(SIGINT, &saved, nullptr);
  EXPECT_FALSE(caughtWhileWriting);
  EXPECT_EQ(caught, 1);
}

// Each record the check reports (here file or auxiliary 3, segment or
// context 2) is shown by a command of the table, with its numbers.
TEST(DispatchTest, EveryRecordTheCheckNamesHasTheCommandThatShowsIt) {
  std::string lines;
  for (int k = static_cast<int>(RecordKind::kDevice); k <= static_cast<int>(RecordKind::kAuxContext); ++k) {
    for (int f = k <= 1 ? -1 : 0; f < (k <= 1 ? 0 : kIndexFileCount); ++f) {
      lines += commandShowing({static_cast<RecordKind>(k), f < 0 ? nullptr : &kIndexFiles[f], 3, 2}) + "\n";
    }
  }
  EXPECT_EQ(lines, golden("record_commands.txt"));
}

}  // namespace
}  // namespace test
}  // namespace tr
