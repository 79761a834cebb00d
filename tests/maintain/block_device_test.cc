// The console on a real block device: a card image attached to a loop
// device, measured with the block-device size request, read and repaired
// through the kernel's block layer; and, in a private mount namespace, the
// recorder's own paths "/dev/mmc0" and "/mnt/sd/" with no TRELLIS_* variable
// set. Both need root (and the second a kernel that allows unshare -m);
// elsewhere they skip and say why.
//
// The 64 MiB card (67108864 bytes), worked out by hand: reserve 1342177,
// index area 1290849, idxFileSize 322712; index files at 51328, 374040,
// 696752, 1019464.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

constexpr uint64_t kCard64M = 67108864;
constexpr uint64_t kRec = 51328;

std::string field(const std::string& label, const std::string& value) {
  char padded[64];
  std::snprintf(padded, sizeof padded, "%-20s: ", label.c_str());
  return padded + std::string("\x1b[32m") + value + "\x1b[0m\n";
}

const std::string kStartUp64M =
    "\x1b[31mHello Trellis Maintain\x1b[0m\n" + field("deviceSize", "67108864") +
    field("reserveSpaceSize", "1342177") + field("idxSectorSize", "1290849") +
    field("idxFileSize", "322712") + field("magicWord", "TR_V001") +
    field("idxFileOffsetAV", "51328") +
    field("idxFileBackupOffsetAV", "374040") +
    field("idxFileOffsetPic", "696752") +
    field("idxFileBackupOffsetPic", "1019464");

// Why a privileged test cannot run here, or empty when it can.
std::string needsRoot(const char* what) {
  if (::geteuid() == 0) return std::string();
  std::string why = std::string(what) + " needs root (running as uid " +
                    std::to_string(::geteuid()) + ")";
  const char* wrapper = std::getenv("TRELLIS_TEST_EXEC_WRAPPER");
  if (wrapper != nullptr && *wrapper != '\0') {
    why += "; the console runs under the emulator here";
  }
  return why;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

// Host tools (losetup, unshare) run as they are: TRELLIS_TEST_EXEC_WRAPPER
// is meant for the programs under test, and a checker such as valgrind
// would report on the tools instead. The saved value is handed on to the
// shell that starts the console.
class HostTools {
 public:
  HostTools() {
    const char* value = std::getenv(kName);
    wrapper_ = value == nullptr ? "" : value;
    ::unsetenv(kName);
  }
  ~HostTools() {
    if (!wrapper_.empty()) ::setenv(kName, wrapper_.c_str(), 1);
  }
  HostTools(const HostTools&) = delete;
  HostTools& operator=(const HostTools&) = delete;
  const std::string& wrapper() const { return wrapper_; }

 private:
  static constexpr char kName[] = "TRELLIS_TEST_EXEC_WRAPPER";
  std::string wrapper_;
};

// A loop device over a card image; detached at scope end at the latest.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& image) {
    HostTools tools;
    const RunResult r =
        runProgram({"losetup", "--find", "--show", image}, "", {});
    const std::string device = firstLine(r.out);
    if (r.status == 0 && device.rfind("/dev/", 0) == 0) {
      path_ = device;
    } else {
      problem_ = "losetup cannot attach a loop device here (status " +
                 std::to_string(r.status) + "): " + firstLine(r.err);
    }
  }
  ~LoopDevice() { detach(); }
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  const std::string& path() const { return path_; }
  const std::string& problem() const { return problem_; }

  // True when the device was flushed and detached (or never attached).
  // The console leaves its writes in the device's page cache (it closes
  // without a flush, and another opener such as udev may keep the device
  // busy past its close); the flush pushes them through to the image file
  // before the test looks at it.
  bool detach() {
    if (path_.empty()) return true;
    const int fd = ::open(path_.c_str(), O_RDONLY);
    const bool flushed = fd >= 0 && ::fsync(fd) == 0;
    if (fd >= 0) ::close(fd);
    HostTools tools;
    const RunResult r = runProgram({"losetup", "--detach", path_}, "", {});
    path_.clear();
    return flushed && r.status == 0;
  }

 private:
  std::string path_;
  std::string problem_;
};

class BlockDeviceTest : public testing::Test {
 protected:
  BlockDeviceTest() : image_(dir_.file("card.img"), kCard64M) {
    ::mkdir(media().c_str(), 0755);
  }

  std::string media() const { return dir_.file("media"); }

  // A record index file header with room for data file 2 only far beyond
  // the end of the card: blocks of 32 + 4000000 x 640 = 2560000032 bytes.
  void putRecordHeader() {
    image_.putText(kRec, std::string("IDX_01\0", 7));
    image_.put8(kRec + 7, 1);
    image_.put32(kRec + 144, 7);
    image_.put32(kRec + 148, 4000000);
    image_.put32(kRec + 152, 100);
  }

  TempDir dir_;
  CardImage image_;
};

