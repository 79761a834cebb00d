#include "repair/aux_switch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

// On a 2 GiB card the four index files end at byte 42949672; each has its
// auxiliary region in its last 4320800 bytes, so auxiliary 7 of the record
// index file (51328) has its head at 51328 + 10724586 - 4320800 + 6 x 43208.
constexpr uint64_t kLayoutEnd = 42949672;
constexpr uint64_t kRecBase = 51328;
constexpr uint64_t kRecAux7 = 6714362;

const std::string kAux7Head("\x01\x00\x02\x01\xE1\xE2\xE3\xE4", 8);

// A header with non-zero bytes everywhere (gaps included), maxAuxNumber
// `maxAux` and auxNum 0x0203, and the head of auxiliary 7.
void writeIndexFile(const CardImage& image, uint64_t base, uint64_t aux7,
                    uint32_t maxAux) {
  std::string header(264, '\0');
  for (size_t i = 0; i < header.size(); ++i) {
    header[i] = static_cast<char>(0x80 | ((i * 5 + base) & 0x7F));
  }
  header.replace(0, 7, std::string("IDX_01\0", 7));
  image.putText(base, header);
  image.put32(base + 152, maxAux);
  image.put32(base + 156, 0x0203);
  image.putText(aux7, kAux7Head);
}

// auxNum 0x0203 -> 7 and currentCount 0x0102 -> 772 (0x0304) in the record
// index file.
const ByteChanges kRecHeaderChange = {{51484, {0x03, 0x07}},
                                      {51485, {0x02, 0x00}}};
const ByteChanges kRecHeadChange = {{6714364, {0x02, 0x04}},
                                    {6714365, {0x01, 0x03}}};
const char kRecHeaderLine[] =
    "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n";
const char kRecHeadLine[] =
    "IndexFileAuxiliaryHead targetOffset: \x1b[32m6714362\x1b[0m\n";

// The index files of a 2 GiB card in an image that ends with them, so the
// whole image is compared.
class SwitchCard {
 public:
  explicit SwitchCard(uint32_t maxAux = 50)
      : image_(dir_.file("card.img"), kLayoutEnd),
        device_(image_.path(), kCard2G) {
    writeIndexFile(image_, kRecBase, kRecAux7, maxAux);
  }
  const CardImage& image() const { return image_; }
  std::string bytes() const { return wholeImage(image_.path()); }

  // The console's dispatch of "<word> <aux> <ctx>".
  Captured dispatch(const char* word, const char* aux, const char* ctx,
                    int* result) const {
    std::vector<std::string> texts = {word, aux, ctx};
    std::vector<char*> words;
    for (std::string& text : texts) words.push_back(&text[0]);
    return capture([&] { *result = tr_maintain(3, words.data()); });
  }

 private:
  TempDir dir_;
  CardImage image_;
  UseDevice device_;
};

struct IndexFile {
  const char* prefix;
  uint64_t base;
  uint64_t aux7;
};

void PrintTo(const IndexFile& value, std::ostream* os) { *os << value.prefix; }

class SwitchCommandTest : public testing::TestWithParam<IndexFile> {};

// Through the console on a whole 2 GiB card whose four index files are set
// up alike: only the selected file's auxNum and its auxiliary 7 change.
TEST_P(SwitchCommandTest, ChangesTheTwoFieldsOfItsOwnIndexFileOnly) {
  const IndexFile& file = GetParam();
  TempDir dir;
  CardImage image(dir.file("card.img"), kCard2G);
  writeIndexFile(image, 51328, 6714362, 50);
  writeIndexFile(image, 10775914, 17438948, 50);
  writeIndexFile(image, 21500500, 28163534, 50);
  writeIndexFile(image, 32225086, 38888120, 50);
  const std::string before = image.read(0, kLayoutEnd);

  const std::string prefix = file.prefix;
  const RunResult r = runConsole(
      "maintain " + prefix + "ChangeAuxCtxNum 7 772\n" + "maintain " +
          prefix + "IndexFileHead\n" + "maintain " + prefix +
          "IndexAuxHead 7\n",
      {{"TRELLIS_DEVICE", image.path()}});
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_GE(parts.size(), 4u);
  EXPECT_EQ(parts[1], "tr_IndexFileHead targetOffset: \x1b[32m" +
                          std::to_string(file.base) +
                          "\x1b[0m\nIndexFileAuxiliaryHead targetOffset: "
                          "\x1b[32m" +
                          std::to_string(file.aux7) + "\x1b[0m\n");
  EXPECT_NE(parts[2].find("Aux Number          : \x1b[32m7\x1b[0m\n"),
            std::string::npos);
  EXPECT_NE(parts[3].find("Current Count       : \x1b[32m772\x1b[0m\n"),
            std::string::npos);

  const ByteChanges expected = {{file.base + 156, {0x03, 0x07}},
                                {file.base + 157, {0x02, 0x00}},
                                {file.aux7 + 2, {0x02, 0x04}},
                                {file.aux7 + 3, {0x01, 0x03}}};
  EXPECT_EQ(changedBytes(before, image.read(0, kLayoutEnd)), expected);
  struct stat st;
  ASSERT_EQ(::stat(image.path().c_str(), &st), 0);
  EXPECT_EQ(static_cast<uint64_t>(st.st_size), kCard2G);
}

