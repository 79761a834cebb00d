// The device protocol: one open, a 64-bit seek, one transfer of the record
// size, one close. Each failing step prints its own block (the blocks, in
// the order of the accesses below, are tests/golden/device_blocks.txt) and
// every access closes the device exactly once.
#include "base/device.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// One access as a reader (`seekTitle` set) or a writing command makes it.
struct Access {
  Fault fault;
  uint64_t offset;
  size_t size;
  const char* seekTitle;
  bool showOffset;
};

const Access kAccesses[] = {
    {{Call::kOpen, 1, -1, EACCES}, 51328, 264, kSeekTitle, true},
    // Descriptor 0 counts as a failed open, and is closed all the same.
    {{Call::kOpen, 1, 0, 0}, 51200, 128, nullptr, false},
    {{Call::kSeek, 1, -1, EIO}, 0x123456789ULL, 264, kSeekTitle, true},
    {{Call::kSeek, 1, -1, EIO}, 51200, 128, kSeekTitle, false},
    {{Call::kSeek, 1, -1, EIO}, 0x123456789ULL, 264, kReadSeekTitle, true},
    {{Call::kSeek, 1, -1, EIO}, 0x123456789ULL, 264, nullptr, true},
    {{Call::kSeek, 1, -1, EIO}, 51200, 128, nullptr, false},
    // What a wrapped start-up layout gives on a device that is too small.
    {{}, 0xFFFFFFFFFFBE1B40ULL, 8, kSeekTitle, true},
    {{Call::kRead, 1, 0, 0}, 51328, 264, kSeekTitle, true},
    {{Call::kRead, 1, 100, 0}, 51328, 264, kSeekTitle, true},
    {{Call::kRead, 1, -1, EIO}, 51328, 32, kSeekTitle, true},
    {{Call::kWrite, 1, 0, ENOSPC}, 51200, 128, nullptr, false},
    {{Call::kWrite, 1, 8, 0}, 51328, 264, nullptr, true},
    {{Call::kWrite, 1, -1, EIO}, 51328, 8, nullptr, true},
    {{Call::kClose, 1, -1, EIO}, 51328, 264, kSeekTitle, true},
    {{}, 51328, 264, kSeekTitle, true},
    {{}, 51328, 264, nullptr, true},
};

TEST(DeviceTest, EachFailingStepPrintsItsBlockAndEveryAccessClosesOnce) {
  TempDir dir;
  ASSERT_TRUE(sizeFile(dir.file("card.img"), 1 << 20));
  useDevice(dir.file("card.img"));
  const int savedStdin = dup(0);  // the descriptor 0 access closes 0
  std::string results;            // result and closes of each access
  int closeFd = -1;
  const Captured c = capture([&] {
    for (const Access& a : kAccesses) {
      SysFaults faults(a.fault);
      char buf[264] = {};
      const bool reads = a.seekTitle != nullptr;
      errno = 0;
      const int fd = _tr_maintainOpenDevice(reads ? DeviceMode::kReadOnly
                                                  : DeviceMode::kReadWrite);
      int result = fd == -1 ? -1
                   : reads  ? _tr_maintainReadDevice(fd, a.offset, buf, a.size, nullptr,
                                                     a.seekTitle, a.showOffset)
                            : _tr_maintainWriteDevice(fd, a.offset, buf, a.size, a.showOffset);
      if (result == 0) result = _tr_maintainCloseDevice(fd, true);
      if (a.fault.call == Call::kClose) closeFd = fd;
      results += std::to_string(result) + "/" + std::to_string(faults.calls(Call::kClose)) + " ";
      dup2(savedStdin, 0);
    }
  });
  ::close(savedStdin);
  EXPECT_EQ(results,
            "-1/0 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 -1/1 "
            "-1/1 -1/1 0/1 0/1 ");
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(c.err, replaced(replaced(golden("device_blocks.txt"), "@DEV", dir.file("card.img")),
                            "@FD", std::to_string(closeFd)));
}

}  // namespace
}  // namespace test
}  // namespace tr
