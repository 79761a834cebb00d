// Write safety: the undo journal read back after a cut or damage at any
// byte, a journal that cannot be kept stopping the write it was for, and the
// read-only console that never opens the device for writing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/device.h"
#include "base/journal.h"
#include "maintain/commands.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Three records as the console appends them, and where the last begins.
std::string threeRecords(size_t* lastStart) {
  std::string text = kJournalMagic;
  for (uint32_t n = 1; n <= 3; ++n) {
    JournalRecord record;
    record.number = n;
    record.device = "/dev/mmc0";
    record.deviceSize = kCard2G;
    record.offset = 51200 * n;
    record.time = "2024-03-05T07:14:09Z";
    record.command = "maintain recException";
    record.before = std::string(n, '\x01');
    record.after = std::string(n, '\x02');
    *lastStart = text.size();
    text += formatJournalRecord(record);
  }
  return text;
}

TEST(JournalTest, ACutLastRecordIsIgnoredWhereverTheCutFalls) {
  size_t last = 0;
  const std::string text = threeRecords(&last);
  JournalContents read;
  std::string error;
  for (size_t cut = last; cut <= text.size(); ++cut) {
    ASSERT_EQ(parseJournal(text.substr(0, cut), &read, &error), 0) << cut;
    const bool whole = cut == text.size();
    EXPECT_EQ(read.records.size(), whole ? 3u : 2u) << cut;
    EXPECT_EQ(read.tornTail, cut != last && !whole) << cut;
    EXPECT_EQ(read.wholeLength, whole ? cut : last) << cut;
  }
  EXPECT_EQ(read.records[2].before, "\x01\x01\x01");
  EXPECT_EQ(read.records[2].after, "\x02\x02\x02");
  EXPECT_EQ(read.records[2].offset, 153600u);
  // The first line itself cut short: a journal without records.
  ASSERT_EQ(parseJournal("trellis-un", &read, &error), 0);
  EXPECT_TRUE(read.records.empty() && read.tornTail);
}

// One byte changed: in the last record it is a torn record; before it, the
// journal is damaged and nothing in it is used.
TEST(JournalTest, DamageBeforeTheLastRecordRefusesTheJournal) {
  size_t last = 0;
  const std::string text = threeRecords(&last);
  const struct {
    size_t at;
    char byte;
    const char* error;  // null: read, without its last record
  } cases[] = {
      {last + 40, '9', nullptr},
      {text.size() - 2, '0', nullptr},
      {last - 30, 'f', "record 2 (from byte "},
      {last - 1, ' ', "record 2 (from byte "},
      {text.find("record 1") + 7, '2', "record 1 (from byte 15) is damaged"},
      {13, '2', "it is an undo journal of another version than 1"},
      {0, 'T', "it is not an undo journal"},
  };
  for (const auto& c : cases) {
    std::string damaged = text;
    damaged[c.at] = c.byte;
    JournalContents read;
    std::string error;
    const int result = parseJournal(damaged, &read, &error);
    if (c.error == nullptr) {
      EXPECT_EQ(result, 0) << c.at;
      EXPECT_EQ(read.records.size(), 2u) << c.at;
    } else {
      EXPECT_EQ(result, -1) << c.at;
      EXPECT_EQ(error.rfind(c.error, 0), 0u) << c.at << ": " << error;
    }
  }
}

// A full file system and a read-only one, each mounted in a mount
// namespace of the test's own: every write of the session stops before the
// device is touched, one line each naming the journal and the error.
TEST(JournalTest, AJournalThatCannotBeKeptLeavesTheDeviceAsItWas) {
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    GTEST_SKIP() << "no mount namespace of its own: " << std::strerror(errno);
  }
  TempDir dir;
  CardImage image(dir.file("card.img"), 64 << 20);
  image.putText(51200, std::string(400, 'x'));
  const std::string before = readFile(image.path());
  const struct {
    unsigned long flags;
    const char* error;
  } cases[] = {
      {0, "cannot append the record: No space left on device (28)"},
      {MS_RDONLY, "cannot open it: Read-only file system (30)"},
  };
  for (const auto& c : cases) {
    const std::string mnt = dir.file(c.flags == 0 ? "full" : "ro");
    ASSERT_EQ(::mkdir(mnt.c_str(), 0755), 0);
    ASSERT_EQ(::mount("tmpfs", mnt.c_str(), "tmpfs", c.flags, "size=16k"), 0);
    writeFile(mnt + "/filler", std::string(1 << 20, 'f'));
    const RunResult r =
        runConsole("maintain recException\nmaintain memsetTrellisHead\n",
                   {{"TRELLIS_DEVICE", image.path()},
                    {"TRELLIS_UNDO", mnt + "/j.undo"}});
    const std::string line = "undo journal " + mnt + "/j.undo: " + c.error +
                             "; nothing written to the device\n";
    EXPECT_EQ(r.err, line + line);
    EXPECT_TRUE(readFile(image.path()) == before) << c.error;
  }
}

// Every command of the table with the console read-only: the writing ones
// are refused by the dispatcher, and the device routines refuse on their
// own; no open asks for write access.
TEST(ReadOnlyTest, NoCommandOpensTheDeviceForWriting) {
  TempDir dir;
  CardImage image(dir.file("card.img"), kCard2G);
  UseDevice use(image.path());
  SysOverride seam;
  static int writableOpens;
  writableOpens = 0;
  sys.open = [](const char* path, int flags) {
    writableOpens += (flags & O_ACCMODE) != O_RDONLY;
    return kSystemCalls.open(path, flags);
  };
  setReadOnly(true);
  std::string refusals;
  std::string expected;
  for (const CommandRow& row : kCommands) {
    char word[64];
    char one[] = "1";
    std::snprintf(word, sizeof word, "%s", row.word);
    char* words[] = {word, one, one, one};
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
  EXPECT_EQ(writableOpens, 0);
  EXPECT_EQ(refusals, expected);
  EXPECT_NE(direct.err.find("Read-only file system (30)"), std::string::npos);
}

}  // namespace
}  // namespace test
}  // namespace tr