INSTANTIATE_TEST_SUITE_P(
    AllIndexFiles, SwitchCommandTest,
    testing::Values(IndexFile{"rec", 51328, 6714362},
                    IndexFile{"recBackUp", 10775914, 17438948},
                    IndexFile{"pic", 21500500, 28163534},
                    IndexFile{"picBackUp", 32225086, 38888120}),
    [](const testing::TestParamInfo<IndexFile>& p) {
      return std::string(p.param.prefix);
    });

// ctxNum is stored as the low 16 bits of the atoi'd argument.
struct Context {
  const char* name;
  const char* arg;
  std::string stored;  // the two bytes of currentCount, little-endian
};

void PrintTo(const Context& value, std::ostream* os) { *os << value.name; }

class SwitchContextTest : public testing::TestWithParam<Context> {};

TEST_P(SwitchContextTest, StoresTheLow16Bits) {
  SwitchCard card;
  const std::string before = card.bytes();
  const tr_TrellisHead layout = trellisHead;
  int result = -1;
  const Captured c =
      card.dispatch("recChangeAuxCtxNum", "7", GetParam().arg, &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.out, std::string(kRecHeaderLine) + kRecHeadLine);
  EXPECT_EQ(c.err, "");
  EXPECT_EQ(changedBytes(before, card.bytes()),
            merged(kRecHeaderChange,
                   textChange(6714364, "\x02\x01", GetParam().stored)));
  EXPECT_EQ(std::memcmp(&layout, &trellisHead, sizeof layout), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Values, SwitchContextTest,
    testing::Values(Context{"C70000", "70000", std::string("\x70\x11", 2)},
                    Context{"MinusOne", "-1", std::string("\xFF\xFF", 2)},
                    Context{"Zero", "0", std::string("\x00\x00", 2)},
                    Context{"C101", "101", std::string("\x65\x00", 2)},
                    Context{"C65535", "65535", std::string("\xFF\xFF", 2)},
                    Context{"C65536", "65536", std::string("\x00\x00", 2)}),
    [](const testing::TestParamInfo<Context>& p) {
      return std::string(p.param.name);
    });

TEST(SwitchBoundTest, TheLastValidAuxiliaryIsAccepted) {
  // maxAuxNumber itself; and 100, the last auxiliary of the region, when
  // the header claims more. Heads at 6455114 + 49 x 43208 and
  // 6455114 + 99 x 43208, the latter 43208 bytes before the backup file.
  const struct {
    uint32_t maxAux;
    const char* aux;
    uint64_t head;
    uint8_t stored;
  } cases[] = {{50, "50", 8572306, 0x32}, {200, "100", 10732706, 0x64}};
  for (const auto& k : cases) {
    SwitchCard card(k.maxAux);
    const std::string before = card.bytes();
    int result = -1;
    const Captured c =
        card.dispatch("recChangeAuxCtxNum", k.aux, "772", &result);
    EXPECT_EQ(result, 0) << k.aux;
    EXPECT_EQ(c.err, "") << k.aux;
    const ByteChanges expected = {{51484, {0x03, k.stored}},
                                  {51485, {0x02, 0x00}},
                                  {k.head + 2, {0x00, 0x04}},
                                  {k.head + 3, {0x00, 0x03}}};
    EXPECT_EQ(changedBytes(before, card.bytes()), expected) << k.aux;
  }
}

// A refused number: the three lines with the bound in force, the device
// closed, nothing written.
struct Refusal {
  const char* name;
  uint32_t maxAux;
  const char* arg;
  const char* report;
};

void PrintTo(const Refusal& value, std::ostream* os) { *os << value.name; }

class SwitchRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(SwitchRefusalTest, WritesNothing) {
  const Refusal& k = GetParam();
  SwitchCard card(k.maxAux);
  const std::string before = card.bytes();
  int result = 0;
  Captured c;
  {
    FaultyDevice counted{Fault()};
    c = card.dispatch("recChangeAuxCtxNum", k.arg, "5", &result);
    EXPECT_EQ(counted.opened(), 1);
    EXPECT_EQ(counted.closed(), 1);
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, kRecHeaderLine);
  EXPECT_EQ(maskTimestamps(c.err), k.report);
  EXPECT_EQ(changedBytes(before, card.bytes()), ByteChanges());
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, SwitchRefusalTest,
    testing::Values(
        Refusal{"Zero", 50, "0",
                "<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: 0\n"
                " maxAuxNumber: 50\n"},
        Refusal{"OneAboveMax", 50, "51",
                "<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: 51\n"
                " maxAuxNumber: 50\n"},
        Refusal{"PastTheRegion", 200, "101",
                "<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: 101\n"
                " maxAuxNumber: 100\n"},
        Refusal{"MinusOne", 50, "-1",
                "<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: -1\n"
                " maxAuxNumber: 50\n"},
        Refusal{"NoAuxiliaries", 0, "1",
                "<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: 1\n"
                " maxAuxNumber: 0\n"}),
    [](const testing::TestParamInfo<Refusal>& p) {
      return std::string(p.param.name);
    });

TEST(SwitchRefusalTest, AnIndexFileTooSmallForTheRegionHasNoAuxiliary) {
  // On a 4 MiB card each index file is 8139 bytes: the region would start
  // before the file, so no auxiliary is writable whatever the header says.
  TempDir dir;
  CardImage image(dir.file("card.img"), 4194304);
  UseDevice device(image.path());
  image.put32(51328 + 152, 50);
  const std::string before = wholeImage(image.path());
  int result = 0;
  const Captured c = capture([&] {
    result = _tr_maintainChangeAuxCtxNum(51328, 1, 1);
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, kRecHeaderLine);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mauxNum INVALID\x1b[0m\n auxNum: 1\n"
            " maxAuxNumber: 0\n");
  EXPECT_EQ(changedBytes(before, wholeImage(image.path())), ByteChanges());
}

// Failures at each step of the switch on the record index file: auxiliary
// 7, ctxNum 772. The device is left in the state the step allows.
enum class Left {
  kUnchanged,
  kHeaderFirst157,  // a short header write: only byte 156 of the new auxNum
  kHeader,
  kHeaderAndHeadFirst3,  // a short head write: only the low byte
  kBoth,
};

ByteChanges leftChanges(Left left) {
  switch (left) {
    case Left::kUnchanged:
      return {};
    case Left::kHeaderFirst157:
      return {{51484, {0x03, 0x07}}};
    case Left::kHeader:
      return kRecHeaderChange;
    case Left::kHeaderAndHeadFirst3:
      return merged(kRecHeaderChange, {{6714364, {0x02, 0x04}}});
    case Left::kBoth:
      return merged(kRecHeaderChange, kRecHeadChange);
  }
  return {};
}

struct SwitchFault {
  const char* name;
  Fault fault;
  int offsetLines;  // how many of the two offset lines were printed
  const char* err;  // "@DEV": the image, "@FD": the descriptor
  Left left;
};

void PrintTo(const SwitchFault& value, std::ostream* os) { *os << value.name; }

const SwitchFault kSwitchFaults[] = {
    {"OpenDenied", {SysCall::kOpen, 1, -1, EACCES}, 0,
     "<TS> \x1b[31mOPEN FAILED\x1b[0m\n  Device: @DEV\n"
     "  Error: Permission denied (13)\n\n",
     Left::kUnchanged},
    {"HeaderReadSeekFails", {SysCall::kSeek, 1, -1, EIO}, 1,
     "<TS> \x1b[31mREAD LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Offset: 0x000000000000c880\n"
     "  Error: Input/output error (5)\n\n",
     Left::kUnchanged},
    {"HeaderReadMovesNothing", {SysCall::kRead, 1, 0, 0}, 1,
     "<TS> \x1b[31mREAD FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 264 bytes\n  Error: Success (0)\n\n",
     Left::kUnchanged},
    {"HeaderReadComesShort", {SysCall::kRead, 1, 200, 0}, 1,
     "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: 200 bytes\n\n",
     Left::kUnchanged},
    {"HeaderReadErrs", {SysCall::kRead, 1, -1, EIO}, 1,
     "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: -1 bytes\n\n",
     Left::kUnchanged},
    {"HeaderWriteSeekFails", {SysCall::kSeek, 2, -1, EIO}, 1,
     "<TS> \x1b[31mWRITE LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Offset: 0x000000000000c880\n"
     "  Error: Input/output error (5)\n\n",
     Left::kUnchanged},
    {"HeaderWriteMovesNothing", {SysCall::kWrite, 1, 0, ENOSPC}, 1,
     "<TS> \x1b[31mWRITE FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 264 bytes\n  Error: No space left on device (28)\n\n",
     Left::kUnchanged},
    {"HeaderWriteComesShort", {SysCall::kWrite, 1, 157, 0}, 1,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: 157 bytes\n\n",
     Left::kHeaderFirst157},
    {"HeaderWriteErrs", {SysCall::kWrite, 1, -1, EIO}, 1,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 264 bytes\n  Actual: -1 bytes\n\n",
     Left::kUnchanged},
    {"HeadReadSeekFails", {SysCall::kSeek, 3, -1, EIO}, 2,
     "<TS> \x1b[31mREAD LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Offset: 0x00000000006673fa\n"
     "  Error: Input/output error (5)\n\n",
     Left::kHeader},
    {"HeadReadMovesNothing", {SysCall::kRead, 2, 0, 0}, 2,
     "<TS> \x1b[31mREAD FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 8 bytes\n  Error: Success (0)\n\n",
     Left::kHeader},
    {"HeadReadComesShort", {SysCall::kRead, 2, 5, 0}, 2,
     "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n  Device: @DEV\n"
     "  Expected: 8 bytes\n  Actual: 5 bytes\n\n",
     Left::kHeader},
    {"HeadReadErrs", {SysCall::kRead, 2, -1, EIO}, 2,
     "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n  Device: @DEV\n"
     "  Expected: 8 bytes\n  Actual: -1 bytes\n\n",
     Left::kHeader},
    {"HeadWriteSeekFails", {SysCall::kSeek, 4, -1, EINVAL}, 2,
     "<TS> \x1b[31mWRITE LSEEK FAILED\x1b[0m\n  Device: @DEV\n"
     "  Offset: 0x00000000006673fa\n"
     "  Error: Invalid argument (22)\n\n",
     Left::kHeader},
    {"HeadWriteMovesNothing", {SysCall::kWrite, 2, 0, 0}, 2,
     "<TS> \x1b[31mWRITE FAILED\x1b[0m\n  Device: @DEV\n"
     "  Requested: 8 bytes\n  Error: Success (0)\n\n",
     Left::kHeader},
    {"HeadWriteComesShort", {SysCall::kWrite, 2, 3, 0}, 2,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 8 bytes\n  Actual: 3 bytes\n\n",
     Left::kHeaderAndHeadFirst3},
    {"HeadWriteErrs", {SysCall::kWrite, 2, -1, EIO}, 2,
     "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n  Device: @DEV\n"
     "  Expected: 8 bytes\n  Actual: -1 bytes\n\n",
     Left::kHeader},
    {"CloseFails", {SysCall::kClose, 1, -1, EIO}, 2,
     "<TS> \x1b[33mCLOSE WARNING\x1b[0m\n  Device: @DEV\n  FD: @FD\n"
     "  Warning: Input/output error (5)\n  Possible file descriptor leak!\n\n",
     Left::kBoth},
};

class SwitchFaultTest : public testing::TestWithParam<SwitchFault> {};

TEST_P(SwitchFaultTest, ReportsTheStepAndLeavesItsState) {
  const SwitchFault& step = GetParam();
  SwitchCard card;
  const std::string before = card.bytes();
  int result = 0;
  int fd = -1;
  Captured c;
  {
    FaultyDevice faulty(step.fault);
    c = capture([&] { result = _tr_maintainChangeAuxCtxNum(51328, 7, 772); });
    fd = faulty.lastFd();
    EXPECT_EQ(faulty.closed(), faulty.opened());
  }
  EXPECT_EQ(result, -1);
  const std::string lines[] = {"", kRecHeaderLine,
                               std::string(kRecHeaderLine) + kRecHeadLine};
  EXPECT_EQ(c.out, lines[step.offsetLines]);
  EXPECT_EQ(maskTimestamps(c.err),
            expandBlock(step.err, card.image().path(), fd));
  EXPECT_EQ(changedBytes(before, card.bytes()), leftChanges(step.left));

  // The same command once the fault is gone completes the switch.
  capture([&] { result = _tr_maintainChangeAuxCtxNum(51328, 7, 772); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(changedBytes(before, card.bytes()), leftChanges(Left::kBoth));
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, SwitchFaultTest, testing::ValuesIn(kSwitchFaults),
    [](const testing::TestParamInfo<SwitchFault>& p) {
      return std::string(p.param.name);
    });

}  // namespace
}  // namespace test
}  // namespace tr
