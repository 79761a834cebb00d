#include "maintain/device.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "format/index_file_head.h"
#include "format/trellis_head.h"
#include "maintain/commands.h"
#include "maintain/platform.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// A device that exists only in these tests: every call does what the test
// set up and is counted, so a leaked or doubly closed descriptor shows.
struct FakeDevice {
  int openResult = 7;
  int openErrno = 0;
  bool seekFails = false;
  int seekErrno = 0;
  ssize_t readResult = -2;  // -2: the full count asked for
  int readErrno = 0;
  ssize_t writeResult = -2;
  int writeErrno = 0;
  int closeResult = 0;
  int closeErrno = 0;

  int openFlags = -1;
  int seekCalls = 0;
  int64_t lastSeek = -1;
  int readCalls = 0;
  int writeCalls = 0;
  std::vector<int> closed;
};

FakeDevice fake;

ssize_t transferResult(ssize_t configured, size_t count, int error) {
  if (configured == -2) return static_cast<ssize_t>(count);
  if (configured <= 0) errno = error;
  return configured;
}

void installFake() {
  sys.open = [](const char*, int flags) {
    fake.openFlags = flags;
    errno = fake.openErrno;
    return fake.openResult;
  };
  sys.lseek = [](int, int64_t offset) -> int64_t {
    ++fake.seekCalls;
    fake.lastSeek = offset;
    if (!fake.seekFails) return offset;
    errno = fake.seekErrno;
    return -1;
  };
  sys.read = [](int, void* buf, size_t count) {
    ++fake.readCalls;
    const ssize_t got = transferResult(fake.readResult, count, fake.readErrno);
    if (got > 0) std::memset(buf, 0xAB, static_cast<size_t>(got));
    return got;
  };
  sys.write = [](int, const void*, size_t count) {
    ++fake.writeCalls;
    return transferResult(fake.writeResult, count, fake.writeErrno);
  };
  sys.close = [](int fd) {
    fake.closed.push_back(fd);
    if (fake.closeResult != 0) errno = fake.closeErrno;
    return fake.closeResult;
  };
}

class DeviceTest : public testing::Test {
 protected:
  DeviceTest() : savedDevice_(deviceName) {
    fake = FakeDevice();
    installFake();
    setDevicePath("/dev/fake0");
  }
  ~DeviceTest() override { setDevicePath(savedDevice_); }

  // One read-only access with a read of `size` bytes at `offset`, as a
  // record reader does it.
  Captured readAccess(uint64_t offset, size_t size, const char* label,
                      const char* seekTitle, bool showOffset, int* result) {
    return capture([&] {
      char buffer[264];
      const int fd = _tr_maintainOpenDevice(DeviceMode::kReadOnly);
      *result = fd;
      if (fd == -1) return;
      *result = _tr_maintainReadDevice(fd, offset, buffer, size, label,
                                       seekTitle, showOffset);
      if (*result == 0) *result = _tr_maintainCloseDevice(fd, true);
    });
  }

  Captured writeAccess(uint64_t offset, size_t size, bool showOffset,
                       int* result) {
    return capture([&] {
      const char buffer[264] = {};
      const int fd = _tr_maintainOpenDevice(DeviceMode::kReadWrite);
      *result = fd;
      if (fd == -1) return;
      *result = _tr_maintainWriteDevice(fd, offset, buffer, size, showOffset);
      if (*result == 0) *result = _tr_maintainCloseDevice(fd, true);
    });
  }

  SysOverride restoreSys_;
  std::string savedDevice_;
};

TEST_F(DeviceTest, OpenFailurePrintsItsBlockAndClosesNothing) {
  fake.openResult = -1;
  fake.openErrno = ENOENT;
  int result = 0;
  const Captured c =
      readAccess(51328, 264, "targetOffset", kSeekTitle, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mOPEN FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Error: No such file or directory (2)\n\n");
  EXPECT_EQ(fake.openFlags, O_RDONLY);
  EXPECT_EQ(fake.seekCalls, 0);
  EXPECT_TRUE(fake.closed.empty());
}

TEST_F(DeviceTest, DescriptorZeroIsAnOpenFailureAndIsNotKept) {
  fake.openResult = 0;
  int result = 0;
  const Captured c = writeAccess(51200, 128, false, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mOPEN FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Error: Success (0)\n\n");
  EXPECT_EQ(fake.openFlags, O_RDWR);
  EXPECT_EQ(fake.closed, std::vector<int>{0});
  EXPECT_EQ(fake.writeCalls, 0);
}

TEST_F(DeviceTest, SeekFailureCarriesTheTitleAndOffsetItWasGiven) {
  fake.seekFails = true;
  fake.seekErrno = EIO;
  const uint64_t above4G = 0x123456789ULL;
  const std::string offsetLine = "  Offset: 0x0000000123456789\n";
  const std::string tail = "  Error: Input/output error (5)\n\n";
  int result = 0;

  // The label is printed before the seek, so it shows even when it fails.
  Captured c =
      readAccess(above4G, 264, "targetOffset", kSeekTitle, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "targetOffset        : \x1b[32m4886718345\x1b[0m\n");
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n" +
                offsetLine + tail);
  EXPECT_EQ(fake.lastSeek, 4886718345LL);  // all 64 bits reach the seek

  c = readAccess(51200, 128, nullptr, kSeekTitle, false, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n" +
                tail);

  c = readAccess(above4G, 264, nullptr, kReadSeekTitle, true, &result);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mREAD LSEEK FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n" +
                offsetLine + tail);

  c = writeAccess(above4G, 264, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mWRITE LSEEK FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n" +
                offsetLine + tail);
  c = writeAccess(51200, 128, false, &result);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mWRITE LSEEK FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n" +
                tail);

  EXPECT_EQ(fake.readCalls, 0);
  EXPECT_EQ(fake.writeCalls, 0);
  EXPECT_EQ(fake.closed, std::vector<int>(5, 7));  // once per access
}

