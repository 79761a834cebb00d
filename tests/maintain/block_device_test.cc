// The console and the card builder on a real block device, a card image
// attached to a loop device. The console measures it with the block-device
// size request, reads, repairs and copies from it through the kernel's block
// layer; once through the TRELLIS_* variables and once, in a private mount
// namespace, as the recorder's own "/dev/mmc0" and "/mnt/sd/". The card
// builder refuses a block device without --force, and with it lays the card
// over the whole device. Root only (and the namespace a kernel that allows
// unshare -m); elsewhere they skip and say why.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class BlockDeviceTest : public testing::Test {
 protected:
  // A 64 MiB card (its layout in tests/golden/startup_64m.txt): a record
  // index file header whose data file 2 lies far beyond the card (blocks of
  // 32 + 4000000 x 640 bytes), and segment (1, 1) at 51328 + 264 + 32: five
  // bytes from byte 3 of TR00001.mp4. Stale records of an earlier card lie
  // at the start of the auxiliary region a 1 GiB card would have.
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root (uid " << ::geteuid() << ")";
    ASSERT_TRUE(sizeFile(image_, 67108864) &&
                poke(image_, 51328, std::string("IDX_01\0\x01", 8)) &&
                poke(image_, 51472, le(7, 4) + le(4000000, 4) + le(100, 4)) &&
                poke(image_, 51624, "DF_INFO\x01" + le(3, 8) + le(5, 8)));
    ::mkdir(dir_.file("media").c_str(), 0755);
    writeFile(dir_.file("media/TR00001.mp4"), "xyzhello");
    attach();
  }

  void attach() {
    const RunResult r = sh("losetup --find --show '" + image_ + "'");
    if (r.status == 0 && r.out.rfind("/dev/", 0) == 0) loop_ = r.out.substr(0, r.out.find('\n'));
    if (loop_.empty()) GTEST_SKIP() << "losetup cannot attach a loop device: " << r.err;
  }
  ~BlockDeviceTest() override { detach(); }

  // `script` run by the host's shell, outside TRELLIS_TEST_EXEC_WRAPPER (a
  // checker such as valgrind would report on the tools); the script hands
  // the wrapper to the programs under test itself.
  RunResult sh(const std::string& script) {
    writeFile(dir_.file("script"), "export TZ=UTC\nunset NO_COLOR TRELLIS_DEVICE TRELLIS_MEDIA_DIR\n" +
                                       replaced(script, "@RUN", "$TRELLIS_TEST_EXEC_WRAPPER "));
    FILE* pipe = popen(("sh '" + dir_.file("script") + "' 2>'" + dir_.file("err") + "'").c_str(), "r");
    RunResult r;
    char buffer[4096];
    for (size_t n; pipe && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) r.out.append(buffer, n);
    const int status = pipe == nullptr ? -1 : pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.err = readFile(dir_.file("err"));
    return r;
  }

  // Flushes and detaches the loop device: the console closes without a
  // flush, and another opener such as udev may keep the device busy past
  // its close; the flush pushes the writes through to the image file.
  bool detach() {
    const bool done = loop_.empty() ||
                      sh("blockdev --flushbufs " + loop_ + " && losetup --detach " + loop_).status == 0;
    loop_.clear();
    return done;
  }

  // The console started by `launch` (it ends with its last line), reading
  // four commands; `device` and `media` are the names it uses.
  void runConsole(const std::string& launch, const std::string& device, const std::string& media) {
    const std::string before = peek(image_, 51328, 264);
    const RunResult r = sh(launch + "@RUN" TRELLIS_MAINTAIN_BIN " <<'IN'\nmaintain recIndexFileHead\n"
                           "maintain recException\nmaintain recData 1 1\nmaintain recDataFileHead 2\nIN\nEND\n");
    ASSERT_TRUE(detach()) << "flushing and detaching the loop device";
    if (r.status == 77) GTEST_SKIP() << "no private mount namespace: " << r.err;
    EXPECT_EQ(r.status, 0) << r.err;
    const std::string prompt = "\x1b[32mplease enter the console command:\x1b[0m\n";
    // A block device is measured by the size request, not by its inode.
    // Data file 2 at 51328 + 264 + 2560000032 = 2560051624 (0x989749a8) is
    // past the end: a block device refuses the seek itself.
    EXPECT_EQ(r.out.substr(0, r.out.find(prompt)), golden("startup_64m.txt"));
    EXPECT_NE(r.out.find(prompt + "targetOffset        : \x1b[32m51328\x1b[0m\n"), std::string::npos);
    EXPECT_NE(r.out.find(prompt + "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n" + prompt +
                         "targetOffset        : \x1b[32m51624\x1b[0m\n[SUCCESS] Extracted 5 bytes to " +
                         media + "00001_0001.mp4\n" + prompt +
                         "targetOffset        : \x1b[32m2560051624\x1b[0m\n" + prompt),
              std::string::npos) << r.out;
    EXPECT_EQ(readFile(dir_.file("media/00001_0001.mp4")), "hello");
    EXPECT_EQ(maskTimestamps(r.err), "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n  Device: " + device +
                                         "\n  Offset: 0x00000000989749a8\n  Error: Invalid argument (22)\n\n");
    // Written through the device: the magic word cleared, nothing else.
    EXPECT_TRUE(peek(image_, 51328, 264) == std::string(7, '\0') + before.substr(7));
  }

  TempDir dir_;
  const std::string image_ = dir_.file("card.img");
  std::string loop_;
};

