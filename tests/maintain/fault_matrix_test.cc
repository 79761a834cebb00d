// Every way a record read can fail, at every transfer of every reader, as
// the console's commands meet them: the open, the seek, a read that moves
// nothing, too little or fails outright, and the close. Each case checks the
// exact diagnostic block, that nothing but the offset labels reached
// standard output (no record is printed from a failed access), that the
// command failed, that the device was closed exactly once and never
// written.
#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include "maintain/commands.h"
#include "tests/support/device_faults.h"
#include "tests/support/index_image.h"
#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// The index files of the 2 GiB card hold maxFileNum 10, maxSegmentNum 100
// and maxAuxNumber 50. A transfer: where it reads, how much, and the offset
// as its seek failure shows it ("" for the fixed storage head, which shows
// none).
struct Transfer {
  uint64_t offset;
  size_t size;
  const char* hex;
};

struct Reader {
  const char* name;
  std::vector<std::string> words;  // after "maintain"
  Transfer first;
  Transfer second;  // size 0: the reader makes one transfer
  // Which transfer prints the green "targetOffset" line before its seek:
  // 1 or 2, or 0 for none.
  int labelled;
};

// Offsets worked out from the layout: a data file block is 32 + 100 x 640
// = 64032 bytes (record) or 32 + 100 x 1680 = 168032 (picture); auxiliary
// 7 starts at base + 10724586 - 4320800 + 6 x 43208.
const Reader kReaders[] = {
    {"TrellisHead", {"TrellisHead"}, {51200, 128, ""}, {0, 0, ""}, 0},
    {"IndexFileHead",
     {"recBackUpIndexFileHead"},
     {10775914, 264, "0x0000000000a46d6a"},
     {0, 0, ""},
     1},
    // 21500500 + 264 + 168032
    {"DataFileHead",
     {"picDataFileHead", "2"},
     {21500500, 264, "0x0000000001481254"},
     {21668796, 32, "0x00000000014aa3bc"},
     2},
    // 51328 + 264 + 64032 + 32 + 2 x 640
    {"RecSegmentInfo",
     {"recDataFileInfo", "2", "3"},
     {51328, 264, "0x000000000000c880"},
     {116936, 640, "0x000000000001c8c8"},
     2},
    // 32225086 + 264 + 2 x 168032 + 32 + 11 x 1680
    {"PicSegmentInfo",
     {"picBackUpDataFileInfo", "3", "12"},
     {32225086, 264, "0x0000000001ebb73e"},
     {32579926, 1680, "0x0000000001f12156"},
     2},
    {"AuxHead",
     {"recIndexAuxHead", "7"},
     {51328, 264, "0x000000000000c880"},
     {6714362, 8, "0x00000000006673fa"},
     2},
    // auxiliary 7 of the picture file, then 8 + 4 x 432 to context 5
    {"AuxContext",
     {"picIndexFileAux", "7", "5"},
     {21500500, 264, "0x0000000001481254"},
     {28165270, 432, "0x0000000001adc496"},
     2},
};

enum class Step { kOpen, kSeek, kReadNothing, kReadShort, kReadError, kClose };

const char* stepName(Step step) {
  switch (step) {
    case Step::kOpen:
      return "OpenFails";
    case Step::kSeek:
      return "SeekFails";
    case Step::kReadNothing:
      return "ReadMovesNothing";
    case Step::kReadShort:
      return "ReadComesShort";
    case Step::kReadError:
      return "ReadErrs";
    case Step::kClose:
      return "CloseFails";
  }
  return "";
}

struct Case {
  const Reader* reader;
  Step step;
  int transfer;  // 1 or 2 for the seek and read steps