TEST_F(BlockDeviceTest, MeasuresReadsAndRepairsALoopDevice) {
  const std::string root = needsRoot("attaching a loop device");
  if (!root.empty()) GTEST_SKIP() << root;
  putRecordHeader();
  const std::string before = image_.read(kRec, 264);
  LoopDevice loop(image_.path());
  if (loop.path().empty()) GTEST_SKIP() << loop.problem();

  const RunResult r = runConsole(
      "maintain recIndexFileHead\nmaintain recException\n",
      {{"TRELLIS_DEVICE", loop.path()}, {"TRELLIS_MEDIA_DIR", media()}});
  ASSERT_TRUE(loop.detach()) << "flushing and detaching the loop device";

  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_GE(parts.size(), 3u) << r.out;
  // A block device is measured by the size request, not by its inode.
  EXPECT_EQ(parts[0], kStartUp64M);
  EXPECT_EQ(parts[1].rfind(field("targetOffset", "51328"), 0), 0u) << parts[1];
  EXPECT_NE(parts[1].find(field("Max File Number", "7")), std::string::npos);
  EXPECT_NE(parts[1].find(field("Max Data Number", "4000000")),
            std::string::npos);
  EXPECT_EQ(parts[2], "tr_IndexFileHead targetOffset: \x1b[32m51328\x1b[0m\n");
  // Written through the device, on the image once detached: the magic word
  // cleared and every other byte of the header as it was.
  std::string after = before;
  after.replace(0, 7, std::string(7, '\0'));
  EXPECT_EQ(image_.read(kRec, 264), after);
}

TEST_F(BlockDeviceTest, WithoutVariablesUsesDevMmc0AndMntSd) {
  const std::string root = needsRoot("a private mount namespace");
  if (!root.empty()) GTEST_SKIP() << root;
  RunResult probe;
  {
    HostTools tools;
    probe = runProgram({"unshare", "--mount", "true"}, "", {});
  }
  if (probe.status != 0) {
    GTEST_SKIP() << "unshare --mount does not work here (status "
                 << probe.status << "): " << firstLine(probe.err);
  }
  putRecordHeader();
  // Segment (1, 1) at 51328 + 264 + 32: five bytes from byte 3 of TR00001.mp4.
  image_.putText(51624, "DF_INFO");
  image_.put8(51624 + 7, 1);
  image_.put64(51624 + 8, 3);
  image_.put64(51624 + 16, 5);
  writeFile(media() + "/TR00001.mp4", "xyzhello");
  LoopDevice loop(image_.path());
  if (loop.path().empty()) GTEST_SKIP() << loop.problem();
  struct stat st;
  ASSERT_EQ(::stat(loop.path().c_str(), &st), 0) << loop.path();

  // Inside the namespace only: a /dev holding just the card as "mmc0", and
  // the media directory at /mnt/sd. Exit 77 means the namespace could not
  // be set up, not that the console failed.
  HostTools tools;
  const std::string script =
      "fail() { echo \"cannot $1\" >&2; exit 77; }\n"
      "mount -t tmpfs -o mode=755 trellis-dev /dev || fail 'mount /dev'\n"
      "mknod -m 600 /dev/mmc0 b " + std::to_string(major(st.st_rdev)) + " " +
      std::to_string(minor(st.st_rdev)) + " || fail 'create /dev/mmc0'\n"
      "mknod -m 666 /dev/null c 1 3 || fail 'create /dev/null'\n"
      "mount -t tmpfs trellis-mnt /mnt || fail 'mount /mnt'\n"
      "mkdir /mnt/sd || fail 'create /mnt/sd'\n"
      "mount --bind '" + media() + "' /mnt/sd || fail 'bind /mnt/sd'\n"
      "exec $TRELLIS_TEST_EXEC_WRAPPER " TRELLIS_MAINTAIN_BIN "\n";
  const RunResult r = runProgram(
      {"unshare", "--mount", "sh", "-c", script},
      "maintain recIndexFileHead\nmaintain recData 1 1\n"
      "maintain recDataFileHead 2\n",
      {{"TRELLIS_TEST_EXEC_WRAPPER", tools.wrapper()}});
  ASSERT_TRUE(loop.detach()) << "flushing and detaching the loop device";
  if (r.status == 77) GTEST_SKIP() << "private mount namespace: " << r.err;

  EXPECT_EQ(r.status, 0) << r.err;
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_GE(parts.size(), 4u) << r.out;
  EXPECT_EQ(parts[0], kStartUp64M);
  EXPECT_EQ(parts[1].rfind(field("targetOffset", "51328"), 0), 0u) << parts[1];
  EXPECT_NE(parts[1].find(field("Max File Number", "7")), std::string::npos);
  EXPECT_EQ(parts[2], field("targetOffset", "51624") +
                          "[SUCCESS] Extracted 5 bytes to "
                          "/mnt/sd/00001_0001.mp4\n");
  EXPECT_EQ(readFile(media() + "/00001_0001.mp4"), "hello");
  // Data file 2 would start at 51328 + 264 + 2560000032 = 2560051624
  // (0x989749a8), past the end: a block device refuses the seek itself.
  EXPECT_EQ(parts[3], field("targetOffset", "2560051624"));
  EXPECT_EQ(maskTimestamps(r.err),
            "<TS> \x1b[31mLSEEK FAILED\x1b[0m\n"
            "  Device: /dev/mmc0\n"
            "  Offset: 0x00000000989749a8\n"
            "  Error: Invalid argument (22)\n\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
