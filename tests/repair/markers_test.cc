#include "repair/markers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "maintain/commands.h"
#include "maintain/startup.h"
#include "tests/support/device_faults.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// A 4 MiB card: reserve 83886, idxFileSize 8139, so the whole layout is
// small enough to compare the whole image before and after each command.
constexpr uint64_t kSmallCard = 4194304;
constexpr uint64_t kStorageHead = 51200;

const std::string kOddMagic = "XYZ_99Q";
const std::string kCleared(7, '\0');
const std::string kValidMagic("IDX_01\0", 7);

// 264 non-zero bytes, different for each seed, starting with kOddMagic.
std::string headerBytes(int seed) {
  std::string bytes(264, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(0x80 | ((i * 7 + seed) & 0x7F));
  }
  return bytes.replace(0, 7, kOddMagic);
}

// 128 non-zero bytes for the storage head.
std::string storageHeadBytes() {
  std::string bytes(128, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(0x40 + (i % 64));
  }
  return bytes;
}

struct IndexFile {
  const char* prefix;
  uint64_t base;  // on the 4 MiB card
  const char* offsetLine;
};

void PrintTo(const IndexFile& value, std::ostream* os) { *os << value.prefix; }

const IndexFile kIndexFiles[] = {
    {"rec", 51328, "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n"},
    {"recBackUp", 59467,
     "tr_IndexFileHead targetOffset: \x1b[32m59467\x1b[0m\n"},
    {"pic", 67606, "tr_IndexFileHead targetOffset: \x1b[32m67606\x1b[0m\n"},
    {"picBackUp", 75745,
     "tr_IndexFileHead targetOffset: \x1b[32m75745\x1b[0m\n"},
};

class SmallCard {
 public:
  SmallCard() : image_(dir_.file("card.img"), kSmallCard) {
    int seed = 1;
    for (const IndexFile& file : kIndexFiles) {
      image_.putText(file.base, headerBytes(seed++));
    }
    image_.putText(kStorageHead, storageHeadBytes());
  }
  const CardImage& image() const { return image_; }
  std::string bytes() const { return wholeImage(image_.path()); }

 private:
  TempDir dir_;
  CardImage image_;
};

class MarkerCommandTest : public testing::TestWithParam<IndexFile> {
 protected:
  RunResult run(const std::string& script) {
    return runConsole(script, {{"TRELLIS_DEVICE", card_.image().path()}});
  }

  // One command in this process, through the dispatcher.
  Captured dispatch(const std::string& word, int* result) {
    UseDevice device(card_.image().path());
    std::vector<char> text(word.begin(), word.end());
    text.push_back('\0');
    char* words[] = {text.data()};
    return capture([&] { *result = tr_maintain(1, words); });
  }

  SmallCard card_;
};