  std::string name() const {
    std::string text = std::string(reader->name) + "_" + stepName(step);
    if (transfer != 0) text += transfer == 1 ? "AtFirst" : "AtSecond";
    return text;
  }
  const Transfer& at() const {
    return transfer == 2 ? reader->second : reader->first;
  }
  // The fault: the n-th seek or read of the access is the transfer's own.
  Fault fault() const {
    switch (step) {
      case Step::kOpen:
        return {SysCall::kOpen, 1, -1, EACCES};
      case Step::kSeek:
        return {SysCall::kSeek, transfer, -1, EIO};
      case Step::kReadNothing:
        return {SysCall::kRead, transfer, 0, 0};
      case Step::kReadShort:
        return {SysCall::kRead, transfer, static_cast<long>(at().size / 2), 0};
      case Step::kReadError:
        return {SysCall::kRead, transfer, -1, EIO};
      case Step::kClose:
        return {SysCall::kClose, 1, -1, EIO};
    }
    return {};
  }
  std::string block(const std::string& device, int fd) const {
    switch (step) {
      case Step::kOpen:
        return openFailedBlock(device, "Permission denied (13)");
      case Step::kSeek:
        return seekFailedBlock("LSEEK FAILED", device, at().hex,
                               "Input/output error (5)");
      case Step::kReadNothing:
        return nothingMovedBlock("READ FAILED", device, at().size,
                                 "Success (0)");
      case Step::kReadShort:
        return shortTransferBlock("INCOMPLETE READ", device, at().size,
                                  static_cast<long>(at().size / 2));
      case Step::kReadError:
        return shortTransferBlock("INCOMPLETE READ", device, at().size, -1);
      case Step::kClose:
        return closeWarningBlock(device, fd, "Input/output error (5)");
    }
    return "";
  }
  // The label is printed before its transfer's seek, so it shows when that
  // transfer or anything after it fails.
  std::string labelLine() const {
    if (reader->labelled == 0 || step == Step::kOpen) return "";
    const int reached = step == Step::kClose ? 2 : transfer;
    if (reached < reader->labelled) return "";
    const Transfer& labelled =
        reader->labelled == 2 ? reader->second : reader->first;
    return "targetOffset        : \x1b[32m" + std::to_string(labelled.offset) +
           "\x1b[0m\n";
  }
};

// Test names and failure messages show the case by name.
void PrintTo(const Case& k, std::ostream* os) { *os << k.name(); }

std::vector<Case> allCases() {
  std::vector<Case> cases;
  for (const Reader& reader : kReaders) {
    cases.push_back({&reader, Step::kOpen, 0});
    const int transfers = reader.second.size == 0 ? 1 : 2;
    for (int t = 1; t <= transfers; ++t) {
      for (Step step : {Step::kSeek, Step::kReadNothing, Step::kReadShort,
                        Step::kReadError}) {
        cases.push_back({&reader, step, t});
      }
    }
    cases.push_back({&reader, Step::kClose, 0});
  }
  return cases;
}

int gWrites = 0;

ssize_t countingWrite(int fd, const void* buf, size_t count) {
  ++gWrites;
  return kSystemCalls.write(fd, buf, count);
}

// A 2 GiB card with the four index file headers in place.
class FaultCard {
 public:
  FaultCard() : image_(dir_.file("card.img"), kCard2G), device_(image_.path()) {
    for (uint64_t base :
         {kCard2GRec, kCard2GRecBackUp, kCard2GPic, kCard2GPicBackUp}) {
      putIndexDimensions(image_, base, 10, 100, 50);
    }
  }
  const CardImage& image() const { return image_; }
  const std::string& path() const { return image_.path(); }
  const std::string& dir() const { return dir_.path(); }

  // "maintain <words>" through the dispatcher, in this process.
  Captured dispatch(const std::vector<std::string>& words, int* result) const {
    std::vector<std::string> texts = words;
    std::vector<char*> argv;
    for (std::string& text : texts) argv.push_back(&text[0]);
    return capture([&] {
      *result = tr_maintain(static_cast<int>(argv.size()), argv.data());
    });
  }

 private:
  TempDir dir_;
  CardImage image_;
  UseDevice device_;
};

class ReaderFaultTest : public testing::TestWithParam<Case> {};