TEST_F(BlockDeviceTest, ConsoleMeasuresReadsAndRepairsALoopDevice) {
  const std::string loop = loop_;
  runConsole("sh <<'END'\nTRELLIS_DEVICE=" + loop + " TRELLIS_MEDIA_DIR=" + dir_.file("media") + " \\\n",
             loop, dir_.file("media/"));
}

// Inside the namespace only: a /dev holding just the card as "mmc0", and
// the media directory at /mnt/sd. Status 77: the namespace could not be set
// up, which is no failure of the console.
TEST_F(BlockDeviceTest, ConsoleWithoutVariablesUsesDevMmc0AndMntSd) {
  struct stat st;
  ASSERT_EQ(::stat(loop_.c_str(), &st), 0) << loop_;
  runConsole(formatString("unshare --mount true || exit 77\nunshare --mount sh <<'END'\n"
                          "fail() { echo \"cannot $1\" >&2; exit 77; }\n"
                          "mount -t tmpfs -o mode=755 trellis-dev /dev || fail 'mount /dev'\n"
                          "mknod -m 600 /dev/mmc0 b %u %u || fail 'create /dev/mmc0'\n"
                          "mknod -m 666 /dev/null c 1 3 || fail 'create /dev/null'\n"
                          "mount -t tmpfs trellis-mnt /mnt && mkdir /mnt/sd || fail /mnt/sd\n"
                          "mount --bind '%s' /mnt/sd || fail 'bind /mnt/sd'\n",
                          major(st.st_rdev), minor(st.st_rdev), dir_.file("media").c_str()),
             "/dev/mmc0", "/mnt/sd/");
}

// On a 1 GiB device holding a stale auxiliary head at the start of the
// record auxiliary region (51328 + 5355877 - 4320800): without --force
// nothing is written; with it the whole device is the card, the stale
// records gone.
TEST_F(BlockDeviceTest, CardBuilderOnlyWithForceAndOverTheWholeDevice) {
  ASSERT_TRUE(detach() && sizeFile(image_, 1073741824) && poke(image_, 1086405, "STALEAUX"));
  attach();
  const std::string mkcard = "@RUN" TRELLIS_MKCARD_BIN " --time 1709622489 ";
  RunResult r = sh(mkcard + loop_);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "trellis-mkcard: " + loop_ + " is a block device; writing a card layout on it "
                   "destroys the index files there. Use --force to write it\n");
  r = sh(mkcard + "--size 1G --force " + loop_);
  EXPECT_NE(r.err.find("--size applies to image files only"), std::string::npos) << r.err;
  EXPECT_EQ(peek(loop_, 51328, 8), std::string("IDX_01\0\x01", 8));
  r = sh(mkcard + "--force " + loop_);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("(1073741824 bytes)"), std::string::npos) << r.out;
  ASSERT_TRUE(detach());
  EXPECT_EQ(peek(image_, 51200, 8), std::string("TR_V001\0", 8));
  EXPECT_EQ(peek(image_, 1086405, 8), std::string(8, '\0'));
}

// The sample card on a loop device: --repair -p, its journal restored
// through the device, and the image is what it was.
TEST_F(BlockDeviceTest, SampleRepairedAndRestoredThroughTheDevice) {
  ASSERT_TRUE(detach() && sizeFile(image_, 1073741824));
  ASSERT_EQ(sh("@RUN" TRELLIS_MKCARD_BIN " --time 1709622489 --force --sample '" +
               dir_.file("media") + "' '" + image_ + "'").status, 0);
  const Extents before = extents(image_);
  attach();
  const std::string console = "@RUN" TRELLIS_MAINTAIN_BIN " -d " + loop_ + " ";
  const std::string journal = dir_.file("j.undo");
  RunResult r = sh(console + "-m '" + dir_.file("media") + "' --repair -p -u '" + journal + "'");
  EXPECT_EQ(r.status, 5) << r.err;
  EXPECT_NE(r.out.find("repair: 2 fixed, 2 not fixable, 0 declined\n"), std::string::npos) << r.out;
  r = sh(console + "--restore '" + journal + "'");
  EXPECT_EQ(r.status, 0) << r.err;
  ASSERT_TRUE(detach());
  EXPECT_EQ(changes(before, extents(image_)), "");
}

}  // namespace
}  // namespace test
}  // namespace tr
