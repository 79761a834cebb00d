// Cards larger than 4 GiB, run end to end. On the recorder's 32-bit build
// `long` and the default off_t are 32 bits, so every device offset, data-file
// position and product of 32-bit dimensions must stay 64-bit all the way to
// the system call. The start-up layouts are in tests/golden/startup_8g.txt
// and startup_2t.txt; every other offset is worked out below. The images are
// sparse: only the planted records take space on disk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/golden.h"
#include "tests/support/index_image.h"

namespace tr {
namespace test {
namespace {

// "<label padded to 20>: <green><value><reset>", as every field prints.
std::string field(const char* label, const std::string& value) {
  return formatString("%-20s: \x1b[32m%s\x1b[0m\n", label, value.c_str());
}

class LargeCardTest : public testing::Test {
 protected:
  // The sparse card; false, with errno, when the file system cannot hold it.
  bool makeCard(uint64_t size) {
    ::mkdir(media("").c_str(), 0755);
    const std::string path = dir_.file("card.img");
    writeFile(path, "");
    if (::truncate(path.c_str(), static_cast<off_t>(size)) != 0) return false;
    image_ = std::make_unique<CardImage>(path, size);
    return true;
  }

  std::string media(const std::string& name) const {
    return dir_.file("media/" + name);
  }

  // What each command line of `script` printed, after checking the
  // start-up lines against `startup` and that nothing went to stderr.
  std::vector<std::string> run(const std::string& script, const char* startup) {
    const RunResult r = runConsole(script, {{"TRELLIS_DEVICE", image_->path()},
                                            {"TRELLIS_MEDIA_DIR", media("")}});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    std::vector<std::string> parts = splitAtPrompts(r.out);
    EXPECT_EQ(parts[0], golden(startup));
    parts.resize(std::count(script.begin(), script.end(), '\n') + 1);
    return parts;
  }

  // An index file header, or a data file head or segment info in use.
  void putHeader(uint64_t base, uint8_t kind, uint32_t files,
                 uint32_t segments) {
    putIndexDimensions(*image_, base, files, segments, 100);
    image_->put8(base + 7, kind);
  }
  void putInUse(uint64_t at, const std::string& magic) {
    image_->putText(at, magic);
    image_->put8(at + 7, 1);
  }

  TempDir dir_;
  std::unique_ptr<CardImage> image_;
};

// Index files at 51328, 42988168, 85925008 and 128861848.
TEST_F(LargeCardTest, EightGiBCard) {
  if (!makeCard(8589934592ULL))
    GTEST_SKIP() << "no sparse card here: " << std::strerror(errno);
  // Picture blocks of 32 + 2560 x 1680 = 4300832 bytes: the head of data
  // file 1000 lies 999 blocks in, at 85925008 + 264 + 4296531168.
  putHeader(85925008, 2, 1000, 2560);
  putInUse(4382456440ULL, std::string("DATA\0", 5));
  image_->put32(4382456440ULL + 8, 1000);  // fileNum
  // Record blocks of 32 + 7000000 x 640 = 4480000032 bytes: segment (2, 1)
  // at 51328 + 264 + 4480000032 + 32, its data 6 GiB - 3 into TR00002.mp4.
  putHeader(51328, 1, 3, 7000000);
  putInUse(4480051656ULL, "DF_INFO");
  image_->put64(4480051656ULL + 8, 6442450941ULL);  // dataOffset
  image_->put64(4480051656ULL + 16, 10);            // datalen
  const CardImage data(media("TR00002.mp4"), 6442451000ULL);
  data.putText(6442450941ULL, "0123456789");

  const std::vector<std::string> out =
      run("maintain picDataFileHead 1000\nmaintain recData 2 1\n",
          "startup_8g.txt");
  EXPECT_EQ(out[1].rfind(field("targetOffset", "4382456440"), 0), 0u) << out[1];
  EXPECT_NE(out[1].find(field("File Number", "1000")), std::string::npos);
  EXPECT_EQ(out[2], field("targetOffset", "4480051656") +
                        "[SUCCESS] Extracted 10 bytes to " +
                        media("00002_0001.mp4") + "\n");
  EXPECT_EQ(readFile(media("00002_0001.mp4")), "0123456789");
}

// Index files at 51328, 10995154773, 21990258218 and 32985361663, each
// 10995103445 bytes (34 bits).
TEST_F(LargeCardTest, TwoTiBCard) {
  if (!makeCard(2199023255552ULL))
    GTEST_SKIP() << "no sparse card here: " << std::strerror(errno);
  // Record blocks of 32 + 1000000 x 640 = 640000032 bytes: file 17 lies 16
  // blocks (10240000512 bytes) in.
  putHeader(51328, 1, 20, 1000000);
  putInUse(10240052104ULL, std::string("DATA\0", 5));
  image_->put32(10240052104ULL + 8, 17);
  // Picture blocks of 32 + 3000000 x 1680 = 5040000032 bytes: segment (2, 1)
  // at 21990258218 + 264 + 5040000032 + 32; pictures of 5, 6 and 7 bytes
  // from 4 GiB + 3 in TR00002.picture.
  putHeader(21990258218ULL, 2, 5, 3000000);
  const uint64_t segment = 27030258546ULL;
  putInUse(segment, "DF_INFO");
  image_->put64(segment + 16, 4294967299ULL);  // fragmentOffset
  image_->put64(segment + 24, 18);             // fragmentSize
  for (uint32_t i = 0; i < 3; ++i) image_->put32(segment + 48 + 24 * i, 5 + i);
  image_->put8(segment + 1632, 3);  // validNum
  const CardImage data(media("TR00002.picture"), 4294967400ULL);
  data.putText(4294967299ULL, "aaaaabbbbbbccccccc");
  // Auxiliary 100 of the picture backup file lies at 32985361663 +
  // 10995103445 - 4320800 + 99 x 43208.
  putHeader(32985361663ULL, 2, 1, 1);

  const std::vector<std::string> out =
      run("maintain recDataFileHead 17\nmaintain onePic 2 1 3\n"
          "maintain picBackUpChangeAuxCtxNum 100 74565\n"
          "maintain picBackUpException\n",
          "startup_2t.txt");
  EXPECT_EQ(out[1].rfind(field("targetOffset", "10240052104"), 0), 0u)
      << out[1];
  EXPECT_NE(out[1].find(field("File Number", "17")), std::string::npos);
  EXPECT_EQ(out[2], field("targetOffset", "27030258546") + "[SUCCESS] Saved " +
                        media("00002_0001_03.jpg") + " (Size: 0.00MB)\n");
  EXPECT_EQ(readFile(media("00002_0001_03.jpg")), "ccccccc");
  const std::string headerLabel =
      "tr_IndexFileHead targetOffset: \x1b[32m32985361663\x1b[0m\n";
  EXPECT_EQ(
      out[3],
      headerLabel +
          "IndexFileAuxiliaryHead targetOffset: \x1b[32m43980421900\x1b[0m\n");
  EXPECT_EQ(out[4], headerLabel);
  // The magic word cleared (the kind kept), auxNum (u32 at +156) 100, and
  // currentCount (u16 at +2) the low half of 74565 = 0x12345.
  EXPECT_EQ(image_->read(32985361663ULL, 8), std::string(7, '\0') + "\x02");
  EXPECT_EQ(image_->read(32985361663ULL + 156, 4),
            std::string("\x64\0\0\0", 4));
  EXPECT_EQ(image_->read(43980421900ULL, 4), std::string("\0\0\x45\x23", 4));
}

}  // namespace
}  // namespace test
}  // namespace tr