TEST_P(ReaderFaultTest, ReportsTheStepAndPrintsNoRecord) {
  const Case& k = GetParam();
  FaultCard card;
  int result = 0;
  int fd = -1;
  Captured c;
  {
    FaultyDevice faulty(k.fault());
    gWrites = 0;
    sys.write = countingWrite;
    c = card.dispatch(k.reader->words, &result);
    fd = faulty.lastFd();
    EXPECT_EQ(faulty.opened(), k.step == Step::kOpen ? 0 : 1);
    EXPECT_EQ(faulty.closed(), faulty.opened());
    EXPECT_EQ(gWrites, 0);
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, k.labelLine());
  EXPECT_EQ(maskTimestamps(c.err), k.block(card.path(), fd));
}

INSTANTIATE_TEST_SUITE_P(EveryTransfer, ReaderFaultTest,
                         testing::ValuesIn(allCases()),
                         [](const testing::TestParamInfo<Case>& param) {
                           return param.param.name();
                         });

// The media commands read their segment info first; when that read fails
// at its last step (the segment info came in whole, but the close failed)
// or earlier, no data file is opened and no output made.
struct MediaCommand {
  const char* name;
  std::vector<std::string> words;
  const char* label;  // the segment info's targetOffset line
};

const MediaCommand kMediaCommands[] = {
    {"IFrameListing",
     {"recIFrameInfo", "2", "3"},
     "targetOffset        : \x1b[32m116936\x1b[0m\n"},
    {"RecordSegment",
     {"recData", "2", "3"},
     "targetOffset        : \x1b[32m116936\x1b[0m\n"},
    // 21500500 + 264 + 2 x 168032 + 32 + 11 x 1680
    {"PictureSegment",
     {"picData", "3", "12"},
     "targetOffset        : \x1b[32m21855340\x1b[0m\n"},
    {"OnePicture",
     {"onePic", "3", "12", "1"},
     "targetOffset        : \x1b[32m21855340\x1b[0m\n"},
};

void PrintTo(const MediaCommand& command, std::ostream* os) {
  *os << command.name;
}

class MediaReaderFaultTest : public testing::TestWithParam<MediaCommand> {};

TEST_P(MediaReaderFaultTest, NoDataFileIsTouched) {
  const MediaCommand& command = GetParam();
  FaultCard card;
  UseMediaDir media(card.dir());
  // Segments in use, with data files to copy from, had the read succeeded.
  const CardImage& image = card.image();
  image.put8(116936 + 7, 1);
  image.put64(116936 + 16, 10);  // datalen
  image.put64(116936 + 32, 64);  // iFrameInfoSize
  image.put8(21855340 + 7, 1);
  image.put64(21855340 + 24, 10);  // fragmentSize
  image.put32(21855340 + 48, 10);  // jpgSize of picture 1
  image.put8(21855340 + 1632, 1);  // validNum
  writeFile(card.dir() + "/TR00002.mp4", std::string(100, 'r'));
  writeFile(card.dir() + "/TR00003.picture", std::string(100, 'p'));

  const struct {
    Fault fault;
    const char* title;
  } failures[] = {{{SysCall::kRead, 2, 7, 0}, "INCOMPLETE READ"},
                  {{SysCall::kClose, 1, -1, EIO}, "CLOSE WARNING"}};
  for (const auto& failure : failures) {
    SCOPED_TRACE(failure.title);
    int result = 0;
    Captured c;
    {
      SysLedger ledger;
      FaultyDevice faulty(failure.fault);
      c = card.dispatch(command.words, &result);
      EXPECT_EQ(ledger.freadRequests().size(), 0u);
      EXPECT_EQ(ledger.mallocRequests().size(), 0u);
      EXPECT_EQ(ledger.openStreams(), 0);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.out, command.label);
    EXPECT_NE(c.err.find(failure.title), std::string::npos) << c.err;
    // No output of any of the names the commands write.
    for (const char* output : {"00002_0003.mp4", "00003_0012.jpg",
                               "00003_0012_01.jpg"}) {
      EXPECT_FALSE(fileExists(card.dir() + "/" + output)) << output;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    AllMediaCommands, MediaReaderFaultTest, testing::ValuesIn(kMediaCommands),
    [](const testing::TestParamInfo<MediaCommand>& param) {
      return std::string(param.param.name);
    });

}  // namespace
}  // namespace test
}  // namespace tr
