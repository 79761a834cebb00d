// The commands that write to the device: the exception and normal markers,
// the auxiliary switch and the storage head reset. Each is compared over
// the whole layout: only the bytes meant to change do, whether it succeeds,
// refuses its numbers, fails at any step (leaving the state that step
// allows) or meets a device it may not write.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include "repair/aux_switch.h"
#include "repair/markers.h"
#include "tests/support/device_faults.h"
#include "tests/support/golden.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// On a 2 GiB card the four index files end at byte 42949672; each has its
// auxiliary region in its last 4320800 bytes, auxiliaries of 43208 bytes:
// auxiliary 7's head at base + 10724586 - 4320800 + 6 x 43208.
constexpr uint64_t kLayoutEnd = 42949672;
constexpr uint64_t kBases[] = {51328, 10775914, 21500500, 32225086};
constexpr uint64_t kAux7[] = {6714362, 17438948, 28163534, 38888120};

// A 2 GiB card whose storage head and index file headers hold non-zero
// bytes everywhere (gaps included): each header an odd magic word,
// maxAuxNumber `maxAux` and auxNum 0x0203, and auxiliary 7's head
// currentCount 0x0102.
void fillCard(const CardImage& image, uint32_t maxAux) {
  std::string bytes(264, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(0x80 | ((i * 5) & 0x7F));
  }
  image.putText(51200, bytes.substr(0, 128));
  for (int k = 0; k < 4; ++k) {
    image.putText(kBases[k], bytes.replace(0, 7, "XYZ_99Q"));
    image.put32(kBases[k] + 152, maxAux);
    image.put32(kBases[k] + 156, 0x0203);
    image.putText(kAux7[k], std::string("\x01\x00\x02\x01\xE1\xE2\xE3\xE4", 8));
  }
}

// `image` with `bytes` at `at`.
std::string with(std::string image, uint64_t at, const std::string& bytes) {
  return image.replace(at, bytes.size(), bytes);
}

std::string headLine(uint64_t base) {
  return "tr_IndexFileHead targetOffset: \x1b[32m" + std::to_string(base) +
         "\x1b[0m\n";
}

std::string auxLine(uint64_t head) {
  return "IndexFileAuxiliaryHead targetOffset: \x1b[32m" +
         std::to_string(head) + "\x1b[0m\n";
}

// Each selector on its own index file, all four set up alike, after the
// storage head reset (the layout computed at start-up stays, so the index
// files are still found), with a context number of its own: ctxNum keeps
// the low 16 bits of the number.
struct Selector {
  const char* prefix;
  int file;
  const char* ctx;
  const char* count;
  std::string stored;  // currentCount, little-endian
};

void PrintTo(const Selector& value, std::ostream* os) { *os << value.prefix; }

class SelectorTest : public testing::TestWithParam<Selector> {};

TEST_P(SelectorTest, ChangesOnlyItsOwnIndexFile) {
  const Selector& k = GetParam();
  const uint64_t base = kBases[k.file];
  TempDir dir;
  CardImage image(dir.file("card.img"), kCard2G);
  fillCard(image, 50);
  const std::string before = image.read(0, kLayoutEnd);
  const std::string p = std::string("maintain ") + k.prefix;
  const RunResult r = runConsole(
      "maintain memsetTrellisHead\n" + p + "Exception\n" + p +
          "ChangeAuxCtxNum 7 " + k.ctx + "\n" + p + "IndexFileHead\n" + p +
          "IndexAuxHead 7\n" + p + "Normal\nmaintain TrellisHead\n",
      {{"TRELLIS_DEVICE", image.path()}});
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_GE(parts.size(), 8u);
  EXPECT_EQ(parts[1], "");
  EXPECT_EQ(parts[2], headLine(base));
  EXPECT_EQ(parts[3], headLine(base) + auxLine(kAux7[k.file]));
  const std::string noMagic = "Magic Word          : \x1b[31m\x1b[0m\n";
  EXPECT_NE(parts[4].find(noMagic), std::string::npos);
  EXPECT_NE(parts[4].find("Aux Number          : \x1b[32m7\x1b[0m\n"),
            std::string::npos);
  EXPECT_NE(parts[5].find("Current Count       : \x1b[32m" +
                          std::string(k.count) + "\x1b[0m\n"),
            std::string::npos);
  EXPECT_EQ(parts[6], headLine(base));
  EXPECT_NE(parts[7].find(noMagic), std::string::npos);
  const std::string after =
      with(with(with(with(before, 51200, std::string(128, 0)), base,
                     std::string("IDX_01\0", 7)),
                base + 156, std::string("\x07\x00", 2)),
           kAux7[k.file] + 2, k.stored);
  EXPECT_EQ(changedBytes(after, image.read(0, kLayoutEnd)), ByteChanges());
}

