// The console on a real block device: a 64 MiB card image attached to a
// loop device, measured with the block-device size request, read, repaired
// and copied from through the kernel's block layer; once through the
// TRELLIS_* variables and once, in a private mount namespace, as the
// recorder's own "/dev/mmc0" and "/mnt/sd/". Both need root (and the second
// a kernel that allows unshare -m); elsewhere they skip and say why. The
// card's layout is in tests/golden/startup_64m.txt: the record index file
// at 51328.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class BlockDeviceTest : public testing::Test {
 protected:
  // A record index file header whose data file 2 lies far beyond the card
  // (blocks of 32 + 4000000 x 640 = 2560000032 bytes), and segment (1, 1) at
  // 51328 + 264 + 32: five bytes from byte 3 of TR00001.mp4.
  BlockDeviceTest() : image_(dir_.file("card.img"), 67108864) {
    putIndexDimensions(image_, 51328, 7, 4000000, 100);
    image_.put8(51328 + 7, 1);           // kind
    image_.putText(51624, "DF_INFO\1");  // magic, in use
    image_.put64(51624 + 8, 3);          // dataOffset
    image_.put64(51624 + 16, 5);         // datalen
    ::mkdir(dir_.file("media").c_str(), 0755);
    writeFile(dir_.file("media/TR00001.mp4"), "xyzhello");
    writeFile(dir_.file("input"),
              "maintain recIndexFileHead\nmaintain recException\n"
              "maintain recData 1 1\nmaintain recDataFileHead 2\n");
  }
  ~BlockDeviceTest() override { detach(); }

  void SetUp() override {
    if (::geteuid() != 0)
      GTEST_SKIP() << "needs root (uid " << ::geteuid() << ")";
    const RunResult r = sh("losetup --find --show '" + image_.path() + "'");
    if (r.status == 0 && r.out.rfind("/dev/", 0) == 0)
      loop_ = r.out.substr(0, r.out.find('\n'));
    if (loop_.empty())
      GTEST_SKIP() << "losetup cannot attach a loop device: " << r.err;
  }

  // `script` run by the host's shell, outside TRELLIS_TEST_EXEC_WRAPPER (a
  // checker such as valgrind would report on the tools); the script hands
  // the wrapper to the console itself.
  RunResult sh(const std::string& script) {
    writeFile(dir_.file("script"), script);
    const std::string command =
        "sh '" + dir_.file("script") + "' 2>'" + dir_.file("err") + "'";
    FILE* pipe = popen(command.c_str(), "r");
    RunResult r;
    char buffer[4096];
    for (size_t n; pipe && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
      r.out.append(buffer, n);
    const int status = pipe == nullptr ? -1 : pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.err = readFile(dir_.file("err"));
    return r;
  }

  // True when the loop device was flushed and detached. The console closes
  // without a flush, and another opener such as udev may keep the device
  // busy past its close: the flush pushes the console's writes through to
  // the image file before the test looks at it.
  bool detach() {
    const bool done = loop_.empty() || sh("blockdev --flushbufs " + loop_ +
                                          " && losetup --detach " + loop_)
                                               .status == 0;
    loop_.clear();
    return done;
  }

  // The console started by the script `launch` ends with; `device` and
  // `media` are the names it uses.
  void runAndCheck(const std::string& launch, const std::string& device,
                   const std::string& media) {
    const std::string before = image_.read(51328, 264);
    const RunResult r = sh(
        "export TZ=UTC\nunset NO_COLOR TRELLIS_DEVICE TRELLIS_MEDIA_DIR\n" +
        launch + "exec $TRELLIS_TEST_EXEC_WRAPPER " TRELLIS_MAINTAIN_BIN " <'" +
        dir_.file("input") + "'\nEND\n");
    ASSERT_TRUE(detach()) << "flushing and detaching the loop device";
    if (r.status == 77) GTEST_SKIP() << "no private mount namespace: " << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> parts = splitAtPrompts(r.out);
    ASSERT_EQ(parts.size(), 6u) << r.out;
    // A block device is measured by the size request, not by its inode.
    EXPECT_EQ(parts[0], golden("startup_64m.txt"));
    EXPECT_EQ(parts[1].rfind("targetOffset        : \x1b[32m51328\x1b[0m\n", 0),
              0u);
    EXPECT_EQ(parts[2],
              "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n");
    EXPECT_EQ(parts[3],
              "targetOffset        : \x1b[32m51624\x1b[0m\n"
              "[SUCCESS] Extracted 5 bytes to " +
                  media + "00001_0001.mp4\n");
    EXPECT_EQ(readFile(dir_.file("media/00001_0001.mp4")), "hello");
    // Data file 2 at 51328 + 264 + 2560000032 = 2560051624 (0x989749a8) is
    // past the end: a block device refuses the seek itself.
    EXPECT_EQ(parts[4], "targetOffset        : \x1b[32m2560051624\x1b[0m\n");
    EXPECT_EQ(maskTimestamps(r.err),
              "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n  Device: " + device +
                  "\n  Offset: 0x00000000989749a8\n  Error: Invalid argument "
                  "(22)\n\n");
    // Written through the device: the magic word cleared, nothing else.
    EXPECT_EQ(image_.read(51328, 264), std::string(7, '\0') + before.substr(7));
  }

  TempDir dir_;
  CardImage image_;
  std::string loop_;
};

TEST_F(BlockDeviceTest, MeasuresReadsAndRepairsALoopDevice) {
  const std::string loop = loop_;
  runAndCheck("sh <<'END'\nTRELLIS_DEVICE=" + loop +
                  " TRELLIS_MEDIA_DIR=" + dir_.file("media") + " \\\n",
              loop, dir_.file("media/"));
}

// Inside the namespace only: a /dev holding just the card as "mmc0", and
// the media directory at /mnt/sd. Status 77: the namespace could not be
// set up, which is no failure of the console.
TEST_F(BlockDeviceTest, WithoutVariablesUsesDevMmc0AndMntSd) {
  struct stat st;
  ASSERT_EQ(::stat(loop_.c_str(), &st), 0) << loop_;
  runAndCheck(
      formatString(
          "unshare --mount true || exit 77\nunshare --mount sh <<'END'\n"
          "fail() { echo \"cannot $1\" >&2; exit 77; }\n"
          "mount -t tmpfs -o mode=755 trellis-dev /dev || fail 'mount /dev'\n"
          "mknod -m 600 /dev/mmc0 b %u %u || fail 'create /dev/mmc0'\n"
          "mknod -m 666 /dev/null c 1 3 || fail 'create /dev/null'\n"
          "mount -t tmpfs trellis-mnt /mnt && mkdir /mnt/sd || fail /mnt/sd\n"
          "mount --bind '%s' /mnt/sd || fail 'bind /mnt/sd'\n",
          major(st.st_rdev), minor(st.st_rdev), dir_.file("media").c_str()),
      "/dev/mmc0", "/mnt/sd/");
}

}  // namespace
}  // namespace test
}  // namespace tr
