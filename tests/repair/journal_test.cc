// The undo journal: its text and checksum, read back after a cut or damage
// at any byte, the write it was for stopped when its record cannot be kept,
// and a whole session undone from it.
#include "repair/journal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "repair/markers.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

JournalRecord record(uint32_t n) {
  JournalRecord r;
  r.number = n;
  r.device = "/dev/mmc0";
  r.deviceSize = 2147483648;
  r.offset = 51200 * n;
  r.time = "2024-03-05T07:14:09Z";
  r.command = "maintain recException";
  r.before = std::string(n, '\x01');
  r.after = std::string(n, '\x02');
  return r;
}

// Three records as the console appends them, and where the last begins.
std::string threeRecords(size_t* lastStart) {
  std::string text = kJournalMagic;
  for (uint32_t n = 1; n <= 3; ++n) {
    *lastStart = text.size();
    text += formatJournalRecord(record(n));
  }
  return text;
}

// `text` as a journal file, scanned. -1 with `*error` as scanJournal.
int scan(const std::string& text, JournalScan* found, std::string* error) {
  TempDir dir;
  writeFile(dir.file("j"), text);
  const int fd = ::open(dir.file("j").c_str(), O_RDONLY);
  const int result = scanJournal(fd, 2147483648, found, error);
  ::close(fd);
  return result;
}

// The checksum is the CRC-32 of every byte before its line, as any CRC-32
// tool gives it.
TEST(JournalTest, ARecordCarriesTheChecksumOfItsLines) {
  JournalRecord r = record(1);
  r.before = "IDX";
  r.after = std::string(3, '\0');
  r.offset = 51328;
  EXPECT_EQ(formatJournalRecord(r),
            "record 1\ndevice /dev/mmc0\nsize 2147483648\noffset 51328\n"
            "length 3\ntime 2024-03-05T07:14:09Z\ncommand maintain "
            "recException\nbefore 494458\nafter 000000\ncrc32 ad327b5d\n");
}

TEST(JournalTest, ACutLastRecordIsIgnoredWhereverTheCutFalls) {
  size_t last = 0;
  const std::string text = threeRecords(&last);
  JournalScan read;
  std::string error;
  for (size_t cut = last; cut <= text.size(); ++cut) {
    ASSERT_EQ(scan(text.substr(0, cut), &read, &error), 0) << cut;
    const bool whole = cut == text.size();
    EXPECT_EQ(read.records, whole ? 3u : 2u) << cut;
    EXPECT_EQ(read.tornTail, cut != last && !whole) << cut;
    EXPECT_EQ(read.wholeLength, whole ? cut : last) << cut;
  }
  // The first line itself cut short: a journal without records.
  ASSERT_EQ(scan("trellis-un", &read, &error), 0);
  EXPECT_TRUE(read.records == 0 && read.tornTail);
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
    JournalScan read;
    std::string error;
    const int result = scan(damaged, &read, &error);
    if (c.error == nullptr) {
      EXPECT_EQ(result, 0) << c.at;
      EXPECT_EQ(read.records, 2u) << c.at;
    } else {
      EXPECT_EQ(result, -1) << c.at;
      EXPECT_EQ(error.rfind(c.error, 0), 0u) << c.at << ": " << error;
    }
  }
}

// A marker's write when its record cannot be kept: the journal cannot be
// opened, is held by another console, its record cannot be written or made
// durable. The device is left as it was, one line names the journal and
// the error, and the journal is left without a part record.
TEST(JournalTest, AWriteWhoseRecordCannotBeKeptIsNotMade) {
  TempDir dir;
  const std::string card = dir.file("card.img");
  const std::string journal = dir.file("j.undo");
  ASSERT_TRUE(sizeFile(card, 64 << 20) && poke(card, 51328, "IDX_01"));
  useDevice(card);
  const Extents before = extents(card);
  const struct {
    Fault fault;
    const char* error;
  } cases[] = {
      {{Call::kOpenFile, 1, -1, EROFS}, "cannot open it: Read-only file system (30)"},
      {{}, "another console is appending to it"},
      {{Call::kWrite, 1, -1, ENOSPC}, "cannot append the record: No space left on device (28)"},
      {{Call::kFsync, 1, -1, EIO}, "cannot append the record: Input/output error (5)"},
  };
  setJournalPath(journal);
  for (const auto& c : cases) {
    const int holder = ::open(journal.c_str(), O_RDONLY | O_CREAT, 0644);
    const bool held = c.fault.call == Call::kNone;
    ASSERT_EQ(held ? ::flock(holder, LOCK_SH) : 0, 0);
    int result = 0;
    Captured said;
    {
      SysFaults faults(c.fault);
      said = capture([&] {
        const DeviceCommand command("maintain recException");
        result = _tr_maintainIndexFileException(51328);
      });
      EXPECT_EQ(faults.unreturned(), 0) << c.error;
    }
    ::close(holder);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(said.err, "undo journal " + journal + ": " + c.error +
                            "; nothing written to the device\n");
    EXPECT_EQ(changes(before, extents(card)), "") << c.error;
    EXPECT_EQ(readFile(journal), "") << c.error;
  }
  setJournalPath("");
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
  // A console killed while appending leaves a torn record, longer than the
  // records that replace it in the next run.
  writeFile(journal, readFile(journal) + "record 9\ndevice /dev/mmc0\n" +
                         "before " + std::string(40000, '0'));
  const RunResult second = run({"-qu", journal, "-f", dir_.file("switches")});
  EXPECT_EQ(first.status + second.status, 0) << first.err << second.err;
  EXPECT_EQ(first.out + second.out, golden("undo_session.txt"));
  EXPECT_NE(second.err.find("is replaced\n"), std::string::npos);
  const RunResult dry = run({"--restore", journal, "--dry-run"});
  EXPECT_EQ(lastLine(dry.out),
            "17 would be restored, 0 skipped, 0 changed since\n");
  EXPECT_EQ(dry.err, "");

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
  EXPECT_EQ(lastLine(run({"--restore", dir_.file("k"), "--dry-run"}).out),
            "9 would be restored, 0 skipped, 0 changed since\n");

  // A journal of this card restores no other, larger or smaller.
  ASSERT_TRUE(sizeFile(dir_.file("other.img"), 2u << 30));
  const RunResult other = runProgram(
      {TRELLIS_MAINTAIN_BIN, "-d", dir_.file("other.img"), "--restore", journal}, "", {});
  EXPECT_EQ(other.status, 1);
  EXPECT_NE(other.err.find("made on a device of 1073741824 bytes"),
            std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(ImageAndLoopDevice, UndoSessionTest, testing::Bool());

}  // namespace
}  // namespace test
}  // namespace tr