INSTANTIATE_TEST_SUITE_P(
    AllIndexFiles, SelectorTest,
    testing::Values(Selector{"rec", 0, "772", "772", "\x04\x03"},
                    Selector{"recBackUp", 1, "70000", "4464", "\x70\x11"},
                    Selector{"pic", 2, "-1", "65535", "\xFF\xFF"},
                    Selector{"picBackUp", 3, "65536", "0", std::string(2, 0)}),
    [](const testing::TestParamInfo<Selector>& p) {
      return std::string(p.param.prefix);
    });

// auxNum against the bound in force on the record index file:
// maxAuxNumber, never past the region's 100 auxiliaries, and none at all
// when the index file is too small to hold the region (a 4 MiB card:
// 8139 bytes). A refusal writes nothing and closes the device.
std::string invalid(const char* aux, const char* bound) {
  return std::string("<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: ") + aux +
         "\n maxAuxNumber: " + bound + "\n";
}

TEST(SwitchNumberTest, AcceptsOnlyAnAuxiliaryOfTheRegion) {
  const struct {
    uint64_t capacity;
    uint32_t maxAux;
    const char* aux;
    uint64_t head;  // 51328 + 6403786 + (aux - 1) x 43208; 0: refused
    std::string report;
  } cases[] = {
      {kCard2G, 50, "50", 8572306, ""},
      // Auxiliary 100's head ends where the backup index file begins.
      {kCard2G, 200, "100", 10732706, ""},
      {kCard2G, 50, "0", 0, invalid("0", "50")},
      {kCard2G, 50, "51", 0, invalid("51", "50")},
      {kCard2G, 200, "101", 0, invalid("101", "100")},
      {kCard2G, 50, "-1", 0, invalid("-1", "50")},
      {kCard2G, 0, "1", 0, invalid("1", "0")},
      {4194304, 50, "1", 0, invalid("1", "0")},
  };
  for (const auto& k : cases) {
    SCOPED_TRACE(std::string(k.aux) + " of " + std::to_string(k.maxAux));
    TempDir dir;
    CardImage image(dir.file("card.img"), kLayoutEnd);
    UseDevice device(image.path(), k.capacity);
    fillCard(image, k.maxAux);
    const std::string before = image.read(0, kLayoutEnd);
    int result = 0;
    Captured c;
    {
      FaultyDevice counted{Fault()};
      c = capture([&] {
        result = _tr_maintainChangeAuxCtxNum(
            51328, static_cast<uint32_t>(std::stoi(k.aux)), 772);
      });
      EXPECT_EQ(counted.opened(), 1);
      EXPECT_EQ(counted.closed(), 1);
    }
    EXPECT_EQ(result, k.head != 0 ? 0 : -1);
    EXPECT_EQ(c.out, headLine(51328) + (k.head != 0 ? auxLine(k.head) : ""));
    EXPECT_EQ(maskTimestamps(c.err), k.report);
    const std::string number{static_cast<char>(std::stoi(k.aux)), '\0'};
    EXPECT_EQ(changedBytes(k.head == 0 ? before
                                       : with(with(before, 51484, number),
                                              k.head + 2, "\x04\x03"),
                           image.read(0, kLayoutEnd)),
              ByteChanges());
  }
}

