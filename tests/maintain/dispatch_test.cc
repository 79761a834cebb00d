// The dispatcher: the read-only console refuses the writing commands (and
// the device routines refuse a writable open on their own); a writer holds
// signals back while it writes; every record the check reports is shown by
// a command of the table.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <iterator>
#include <sstream>
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

TEST(DispatchTest, EveryRecordTheCheckNamesHasTheCommandThatShowsIt) {
  for (const RecordKind kind :
       {RecordKind::kStorageHead, RecordKind::kIndexFileHead,
        RecordKind::kDataFileHead, RecordKind::kSegmentInfo,
        RecordKind::kAuxHead, RecordKind::kAuxContext}) {
    const bool head = kind == RecordKind::kStorageHead;
    for (int f = 0; f < (head ? 1 : kIndexFileCount); ++f) {
      const RecordPlace place = {kind, head ? nullptr : &kIndexFiles[f], 3, 2};
      std::istringstream line(commandShowing(place));
      const std::vector<std::string> words{
          std::istream_iterator<std::string>(line), {}};
      ASSERT_GE(words.size(), 2u) << place.text();
      const CommandRow* row = commandNamed(words[1].c_str());
      ASSERT_NE(row, nullptr) << words[1];
      EXPECT_EQ(static_cast<size_t>(wordCount(row->args)), words.size() - 1);
      EXPECT_TRUE(words[0] == "maintain" && row->shows == kind &&
                  row->file == place.file)
          << words[1];
      const char* numbers[] = {"3", "2"};
      for (size_t i = 2; i < words.size(); ++i) EXPECT_EQ(words[i], numbers[i - 2]);
    }
  }
  EXPECT_EQ(commandShowing({RecordKind::kDevice, nullptr, 0, 0}), "");
}

}  // namespace
}  // namespace test
}  // namespace tr
