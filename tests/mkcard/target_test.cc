// What the builder may write over: a non-empty image, data files of an
// earlier sample and any block device only with --force.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? uint64_t(st.st_size) : 0;
}

void expectRefused(const std::vector<std::string>& args,
                   const std::string& message) {
  const RunResult r = runMkcard(args);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
}

TEST(MkcardTargetTest, ImagesOnlyWithForceOverData) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  writeFile(image, "precious data");
  expectRefused({"--size", "2G", image},
                "trellis-mkcard: " + image +
                    " exists and holds 13 bytes; use --force to write a new "
                    "card over it\n");
  EXPECT_EQ(readFile(image), "precious data");
  ASSERT_EQ(runMkcard({"--size", "2G", "--force", image}).status, 0);
  EXPECT_EQ(fileSize(image), 2147483648u);
  EXPECT_EQ(readAt(image, 0, 13), std::string(13, '\0'));
  // Forced again without --size, the image keeps its size: index files of
  // 10724586 bytes in the storage head at 51200.
  ASSERT_EQ(runMkcard({"--force", image}).status, 0);
  EXPECT_EQ(readAt(image, 51200, 8), std::string("TR_V001\0", 8));
  EXPECT_EQ(readAt(image, 51240, 8), leBytes(10724586, 8));

  const std::string media = dir.file("media");
  ASSERT_EQ(::mkdir(media.c_str(), 0755), 0);
  writeFile(media + "/TR00002.picture", "older pictures");
  expectRefused({"--size", "2G", "--sample", media, dir.file("new.img")},
                "trellis-mkcard: " + media +
                    "/TR00002.picture exists and holds 14 bytes; use --force "
                    "to write the sample's data files over it\n");
  EXPECT_FALSE(fileExists(dir.file("new.img")));
  EXPECT_FALSE(fileExists(media + "/TR00001.mp4"));
  EXPECT_EQ(runMkcard({"--size", "2G", "--sample", media, "--force",
                       dir.file("new.img")})
                .status,
            0);
  EXPECT_NE(readFile(media + "/TR00002.picture"), "older pictures");
}

// A loop device over a 1 GiB image holding stale records of an earlier
// card: a storage head, an auxiliary head at the start of the record
// auxiliary region (51328 + 5355877 - 4320800), bytes in segment info
// (1, 1). Without --force nothing is written; with it the whole device is
// the card (reserve 21474836, index files of 5355877 bytes), the stale
// records gone.
TEST(MkcardTargetTest, BlockDeviceOnlyWithForceAndUsedWhole) {
  if (::geteuid() != 0) GTEST_SKIP() << "attaching a loop device needs root";
  TempDir dir;
  CardImage backing(dir.file("backing.img"), 1073741824);
  backing.putText(51200, "OLD_HEAD");
  backing.putText(1086405, "STALEAUX");
  backing.putText(51624 + 100, "STALEINFO");
  const RunResult attach =
      runProgram({"losetup", "-f", "--show", backing.path()}, "", {});
  if (attach.status != 0 || attach.out.empty()) {
    GTEST_SKIP() << "no loop device could be attached: " << attach.err;
  }
  const std::string loop = attach.out.substr(0, attach.out.find('\n'));
  struct Detach {
    std::string device;
    ~Detach() { runProgram({"losetup", "-d", device}, "", {}); }
  } detach{loop};

  expectRefused({"--time", "1709622489", loop},
                "trellis-mkcard: " + loop +
                    " is a block device; writing a card layout on it "
                    "destroys the index files there. Use --force to write "
                    "it\n");
  EXPECT_EQ(readAt(loop, 51200, 8), "OLD_HEAD");
  expectRefused({"--size", "1G", "--force", loop},
                "--size applies to image files only");

  const RunResult r = runMkcard({"--force", "--time", "1709622489", loop});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("(1073741824 bytes)"), std::string::npos) << r.out;
  EXPECT_EQ(readAt(loop, 51200, 8), std::string("TR_V001\0", 8));
  EXPECT_EQ(readAt(loop, 51240, 8), leBytes(5355877, 8));
  EXPECT_EQ(readAt(loop, 1086405, 8), std::string(8, '\0'));
  EXPECT_EQ(readAt(loop, 51624, 640), "DF_INFO" + std::string(633, '\0'));
  const RunResult console =
      runConsole("maintain recIndexFileHead\n", {{"TRELLIS_DEVICE", loop}});
  EXPECT_NE(console.out.find("deviceSize          : \x1b[32m1073741824"),
            std::string::npos);
  EXPECT_NE(commandOutput(console.out)
                .find("Magic Word          : \x1b[32mIDX_01\x1b[0m\n"),
            std::string::npos);
}

}  // namespace
}  // namespace test
}  // namespace tr