// Failures at each step, on the record index file (51328 = 0xc880; its
// auxiliary 7 at 0x6673fa) for the markers and the switch (auxiliary 7,
// ctxNum 772). The expected blocks are in repair_faults.txt.
// A writing command, and the bytes each of its writes changes: `value` at
// `field` of the record written at `at`.
struct Change {
  uint64_t at;
  size_t field;
  std::string value;
};

struct Writer {
  const char* suite;  // of its blocks in repair_faults.txt
  int (*run)();
  Change first;
  Change second;
};

// auxNum 7 and currentCount 772 = 0x0304 for the switch.
// clang-format off
const Writer kWriters[] = {
    {"Markers", [] { return _tr_maintainIndexFileException(51328); },
     {51328, 0, std::string(7, 0)}, {}},
    {"Markers", [] { return _tr_maintainIndexFileNormal(51328); },
     {51328, 0, std::string("IDX_01\0", 7)}, {}},
    {"Reset", [] { return _tr_maintainMemsetTrellisHead(); },
     {51200, 0, std::string(128, 0)}, {}},
    {"Switch", [] { return _tr_maintainChangeAuxCtxNum(51328, 7, 772); },
     {51328, 156, std::string("\x07\x00", 2)}, {6714362, 2, "\x04\x03"}},
};
// clang-format on
enum WriterIndex { E, N, R, W };
constexpr size_t kAll = 264;  // a write that reached the device whole

struct WriteFault {
  const char* name;
  WriterIndex writer;
  Fault fault;
  int offsetLines;  // how many offset lines were printed
  size_t first;     // bytes of the first write that reached the device
  size_t second;    // and of the second
};

void PrintTo(const WriteFault& row, std::ostream* os) { *os << row.name; }

// `image` once `first` bytes of the first write and `second` of the second
// reached the device.
std::string expected(std::string image, const Writer& writer, size_t first,
                     size_t second) {
  for (const auto& [change, written] :
       {std::make_pair(&writer.first, first),
        std::make_pair(&writer.second, second)}) {
    for (size_t i = 0; i < change->value.size() && change->field + i < written;
         ++i) {
      image[change->at + change->field + i] = change->value[i];
    }
  }
  return image;
}

using S = SysCall;

const WriteFault kMarkerFaults[] = {
    {"OpenDenied", E, {S::kOpen, 1, -1, EACCES}, 0, 0, 0},
    {"ReadSeekFails", E, {S::kSeek, 1, -1, EIO}, 1, 0, 0},
    {"ReadMovesNothing", N, {S::kRead, 1, 0, 0}, 1, 0, 0},
    {"ReadComesShort", E, {S::kRead, 1, 100, 0}, 1, 0, 0},
    {"ReadErrs", N, {S::kRead, 1, -1, EIO}, 1, 0, 0},
    {"WriteSeekFails", N, {S::kSeek, 2, -1, EINVAL}, 1, 0, 0},
    {"WriteMovesNothing", E, {S::kWrite, 1, 0, ENOSPC}, 1, 0, 0},
    {"ExceptionWriteComesShort", E, {S::kWrite, 1, 3, 0}, 1, 3, 0},
    {"NormalWriteComesShort", N, {S::kWrite, 1, 5, 0}, 1, 5, 0},
    {"WriteErrs", E, {S::kWrite, 1, -1, EIO}, 1, 0, 0},
    {"ExceptionCloseFails", E, {S::kClose, 1, -1, EIO}, 1, kAll, 0},
    {"NormalCloseFails", N, {S::kClose, 1, -1, EIO}, 1, kAll, 0},
};