TEST_P(MarkerCommandTest, ExceptionThenNormalChangeOnlyTheMagicWord) {
  const IndexFile& file = GetParam();
  const std::string original = card_.bytes();

  RunResult r = run("maintain " + std::string(file.prefix) + "Exception\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(commandOutput(r.out), file.offsetLine);
  EXPECT_EQ(changedBytes(original, card_.bytes()),
            textChange(file.base, kOddMagic, kCleared));

  r = run("maintain " + std::string(file.prefix) + "Normal\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(commandOutput(r.out), file.offsetLine);
  // Bytes 7..263 of the header, gaps included, and every other index file
  // are as they were.
  EXPECT_EQ(changedBytes(original, card_.bytes()),
            textChange(file.base, kOddMagic, kValidMagic));
}

TEST_P(MarkerCommandTest, ExceptionOnAMarkedFileRewritesTheSameBytes) {
  const IndexFile& file = GetParam();
  card_.image().putText(file.base, kCleared);
  const std::string original = card_.bytes();
  int result = 0;
  const Captured c = dispatch(std::string(file.prefix) + "Exception", &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.out, file.offsetLine);
  EXPECT_EQ(c.err, "");
  EXPECT_EQ(changedBytes(original, card_.bytes()), ByteChanges());
}

TEST_P(MarkerCommandTest, NormalOnAZeroedAreaWritesTheMagicWord) {
  const IndexFile& file = GetParam();
  card_.image().putText(file.base, std::string(264, '\0'));
  const std::string original = card_.bytes();
  int result = -1;
  const Captured c = dispatch(std::string(file.prefix) + "Normal", &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.out, file.offsetLine);
  EXPECT_EQ(c.err, "");
  EXPECT_EQ(changedBytes(original, card_.bytes()),
            textChange(file.base, kCleared, kValidMagic));
}

INSTANTIATE_TEST_SUITE_P(
    AllIndexFiles, MarkerCommandTest, testing::ValuesIn(kIndexFiles),
    [](const testing::TestParamInfo<IndexFile>& p) {
      return std::string(p.param.prefix);
    });

TEST(MemsetTrellisHeadTest, ZeroesTheStorageHeadAndKeepsTheLayout) {
  SmallCard card;
  const std::string original = card.bytes();
  const RunResult r = runConsole(
      "maintain memsetTrellisHead\nmaintain recIndexFileHead\n"
      "maintain picBackUpException\nmaintain TrellisHead\n",
      {{"TRELLIS_DEVICE", card.image().path()}});
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_GE(parts.size(), 5u);
  EXPECT_EQ(parts[1], "");
  EXPECT_EQ(parts[2].rfind("targetOffset        : \x1b[32m51328\x1b[0m\n", 0),
            0u);
  EXPECT_NE(parts[2].find("=== tr_IndexFileHead ==="), std::string::npos);
  EXPECT_EQ(parts[3], kIndexFiles[3].offsetLine);
  EXPECT_NE(parts[4].find("Magic Word          : \x1b[31m\x1b[0m\n"),
            std::string::npos);

  EXPECT_EQ(card.image().read(51200, 128), std::string(128, '\0'));
  EXPECT_EQ(changedBytes(original, card.bytes()),
            merged(textChange(51200, storageHeadBytes(),
                              std::string(128, '\0')),
                   textChange(75745, kOddMagic, kCleared)));
}

TEST(MemsetTrellisHeadTest, LeavesTheLayoutInMemoryAlone) {
  SmallCard card;
  UseDevice device(card.image().path());
  const tr_TrellisHead before = trellisHead;
  int result = -1;
  capture([&] { result = _tr_maintainMemsetTrellisHead(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(std::memcmp(&before, &trellisHead, sizeof before), 0);
}

// Failures at each step of a marker on the record index file (51328 =
// 0xc880). `written` is how many bytes of the changed header reached the
// device.
enum class Marker { kException, kNormal };

struct MarkerFault {
  const char* name;
  Marker marker;
  Fault fault;
  bool offsetLinePrinted;
  const char* err;  // "@DEV": the image, "@FD": the descriptor
  size_t written;
};

void PrintTo(const MarkerFault& value, std::ostream* os) { *os << value.name; }

const MarkerFault kMarkerFaults[] = {
    {"OpenDenied", Marker::kException, {SysCall::kOpen, 1, -1, EACCES}, false,
     "<TS> \x1b[31mOPEN FAILED\x1b[0m\n  Device: @DEV\n"
     "  Error: Permission denied (13)\n\n",
     0},
    {"ReadSeekFails", Marker::kException, {SysCall::kSeek, 1, -1, EIO}, true,
     "<TS> \x1b[31mREAD LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Offset: 0x000000000000c880\n"
     "  Error: Input/output error (5)\n\n",
     0},
    {"ReadMovesNothing", Marker::kNormal, {SysCall::kRead, 1, 0, 0}, true,
     "<TS> \x1b[31mREAD FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 264 bytes\n  Error: Success (0)\n\n",
     0},
    {"ReadComesShort", Marker::kException, {SysCall::kRead, 1, 100, 0}, true,
     "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: 100 bytes\n\n",
     0},
    {"ReadErrs", Marker::kNormal, {SysCall::kRead, 1, -1, EIO}, true,
     "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: -1 bytes\n\n",
     0},
    {"WriteSeekFails", Marker::kNormal, {SysCall::kSeek, 2, -1, EINVAL}, true,
     "<TS> \x1b[31mWRITE LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Offset: 0x000000000000c880\n"
     "  Error: Invalid argument (22)\n\n",
     0},
    {"WriteMovesNothing", Marker::kException,
     {SysCall::kWrite, 1, 0, ENOSPC}, true,
     "<TS> \x1b[31mWRITE FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 264 bytes\n  Error: No space left on device (28)\n\n",
     0},
    {"ExceptionWriteComesShort", Marker::kException,
     {SysCall::kWrite, 1, 3, 0}, true,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: 3 bytes\n\n",
     3},
    {"NormalWriteComesShort", Marker::kNormal, {SysCall::kWrite, 1, 5, 0},
     true,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: 5 bytes\n\n",
     5},
    {"WriteErrs", Marker::kException, {SysCall::kWrite, 1, -1, EIO}, true,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: -1 bytes\n\n",
     0},
    {"ExceptionCloseFails", Marker::kException, {SysCall::kClose, 1, -1, EIO},
     true,
     "<TS> \x1b[33mCLOSE WARNING\x1b[0m\n  Device: @DEV\n  FD: @FD\n"
     "  Warning: Input/output error (5)\n  Possible file descriptor leak!\n\n",
     264},
    {"NormalCloseFails", Marker::kNormal, {SysCall::kClose, 1, -1, EIO}, true,
     "<TS> \x1b[33mCLOSE WARNING\x1b[0m\n  Device: @DEV\n  FD: @FD\n"
     "  Warning: Input/output error (5)\n  Possible file descriptor leak!\n\n",
     264},
};

class MarkerFaultTest : public testing::TestWithParam<MarkerFault> {};

TEST_P(MarkerFaultTest, ReportsTheStepAndLeavesItsState) {
  const MarkerFault& step = GetParam();
  SmallCard card;
  UseDevice device(card.image().path());
  const std::string original = card.bytes();
  const std::string& wanted =
      step.marker == Marker::kException ? kCleared : kValidMagic;
  auto mark = [&] {
    return step.marker == Marker::kException
               ? _tr_maintainIndexFileException(51328)
               : _tr_maintainIndexFileNormal(51328);
  };

  int result = 0;
  int fd = -1;
  Captured c;
  {
    FaultyDevice faulty(step.fault);
    c = capture([&] { result = mark(); });
    fd = faulty.lastFd();
    EXPECT_EQ(faulty.closed(), faulty.opened());
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, step.offsetLinePrinted ? kIndexFiles[0].offsetLine : "");
  EXPECT_EQ(maskTimestamps(c.err),
            expandBlock(step.err, card.image().path(), fd));
  const size_t magicBytes = std::min<size_t>(step.written, 7);
  EXPECT_EQ(changedBytes(original, card.bytes()),
            textChange(51328, kOddMagic.substr(0, magicBytes),
                       wanted.substr(0, magicBytes)));

  // Once the fault is gone the same command completes the change.
  capture([&] { result = mark(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(changedBytes(original, card.bytes()),
            textChange(51328, kOddMagic, wanted));
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, MarkerFaultTest, testing::ValuesIn(kMarkerFaults),
    [](const testing::TestParamInfo<MarkerFault>& p) {
      return std::string(p.param.name);
    });

// Failures at each step of the storage head reset; its blocks never carry
// an Offset line.
struct ResetFault {
  const char* name;
  Fault fault;
  const char* err;  // "@DEV": the image, "@FD": the descriptor
  size_t written;
};

void PrintTo(const ResetFault& value, std::ostream* os) { *os << value.name; }

const ResetFault kResetFaults[] = {
    {"OpenDenied", {SysCall::kOpen, 1, -1, EACCES},
     "<TS> \x1b[31mOPEN FAILED\x1b[0m\n  Device: @DEV\n"
     "  Error: Permission denied (13)\n\n",
     0},
    {"WriteSeekFails", {SysCall::kSeek, 1, -1, EIO},
     "<TS> \x1b[31mWRITE LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Error: Input/output error (5)\n\n",
     0},
    {"WriteMovesNothing", {SysCall::kWrite, 1, 0, 0},
     "<TS> \x1b[31mWRITE FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 128 bytes\n  Error: Success (0)\n\n",
     0},
    {"WriteComesShort", {SysCall::kWrite, 1, 100, 0},
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 128 bytes\n  Actual: 100 bytes\n\n",
     100},
    {"WriteErrs", {SysCall::kWrite, 1, -1, EIO},
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 128 bytes\n  Actual: -1 bytes\n\n",
     0},
    {"CloseFails", {SysCall::kClose, 1, -1, EBADF},
     "<TS> \x1b[33mCLOSE WARNING\x1b[0m\n  Device: @DEV\n  FD: @FD\n"
     "  Warning: Bad file descriptor (9)\n  Possible file descriptor leak!\n\n",
     128},
};

class ResetFaultTest : public testing::TestWithParam<ResetFault> {};

TEST_P(ResetFaultTest, ReportsTheStepAndLeavesItsState) {
  const ResetFault& step = GetParam();
  SmallCard card;
  UseDevice device(card.image().path());
  const std::string original = card.bytes();
  int result = 0;
  int fd = -1;
  Captured c;
  {
    FaultyDevice faulty(step.fault);
    c = capture([&] { result = _tr_maintainMemsetTrellisHead(); });
    fd = faulty.lastFd();
    EXPECT_EQ(faulty.closed(), faulty.opened());
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(maskTimestamps(c.err),
            expandBlock(step.err, card.image().path(), fd));
  EXPECT_EQ(changedBytes(original, card.bytes()),
            textChange(51200, storageHeadBytes().substr(0, step.written),
                       std::string(step.written, '\0')));
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, ResetFaultTest, testing::ValuesIn(kResetFaults),
    [](const testing::TestParamInfo<ResetFault>& p) {
      return std::string(p.param.name);
    });

}  // namespace
}  // namespace test
}  // namespace tr
