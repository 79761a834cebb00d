#include "extract/segment_extract.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Index files with maxFileNum 10 and maxSegmentNum 100. Record segment
// (1, 1) lies at 51328 + 264 + 32 = 51624; picture segment (3, 12) at
// 21500500 + 264 + 2 x 168032 + 32 + 11 x 1680 = 21855340.
constexpr uint64_t kRecSegment11 = 51624;
constexpr uint64_t kPicSegment312 = 21855340;

std::string pattern(size_t size, uint32_t seed) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) {
    seed = seed * 1103515245u + 12345u;
    bytes[i] = static_cast<char>(seed >> 16);
  }
  return bytes;
}

class SegmentExtractTest : public testing::Test {
 protected:
  SegmentExtractTest() : card_(dir_.file("card.img"), kCard2G) {
    for (uint64_t base : {kCard2GRec, kCard2GPic}) {
      card_.put32(base + 144, 10);
      card_.put32(base + 148, 100);
    }
  }
  // dataOffset and datalen (bytes 8 and 16) of record segment (1, 1).
  void recSegment(uint64_t start, uint64_t length) {
    card_.put8(kRecSegment11 + 7, 1);
    card_.put64(kRecSegment11 + 8, start);
    card_.put64(kRecSegment11 + 16, length);
  }
  RunResult run(const std::string& command) {
    return runConsole("maintain " + command + "\n",
                      {{"TRELLIS_DEVICE", card_.path()},
                       {"TRELLIS_MEDIA_DIR", dir_.path()}});
  }
  std::string recOut() const { return dir_.file("00001_0001.mp4"); }

  TempDir dir_;
  CardImage card_;
};

constexpr char kRecTarget[] = "targetOffset        : \x1b[32m51624\x1b[0m\n";

TEST_F(SegmentExtractTest, CopiesExactlyTheSegmentReplacingAnOldOutput) {
  const std::string data = pattern(4194305 + 1100, 1);
  writeFile(dir_.file("TR00001.mp4"), data);
  for (uint64_t length : {0ULL, 4194304ULL, 4194305ULL}) {
    SCOPED_TRACE(length);
    writeFile(recOut(), std::string(5000000, 'o'));
    recSegment(1000, length);
    const RunResult r = run("recData 1 1");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(commandOutput(r.out),
              kRecTarget + std::string("[SUCCESS] Extracted ") +
                  std::to_string(length) + " bytes to " + recOut() + "\n");
    EXPECT_TRUE(readFile(recOut()) == data.substr(1000, length));
  }
}

TEST_F(SegmentExtractTest, ShortDataFileKeepsTheCopiedPart) {
  const std::string data = pattern(1000 + 4194304 + 400, 2);
  writeFile(dir_.file("TR00001.mp4"), data);
  recSegment(1000, 4194304 + 1000);
  const RunResult r = run("recData 1 1");
  EXPECT_EQ(commandOutput(r.out), kRecTarget);
  EXPECT_EQ(r.err,
            "[ERROR] Unexpected EOF (remaining: 600 bytes)\n"
            "[ERROR] Incomplete extraction (missing: 600 bytes)\n");
  EXPECT_TRUE(readFile(recOut()) == data.substr(1000));
}

TEST_F(SegmentExtractTest, PictureFragmentBeyondFourGiB) {
  CardImage data(dir_.file("TR00003.picture"), 4294967296ULL + 20000);
  const std::string fragment = pattern(300, 3);
  data.putText(4294971397ULL, fragment);
  card_.put8(kPicSegment312 + 7, 1);
  card_.put64(kPicSegment312 + 16, 4294971397ULL);
  card_.put64(kPicSegment312 + 24, 300);
  const RunResult r = run("picData 3 12");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(commandOutput(r.out),
            "targetOffset        : \x1b[32m21855340\x1b[0m\n"
            "[SUCCESS] Extracted 300 bytes to " + dir_.file("00003_0012.jpg") + "\n");
  EXPECT_TRUE(readFile(dir_.file("00003_0012.jpg")) == fragment);
}

TEST_F(SegmentExtractTest, FailuresBeforeTheCopyCreateNoOutput) {
  RunResult r = run("recData 1 1");
  EXPECT_EQ(commandOutput(r.out),
            kRecTarget + std::string("[ERROR] _tr_maintainGetRecDataToFile "
                                     "This segment has no data\n"));
  r = run("picData 3 12");
  EXPECT_NE(r.out.find("[ERROR] _tr_maintainGetJpgDataToFile This segment "
                       "has no data\n"),
            std::string::npos);

  recSegment(10, 20);
  r = run("recData 1 1");
  EXPECT_EQ(r.err, "[ERROR] Failed to open source file: " +
                       dir_.file("TR00001.mp4") + "\n");

  writeFile(dir_.file("TR00001.mp4"), pattern(100, 4));
  recSegment(9223372036854775808ULL, 20);
  r = run("recData 1 1");
  EXPECT_EQ(r.err, "[ERROR] Seek failed at offset 9223372036854775808\n");
  EXPECT_FALSE(fileExists(recOut()));

  recSegment(10, 20);
  ASSERT_EQ(mkdir(recOut().c_str(), 0755), 0);
  r = run("recData 1 1");
  EXPECT_EQ(r.err, "[ERROR] Failed to create output file: " + recOut() + "\n");
  EXPECT_EQ(commandOutput(r.out), kRecTarget);
}