// The storage head's place is fixed: its blocks carry no Offset line.
const WriteFault kResetFaults[] = {
    {"OpenDenied", R, {S::kOpen, 1, -1, EACCES}, 0, 0, 0},
    {"WriteSeekFails", R, {S::kSeek, 1, -1, EIO}, 0, 0, 0},
    {"WriteMovesNothing", R, {S::kWrite, 1, 0, 0}, 0, 0, 0},
    {"WriteComesShort", R, {S::kWrite, 1, 100, 0}, 0, 100, 0},
    {"WriteErrs", R, {S::kWrite, 1, -1, EIO}, 0, 0, 0},
    {"CloseFails", R, {S::kClose, 1, -1, EBADF}, 0, kAll, 0},
};

// A short header write of 157 bytes reaches byte 156 only, the low byte of
// the new auxNum; a short head write of 3 bytes the low byte of the count.
const WriteFault kSwitchFaults[] = {
    {"OpenDenied", W, {S::kOpen, 1, -1, EACCES}, 0, 0, 0},
    {"HeaderReadSeekFails", W, {S::kSeek, 1, -1, EIO}, 1, 0, 0},
    {"HeaderReadMovesNothing", W, {S::kRead, 1, 0, 0}, 1, 0, 0},
    {"HeaderReadComesShort", W, {S::kRead, 1, 200, 0}, 1, 0, 0},
    {"HeaderReadErrs", W, {S::kRead, 1, -1, EIO}, 1, 0, 0},
    {"HeaderWriteSeekFails", W, {S::kSeek, 2, -1, EIO}, 1, 0, 0},
    {"HeaderWriteMovesNothing", W, {S::kWrite, 1, 0, ENOSPC}, 1, 0, 0},
    {"HeaderWriteComesShort", W, {S::kWrite, 1, 157, 0}, 1, 157, 0},
    {"HeaderWriteErrs", W, {S::kWrite, 1, -1, EIO}, 1, 0, 0},
    {"HeadReadSeekFails", W, {S::kSeek, 3, -1, EIO}, 2, kAll, 0},
    {"HeadReadMovesNothing", W, {S::kRead, 2, 0, 0}, 2, kAll, 0},
    {"HeadReadComesShort", W, {S::kRead, 2, 5, 0}, 2, kAll, 0},
    {"HeadReadErrs", W, {S::kRead, 2, -1, EIO}, 2, kAll, 0},
    {"HeadWriteSeekFails", W, {S::kSeek, 4, -1, EINVAL}, 2, kAll, 0},
    {"HeadWriteMovesNothing", W, {S::kWrite, 2, 0, 0}, 2, kAll, 0},
    {"HeadWriteComesShort", W, {S::kWrite, 2, 3, 0}, 2, kAll, 3},
    {"HeadWriteErrs", W, {S::kWrite, 2, -1, EIO}, 2, kAll, 0},
    {"CloseFails", W, {S::kClose, 1, -1, EIO}, 2, kAll, kAll},
};

class RepairFaultTest : public testing::TestWithParam<WriteFault> {};