TEST_F(DeviceTest, OffsetBeyondTheSignedRangeFailsWithoutSeeking) {
  // What a wrapped start-up layout produces on a device that is too small.
  int result = 0;
  const Captured c =
      readAccess(0xFFFFFFFFFFBE1B40ULL, 8, nullptr, kSeekTitle, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Offset: 0xffffffffffbe1b40\n"
            "  Error: Invalid argument (22)\n\n");
  EXPECT_EQ(fake.seekCalls, 0);
  EXPECT_EQ(fake.closed.size(), 1u);
}

TEST_F(DeviceTest, ReadThatMovesNothingOrTooLittleIsReported) {
  int result = 0;
  fake.readResult = 0;
  Captured c = readAccess(51328, 264, nullptr, kSeekTitle, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mREAD FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Requested: 264 bytes\n"
            "  Error: Success (0)\n\n");

  fake.readResult = 100;
  c = readAccess(51328, 264, nullptr, kSeekTitle, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Expected: 264 bytes\n"
            "  Actual: 100 bytes\n\n");

  fake.readResult = -1;
  fake.readErrno = EIO;
  c = readAccess(51328, 32, nullptr, kSeekTitle, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mINCOMPLETE READ\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Expected: 32 bytes\n"
            "  Actual: -1 bytes\n\n");

  EXPECT_EQ(fake.readCalls, 3);  // a short read is not retried
  EXPECT_EQ(fake.closed, std::vector<int>(3, 7));
}

TEST_F(DeviceTest, WriteThatMovesNothingOrTooLittleIsReported) {
  int result = 0;
  fake.writeResult = 0;
  fake.writeErrno = ENOSPC;
  Captured c = writeAccess(51200, 128, false, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mWRITE FAILED\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Requested: 128 bytes\n"
            "  Error: No space left on device (28)\n\n");

  fake.writeResult = 8;
  c = writeAccess(51328, 264, true, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Expected: 264 bytes\n"
            "  Actual: 8 bytes\n\n");

  fake.writeResult = -1;
  fake.writeErrno = EIO;
  c = writeAccess(51328, 8, true, &result);
  EXPECT_EQ(maskTimestamps(c.err),
            "<TS> \x1b[31mINCOMPLETE WRITE\x1b[0m\n"
            "  Device: /dev/fake0\n"
            "  Expected: 8 bytes\n"
            "  Actual: -1 bytes\n\n");

  EXPECT_EQ(fake.writeCalls, 3);
  EXPECT_EQ(fake.closed, std::vector<int>(3, 7));
}

TEST_F(DeviceTest, GoodAccessesCloseOnceAndQuietly) {
  int result = -1;
  Captured c = readAccess(51328, 264, nullptr, kSeekTitle, true, &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.err, "");
  c = writeAccess(51328, 264, true, &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.err, "");
  EXPECT_EQ(fake.closed, std::vector<int>(2, 7));

  // The quiet close ignores a failing close entirely.
  fake.closeResult = -1;
  fake.closeErrno = EIO;
  c = capture([&] { result = _tr_maintainCloseDevice(7, false); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.err, "");
}

TEST_F(DeviceTest, FailingCloseAfterAGoodReadFailsTheCommand) {
  fake.openResult = 9;
  fake.closeResult = -1;
  fake.closeErrno = EIO;
  const std::string warning =
      "<TS> \x1b[33mCLOSE WARNING\x1b[0m\n"
      "  Device: /dev/fake0\n"
      "  FD: 9\n"
      "  Warning: Input/output error (5)\n"
      "  Possible file descriptor leak!\n\n";

  tr_IndexFileHead header;
  int result = 0;
  Captured c =
      capture([&] { result = _tr_maintainGetIndexFileHeader(51328, &header); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "targetOffset        : \x1b[32m51328\x1b[0m\n");
  EXPECT_EQ(maskTimestamps(c.err), warning);

  // Through the dispatcher: the storage head was read whole, but nothing of
  // it is printed.
  char word[] = "TrellisHead";
  char* words[] = {word};
  c = capture([&] { result = tr_maintain(1, words); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(maskTimestamps(c.err), warning);
  EXPECT_EQ(fake.lastSeek, 51200);
  EXPECT_EQ(fake.closed, std::vector<int>(2, 9));
}

}  // namespace
}  // namespace test
}  // namespace tr