TEST_F(SegmentExtractTest, FullFileSystemNeverReportsSuccess) {
  writeFile(dir_.file("TR00001.mp4"), pattern(6000, 5));
  recSegment(1000, 5000);
  ASSERT_EQ(symlink("/dev/full", recOut().c_str()), 0);
  const RunResult r = run("recData 1 1");
  EXPECT_EQ(commandOutput(r.out), kRecTarget);
  EXPECT_EQ(r.err,
            "[ERROR] Write operation failed: No space left on device\n"
            "[ERROR] Incomplete extraction (missing: 5000 bytes)\n");
}

// In-process: the copy's calls as they reach tr::sys.
class SegmentCopyTest : public testing::Test {
 protected:
  SegmentCopyTest() : media_(dir_.path()) {
    writeFile(dir_.file("TR00001.mp4"), pattern(4194305 + 10, 6));
    std::memset(&info_, 0, sizeof info_);
    info_.inUse = 1;
    info_.dataOffset = 10;
    info_.datalen = 4194305;
  }
  Captured extract(int* result) {
    return capture([&] { *result = _tr_maintainGetRecDataToFile(&info_, 1, 1); });
  }

  TempDir dir_;
  UseMediaDir media_;
  tr_RecDataFileInfo info_;
};

TEST_F(SegmentCopyTest, StreamsThroughOneBufferAndReleasesIt) {
  SysLedger ledger;
  int result = -1;
  extract(&result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(ledger.mallocRequests(), std::vector<size_t>{4194304});
  EXPECT_EQ(ledger.freadRequests(), (std::vector<size_t>{4194304, 1}));
  EXPECT_EQ(ledger.openStreams(), 0);
  EXPECT_EQ(ledger.liveBlocks(), 0);
}

TEST_F(SegmentCopyTest, FailedCallsAreReportedAndNothingLeaks) {
  int result = 0;
  {
    SysLedger ledger;
    ledger.failMalloc();
    const Captured c = extract(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.err, "[ERROR] Memory allocation failed (4MB request)\n");
    EXPECT_TRUE(fileExists(dir_.file("00001_0001.mp4")));
    EXPECT_EQ(readFile(dir_.file("00001_0001.mp4")), "");
    EXPECT_EQ(ledger.openStreams(), 0);
  }
  {
    SysLedger ledger;
    ledger.failFread(EIO);
    const Captured c = extract(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.err,
              "[ERROR] Read operation failed: Input/output error\n"
              "[ERROR] Incomplete extraction (missing: 4194305 bytes)\n");
    EXPECT_EQ(ledger.openStreams(), 0);
    EXPECT_EQ(ledger.liveBlocks(), 0);
  }
  {
    SysLedger ledger;
    ledger.failOutputClose();
    const Captured c = extract(&result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(c.err, "[ERROR] Write operation failed: Input/output error\n");
    EXPECT_EQ(ledger.openStreams(), 0);
  }
}

// A long copy on a terminal shows a progress line, redrawn at most five
// times a second and wiped before the final message.
TEST_F(SegmentCopyTest, ProgressLineOnlyOnATerminal) {
  SysOverride restore;
  CardImage big(dir_.file("TR00002.mp4"), 72 * 1048576);
  ASSERT_EQ(symlink("/dev/null", dir_.file("00002_0001.mp4").c_str()), 0);
  info_.dataOffset = 0;
  info_.datalen = 72 * 1048576;
  sys.fread = [](void* buf, size_t size, size_t count, FILE* stream) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return kSystemCalls.fread(buf, size, count, stream);
  };
  int result = -1;
  Captured c = capture([&] { result = _tr_maintainGetRecDataToFile(&info_, 2, 1); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(c.err, "");

  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  const auto begin = std::chrono::steady_clock::now();
  c = capture([&] {
    const int saved = dup(2);
    dup2(slave, 2);
    result = _tr_maintainGetRecDataToFile(&info_, 2, 1);
    dup2(saved, 2);
    close(saved);
  });
  const double seconds = std::chrono::duration<double>(
                             std::chrono::steady_clock::now() - begin).count();
  close(slave);
  // With no slave left open, the master reads what was drawn, then fails.
  std::string text;
  char screen[4096];
  for (ssize_t got; (got = read(master, screen, sizeof screen)) > 0;) {
    text.append(screen, static_cast<size_t>(got));
  }
  close(master);
  EXPECT_NE(text.find(" of 75497472 bytes ("), std::string::npos) << text;
  const size_t draws = static_cast<size_t>(std::count(text.begin(), text.end(), '\r')) - 2;
  EXPECT_GE(draws, 1u);
  EXPECT_LE(draws, static_cast<size_t>(seconds * 5) + 1);
  const size_t wipe = text.find_last_of('\r', text.size() - 2);
  EXPECT_EQ(text.substr(wipe + 1, text.size() - wipe - 2),
            std::string(text.size() - wipe - 2, ' '));
  EXPECT_EQ(text.back(), '\r');
  EXPECT_EQ(c.out, "[SUCCESS] Extracted 75497472 bytes to " +
                       dir_.file("00002_0001.mp4") + "\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