TEST_P(RepairFaultTest, ReportsTheStepAndLeavesItsState) {
  const WriteFault& row = GetParam();
  const Writer& writer = kWriters[row.writer];
  TempDir dir;
  CardImage image(dir.file("card.img"), kCard2G);
  UseDevice device(image.path());
  fillCard(image, 50);
  const std::string before = image.read(0, kLayoutEnd);
  int result = 0;
  int fd = -1;
  Captured c;
  {
    FaultyDevice faulty(row.fault);
    c = capture([&] { result = writer.run(); });
    fd = faulty.lastFd();
    EXPECT_EQ(faulty.closed(), faulty.opened());
  }
  EXPECT_EQ(result, -1);
  const std::string lines[] = {"", headLine(51328),
                               headLine(51328) + auxLine(6714362)};
  EXPECT_EQ(c.out, lines[row.offsetLines]);
  // This row's block: from its "== Suite/Name" line to the next.
  const std::string blocks = golden("repair_faults.txt");
  const std::string title =
      std::string("== ") + writer.suite + "/" + row.name + "\n";
  const size_t from = blocks.find(title) + title.size();
  ASSERT_GE(from, title.size()) << title;
  const std::string block =
      blocks.substr(from, blocks.find("\n== ", from) + 1 - from);
  EXPECT_EQ(maskTimestamps(c.err), expandBlock(block, image.path(), fd));
  EXPECT_EQ(changedBytes(expected(before, writer, row.first, row.second),
                         image.read(0, kLayoutEnd)),
            ByteChanges());

  // Once the fault is gone the same command completes the change.
  capture([&] { result = writer.run(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(changedBytes(expected(before, writer, kAll, kAll),
                         image.read(0, kLayoutEnd)),
            ByteChanges());
}

std::string rowName(const testing::TestParamInfo<WriteFault>& p) {
  return p.param.name;
}

INSTANTIATE_TEST_SUITE_P(Markers, RepairFaultTest,
                         testing::ValuesIn(kMarkerFaults), rowName);
INSTANTIATE_TEST_SUITE_P(Reset, RepairFaultTest,
                         testing::ValuesIn(kResetFaults), rowName);
INSTANTIATE_TEST_SUITE_P(Switch, RepairFaultTest,
                         testing::ValuesIn(kSwitchFaults), rowName);

// A device the user may read but not write: every writing command fails at
// its open and the card stays as it was. Root opens a read-only file for
// writing all the same, so the console runs as the unprivileged user 65534
// on an image it can only read.
TEST(ReadOnlyDeviceTest, EveryWritingCommandFailsAtTheOpenAndChangesNothing) {
  constexpr uid_t kNobody = 65534;
  TempDir dir;  // traversable, not listable or writable, for that user
  ASSERT_EQ(::chmod(dir.path().c_str(), 0711), 0);
  CardImage image(dir.file("card.img"), kCard2G);
  fillCard(image, 50);
  ASSERT_EQ(::chmod(image.path().c_str(), 0444), 0);
  const std::string before = image.read(0, kLayoutEnd);
  TempDir io;  // where the unprivileged child leaves what the console said
  ASSERT_EQ(::chmod(io.path().c_str(), 0777), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 ||
        setuid(kNobody) != 0) {
      _exit(90);
    }
    if (::open(image.path().c_str(), O_RDWR) >= 0) _exit(91);
    if (::access(TRELLIS_MAINTAIN_BIN, X_OK) != 0) _exit(92);
    const RunResult r = runConsole(
        "maintain recException\nmaintain picBackUpNormal\n"
        "maintain recChangeAuxCtxNum 1 1\nmaintain memsetTrellisHead\n",
        {{"TRELLIS_DEVICE", image.path()}});
    writeFile(io.file("out"), r.out);
    writeFile(io.file("err"), r.err);
    _exit(r.status);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) >= 90 && WEXITSTATUS(status) <= 92) {
    GTEST_SKIP() << "uid 65534 cannot be switched to (90), can still write "
                    "a mode-0444 file (91) or cannot run the console (92): "
                 << WEXITSTATUS(status);
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
  // Start-up could read the device, so the layout is the card's own.
  const std::string out = readFile(io.file("out"));
  EXPECT_NE(out.find("deviceSize          : \x1b[32m2147483648\x1b[0m\n"),
            std::string::npos);
  EXPECT_EQ(commandOutput(out), "");
  const std::string block =
      openFailedBlock(image.path(), "Permission denied (13)");
  EXPECT_EQ(maskTimestamps(readFile(io.file("err"))),
            block + block + block + block);
  EXPECT_EQ(changedBytes(before, image.read(0, kLayoutEnd)), ByteChanges());
}

}  // namespace
}  // namespace test
}  // namespace tr
