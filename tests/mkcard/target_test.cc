// What the builder may write over: a new or empty image freely; a non-empty
// image, data files of an earlier sample and any block device only with
// --force.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

// A loop device over `backing`, detached at scope end; path() is empty when
// none could be attached.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& backing) {
    const RunResult r =
        runProgram({"losetup", "-f", "--show", backing}, "", {});
    if (r.status == 0 && !r.out.empty())
      path_ = r.out.substr(0, r.out.find('\n'));
    error_ = r.err;
  }
  ~LoopDevice() {
    if (!path_.empty()) runProgram({"losetup", "-d", path_}, "", {});
  }
  const std::string& path() const { return path_; }
  const std::string& error() const { return error_; }

 private:
  std::string path_;
  std::string error_;
};

class MkcardTargetTest : public testing::Test {
 protected:
  std::string image() const { return dir_.file("card.img"); }
  TempDir dir_;
};

TEST_F(MkcardTargetTest, NonEmptyImageOnlyWithForce) {
  writeFile(image(), "precious data");
  RunResult r = runMkcard({"--size", "2G", image()});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "trellis-mkcard: " + image() +
                       " exists and holds 13 bytes; use --force to write a "
                       "new card over it\n");
  EXPECT_EQ(readFile(image()), "precious data");

  r = runMkcard({"--size", "2G", "--force", image()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(fileSize(image()), 2147483648u);
  EXPECT_EQ(readAt(image(), 0, 13), std::string(13, '\0'));
  EXPECT_EQ(readAt(image(), 51200, 8), std::string("TR_V001\0", 8));

  // Forced again without --size, the image keeps its size.
  r = runMkcard({"--force", image()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(le64(readAt(image(), 51240, 8), 0), 10724586u);
}

TEST_F(MkcardTargetTest, SizeRulesForNewAndEmptyImages) {
  RunResult r = runMkcard({image()});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err,
                       "does not exist; give the size of the image to "
                       "create with --size"))
      << r.err;
  EXPECT_FALSE(fileExists(image()));

  writeFile(image(), "");
  r = runMkcard({image()});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "is empty; give the card's size with --size"));
  r = runMkcard({"--size", "1G", image()});  // empty: no --force needed
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(fileSize(image()), 1073741824u);

  r = runMkcard({"--size", "1G", "--force", dir_.path()});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "is neither an image file nor a block device"));
}

TEST_F(MkcardTargetTest, SampleDataFilesOnlyOverwrittenWithForce) {
  const std::string media = dir_.file("media");
  ASSERT_EQ(::mkdir(media.c_str(), 0755), 0);
  writeFile(media + "/TR00002.picture", "older pictures");
  RunResult r = runMkcard({"--size", "2G", "--sample", media, image()});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "trellis-mkcard: " + media +
                       "/TR00002.picture exists and holds 14 bytes; use "
                       "--force to write the sample's data files over it\n");
  EXPECT_FALSE(fileExists(image()));
  EXPECT_FALSE(fileExists(media + "/TR00001.mp4"));

  r = runMkcard({"--size", "2G", "--sample", media, "--force", image()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(readFile(media + "/TR00002.picture"), "older pictures");
}

TEST_F(MkcardTargetTest, BlockDeviceOnlyWithForceAndUsedWhole) {
  if (::geteuid() != 0) GTEST_SKIP() << "attaching a loop device needs root";
  CardImage backing(dir_.file("backing.img"), 1073741824);
  // Stale records of an earlier card: a storage head, an auxiliary head at
  // the start of the record auxiliary region (51328 + 5355877 - 4320800),
  // bytes in segment info (1, 1).
  backing.putText(51200, "OLD_HEAD");
  backing.putText(1086405, "STALEAUX");
  backing.putText(51624 + 100, "STALEINFO");
  LoopDevice loop(backing.path());
  if (loop.path().empty()) {
    GTEST_SKIP() << "no loop device could be attached: " << loop.error();
  }

  RunResult r = runMkcard({"--time", "1709622489", loop.path()});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "trellis-mkcard: " + loop.path() +
                       " is a block device; writing a card layout on it "
                       "destroys the index files there. Use --force to write "
                       "it\n");
  EXPECT_EQ(readAt(loop.path(), 51200, 8), "OLD_HEAD");
  r = runMkcard({"--size", "1G", "--force", loop.path()});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "--size applies to image files only")) << r.err;

  r = runMkcard({"--force", "--time", "1709622489", loop.path()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "(1073741824 bytes)")) << r.out;
  // 1 GiB: reserve 21474836, index files of 5355877 bytes.
  EXPECT_EQ(readAt(loop.path(), 51200, 8), std::string("TR_V001\0", 8));
  EXPECT_EQ(le64(readAt(loop.path(), 51240, 8), 0), 5355877u);
  EXPECT_EQ(readAt(loop.path(), 1086405, 8), std::string(8, '\0'));
  EXPECT_EQ(readAt(loop.path(), 51624, 640),
            "DF_INFO" + std::string(633, '\0'));

  const RunResult console = runConsole("maintain recIndexFileHead\n",
                                       {{"TRELLIS_DEVICE", loop.path()}});
  EXPECT_TRUE(
      contains(console.out, "deviceSize          : \x1b[32m1073741824"));
  EXPECT_TRUE(contains(commandOutput(console.out),
                       "Magic Word          : \x1b[32mIDX_01\x1b[0m\n"));
}

}  // namespace
}  // namespace test
}  // namespace tr
