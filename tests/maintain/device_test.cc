// The device protocol: one open, a 64-bit seek, one transfer of the record
// size, one close, and a fixed diagnostic block for each failing step. First
// the routines themselves, then every reading command of the console
// failing at its first read, its last read and its close.
#include "base/device.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "maintain/commands.h"
#include "tests/support/device_faults.h"
#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/media_seams.h"

namespace tr {
namespace test {
namespace {

// One access as a reader (`seekTitle` set) or a writing command makes it.
// The blocks of the failing ones, in this order, are
// tests/golden/device_blocks.txt.
struct Access {
  Fault fault;
  uint64_t offset;
  size_t size;
  const char* seekTitle;
  bool showOffset;
};

const Access kAccesses[] = {
    {{SysCall::kOpen, 1, -1, EACCES}, 51328, 264, kSeekTitle, true},
    // Descriptor 0 counts as a failed open, and is closed all the same.
    {{SysCall::kOpen, 1, 0, 0}, 51200, 128, nullptr, false},
    {{SysCall::kSeek, 1, -1, EIO}, 0x123456789ULL, 264, kSeekTitle, true},
    {{SysCall::kSeek, 1, -1, EIO}, 51200, 128, kSeekTitle, false},
    {{SysCall::kSeek, 1, -1, EIO}, 0x123456789ULL, 264, kReadSeekTitle, true},
    {{SysCall::kSeek, 1, -1, EIO}, 0x123456789ULL, 264, nullptr, true},
    {{SysCall::kSeek, 1, -1, EIO}, 51200, 128, nullptr, false},
    // What a wrapped start-up layout gives on a device that is too small.
    {{}, 0xFFFFFFFFFFBE1B40ULL, 8, kSeekTitle, true},
    {{SysCall::kRead, 1, 0, 0}, 51328, 264, kSeekTitle, true},
    {{SysCall::kRead, 1, 100, 0}, 51328, 264, kSeekTitle, true},
    {{SysCall::kRead, 1, -1, EIO}, 51328, 32, kSeekTitle, true},
    {{SysCall::kWrite, 1, 0, ENOSPC}, 51200, 128, nullptr, false},
    {{SysCall::kWrite, 1, 8, 0}, 51328, 264, nullptr, true},
    {{SysCall::kWrite, 1, -1, EIO}, 51328, 8, nullptr, true},
    {{SysCall::kClose, 1, -1, EIO}, 51328, 264, kSeekTitle, true},
    {{}, 51328, 264, kSeekTitle, true},
    {{}, 51328, 264, nullptr, true},
};

TEST(DeviceTest, EachFailingStepPrintsItsBlockAndEveryAccessClosesOnce) {
  TempDir dir;
  CardImage image(dir.file("card.img"), 1 << 20);
  UseDevice device(image.path());
  const int savedStdin = dup(0);  // the descriptor 0 access closes 0
  std::string results;            // result and closes of each access
  int closeFd = -1;
  const Captured c = capture([&] {
    for (const Access& a : kAccesses) {
      FaultyDevice faulty(a.fault);
      char buf[264] = {};
      const bool reads = a.seekTitle != nullptr;
      errno = 0;
      const int fd = _tr_maintainOpenDevice(reads ? DeviceMode::kReadOnly
                                                  : DeviceMode::kReadWrite);
      int result =
          fd == -1 ? -1
          : reads  ? _tr_maintainReadDevice(fd, a.offset, buf, a.size, nullptr,
                                            a.seekTitle, a.showOffset)
                   : _tr_maintainWriteDevice(fd, a.offset, buf, a.size,
                                             a.showOffset);
      if (result == 0) result = _tr_maintainCloseDevice(fd, true);
      if (a.fault.call == SysCall::kClose) closeFd = fd;
      results +=
          std::to_string(result) + "/" + std::to_string(faulty.closed()) + " ";
      dup2(savedStdin, 0);
    }
  });
  ::close(savedStdin);
  EXPECT_EQ(results,
            "-1/0 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 "
            "-1/1 -1/1 0/1 0/1 ");
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(maskTimestamps(c.err),
            expandBlock(golden("device_blocks.txt"), image.path(), closeFd));
}

// Every reading command through the dispatcher, its reader failing at its
// first read (of two), its last read or its close: the command fails,
// prints no record, only the offset label of the record it began to read,
// and closes the device once. The card's index files hold
// maxFileNum 10, maxSegmentNum 100 and maxAuxNumber 50: a record data file
// block is 32 + 100 x 640 = 64032 bytes, a picture one 32 + 100 x 1680 =
// 168032; auxiliary 7 starts at base + 10724586 - 4320800 + 6 x 43208.
struct ReadingCommand {
  std::vector<std::string> words;  // after "maintain"
  int reads;
  size_t lastSize;
  uint64_t label;  // the "targetOffset" printed before the last read, or 0
};

const ReadingCommand kReadingCommands[] = {
    {{"TrellisHead"}, 1, 128, 0},
    {{"recBackUpIndexFileHead"}, 1, 264, 10775914},
    {{"picDataFileHead", "2"}, 2, 32, 21668796},  // 21500500 + 264 + 168032
    // 51328 + 264 + 64032 + 32 + 2 x 640
    {{"recDataFileInfo", "2", "3"}, 2, 640, 116936},
    // 32225086 + 264 + 2 x 168032 + 32 + 11 x 1680
    {{"picBackUpDataFileInfo", "3", "12"}, 2, 1680, 32579926},
    {{"recIndexAuxHead", "7"}, 2, 8, 6714362},
    // context 5 of auxiliary 7, 8 + 4 x 432 into it
    {{"picIndexFileAux", "7", "5"}, 2, 432, 28165270},
    // The listing and the extractions go no further than their segment
    // info: no data file is opened. 21500500 + 264 + 2 x 168032 + 32 +
    // 11 x 1680 for the pictures.
    {{"recIFrameInfo", "2", "3"}, 2, 640, 116936},
    {{"recData", "2", "3"}, 2, 640, 116936},
    {{"picData", "3", "12"}, 2, 1680, 21855340},
    {{"onePic", "3", "12", "1"}, 2, 1680, 21855340},
};

TEST(ReaderFaultTest, EveryReadingCommandStopsAtItsFailingStep) {
  TempDir dir;
  CardImage image(dir.file("card.img"), kCard2G);
  UseDevice device(image.path());
  UseMediaDir media(dir.path());
  const std::string dev = image.path();
  for (uint64_t base :
       {kCard2GRec, kCard2GRecBackUp, kCard2GPic, kCard2GPicBackUp}) {
    putIndexDimensions(image, base, 10, 100, 50);
  }
  for (const ReadingCommand& command : kReadingCommands) {
    const Fault faults[] = {
        {SysCall::kRead, 1, 132, 0},  // half the index file header
        {SysCall::kRead, command.reads, static_cast<long>(command.lastSize / 2),
         0},
        {SysCall::kClose, 1, -1, EIO}};
    for (int step = command.reads == 2 ? 0 : 1; step < 3; ++step) {
      SCOPED_TRACE(command.words[0] + " failing at step " +
                   std::to_string(step));
      std::vector<std::string> words = command.words;
      std::vector<char*> argv;
      for (std::string& word : words) argv.push_back(&word[0]);
      int result = 0;
      FaultyDevice faulty(faults[step]);
      const Captured c = capture([&] {
        result = tr_maintain(static_cast<int>(argv.size()), argv.data());
      });
      EXPECT_EQ(result, -1);
      EXPECT_EQ(faulty.opened(), 1);
      EXPECT_EQ(faulty.closed(), 1);
      EXPECT_EQ(c.out, step == 0 || command.label == 0
                           ? ""
                           : "targetOffset        : \x1b[32m" +
                                 std::to_string(command.label) + "\x1b[0m\n");
      EXPECT_EQ(maskTimestamps(c.err),
                step == 2
                    ? closeWarningBlock(dev, faulty.lastFd(),
                                        "Input/output error (5)")
                    : shortTransferBlock("INCOMPLETE READ", dev,
                                         step == 0 ? 264 : command.lastSize,
                                         faults[step].result));
    }
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
