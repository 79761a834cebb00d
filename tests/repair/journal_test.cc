// The undo journal: read back after a cut or damage at any byte, stopping
// the write it was for when it cannot be kept, and a whole session undone
// from it.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "base/journal.h"
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
    record.deviceSize = 2147483648;
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
  const std::string image = dir.file("card.img");
  ASSERT_TRUE(sizeFile(image, 64 << 20) && poke(image, 51200, std::string(400, 'x')));
  const std::string before = readFile(image);
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
                   {{"TRELLIS_DEVICE", image},
                    {"TRELLIS_UNDO", mnt + "/j.undo"}});
    const std::string line = "undo journal " + mnt + "/j.undo: " + c.error +
                             "; nothing written to the device\n";
    EXPECT_EQ(r.err, line + line);
    EXPECT_TRUE(readFile(image) == before) << c.error;
  }
}

// A session of all thirteen writing commands over two runs, journalled,
// then undone, on a card image and on a loop device. The 1 GiB card has its
// index files at 51328, 5407205, 10763082 and 16118959, each of 5355877
// bytes: the record index file's auxiliary 2 head lies at
// 51328 + 5355877 - 4320800 + 43208 = 1129613.
class UndoSessionTest : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    for (const std::string& card : {image_, dir_.file("orig")}) {
      ASSERT_TRUE(sizeFile(card, 1 << 30) &&
                  poke(card, 51200, std::string("TR_V001\0", 8) + le(51328, 8)));
      for (uint64_t base : {51328, 5407205, 10763082, 16118959}) {
        ASSERT_TRUE(poke(card, base, std::string("IDX_01\0", 7)) &&
                    poke(card, base + 144, le(16, 4) + le(32, 4) + le(100, 4)));
      }
    }
    if (!GetParam()) return;
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    const RunResult r =
        runProgram({"losetup", "--find", "--show", image_}, "", {});
    if (r.status != 0) GTEST_SKIP() << "no loop device: " << r.err;
    device_ = r.out.substr(0, r.out.find('\n'));
  }
  void TearDown() override {
    if (device_ != image_) {
      runProgram({"losetup", "--detach", device_}, "", {});
    }
  }

  RunResult run(std::vector<std::string> args) {
    args.insert(args.begin(), {TRELLIS_MAINTAIN_BIN, "-d", device_});
    return runProgram(args, "", {});
  }
  // Where the device differs from the card as it was made, read through
  // the device itself (a loop device's writes may not have reached its
  // image yet). Past the index files the card was made all zeros.
  std::vector<uint64_t> changes() {
    constexpr size_t kMade = 32 << 20, kChunk = 4 << 20;
    const std::string made = peek(dir_.file("orig"), 0, kMade);
    const std::string zeros(kChunk, '\0');
    std::vector<uint64_t> offsets;
    for (uint64_t at = 0; at < (1 << 30); at += kChunk) {
      const std::string is = peek(device_, at, kChunk);
      const char* was = at < kMade ? &made[at] : zeros.data();
      if (is.size() == kChunk && std::memcmp(is.data(), was, kChunk) == 0) continue;
      for (size_t i = 0; i < kChunk; ++i) {
        if (i >= is.size() || is[i] != was[i]) offsets.push_back(at + i);
      }
    }
    return offsets;
  }
  TempDir dir_;
  const std::string image_ = dir_.file("card.img");
  std::string device_ = image_;
};

std::string lastLine(const std::string& text) {
  return text.substr(text.rfind('\n', text.size() - 2) + 1);
}

TEST_P(UndoSessionTest, EveryWriteComesBackFromTheJournal) {
  const std::string journal = dir_.file("j.undo");
  writeFile(dir_.file("markers"), golden("undo_markers.txt"));
  writeFile(dir_.file("switches"), golden("undo_switches.txt"));
  EXPECT_EQ(run({"-r", "-c", "maintain recException"}).status, 1);
  const RunResult first = run({"-qu", journal, "-f", dir_.file("markers")});
  // A console killed while appending leaves a torn record, which the next
  // run replaces.
  writeFile(journal, readFile(journal) + "record 9\ndevice /dev/mm");
  const RunResult second = run({"-qu", journal, "-f", dir_.file("switches")});
  EXPECT_EQ(first.status + second.status, 0) << first.err << second.err;
  EXPECT_EQ(first.out + second.out, golden("undo_session.txt"));
  EXPECT_NE(second.err.find("is replaced\n"), std::string::npos);
  EXPECT_EQ(lastLine(run({"--restore", journal, "--dry-run"}).out),
            "17 would be restored, 0 skipped, 0 changed since\n");

  // The auxiliary head changed after the session: the restore stops there.
  ASSERT_TRUE(poke(device_, 1129618, "\x55"));
  const RunResult stopped = run({"--restore", journal});
  EXPECT_EQ(stopped.status, 1);
  EXPECT_NE(stopped.err.find(
                " 2 772): 8 bytes at 1129613: changed since: byte 1129618 "
                "(offset + 5) holds 0x55, the journal expects 0x00; not "
                "restored\nrestore stopped at record 10: "),
            std::string::npos)
      << stopped.err;
  EXPECT_EQ(changes(), (std::vector<uint64_t>{51484, 1129615, 1129616, 1129618}));
  const RunResult forced = run({"--restore", journal, "--force"});
  EXPECT_EQ(forced.status, 1);
  EXPECT_EQ(lastLine(forced.out), "9 restored, 7 skipped, 1 changed since\n");
  EXPECT_EQ(changes(), (std::vector<uint64_t>{1129615, 1129616, 1129618}));
  ASSERT_TRUE(poke(device_, 1129618, std::string(1, '\0')));
  // Records 8 to 1 take the headers, which --force put back already,
  // through their history once more, to the same end.
  const RunResult done = run({"--restore", journal, "-u", dir_.file("k")});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(lastLine(done.out), "9 restored, 8 skipped, 0 changed since\n");
  EXPECT_TRUE(changes().empty());
  JournalContents redo;
  std::string error;
  ASSERT_EQ(readJournalFile(dir_.file("k"), &redo, &error), 0) << error;
  EXPECT_EQ(redo.records.size(), 9u);

  ASSERT_TRUE(sizeFile(dir_.file("small.img"), 1 << 20));
  const RunResult other = runProgram(
      {TRELLIS_MAINTAIN_BIN, "-d", dir_.file("small.img"), "--restore", journal}, "", {});
  EXPECT_EQ(other.status, 1);
  EXPECT_NE(other.err.find("made on a device of 1073741824 bytes"),
            std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(ImageAndLoopDevice, UndoSessionTest, testing::Bool());

}  // namespace
}  // namespace test
}  // namespace tr
