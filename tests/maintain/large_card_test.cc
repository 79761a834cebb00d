// Cards larger than 4 GiB, run end to end. On the recorder's 32-bit build
// `long` and the default off_t are 32 bits, so every device offset, data-file
// position and product of 32-bit dimensions must stay 64-bit all the way to
// the system call. Each expected offset below is worked out by hand:
//
//   8 GiB (8589934592 bytes): reserve 171798691, index area 171747363,
//     idxFileSize 42936840; index files at 51328, 42988168, 85925008,
//     128861848.
//   2 TiB (2199023255552 bytes): reserve 43980465111, index area
//     43980413783, idxFileSize 10995103445; index files at 51328,
//     10995154773, 21990258218, 32985361663 (all but the first beyond 4 GiB,
//     and idxFileSize itself needs 34 bits).
//
// The images are sparse: only the planted records take space on disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

constexpr uint64_t kCard8G = 8589934592ULL;
constexpr uint64_t kCard8GRec = 51328;
constexpr uint64_t kCard8GPic = 85925008;

constexpr uint64_t kCard2T = 2199023255552ULL;
constexpr uint64_t kCard2TRec = 51328;
constexpr uint64_t kCard2TRecBackUp = 10995154773ULL;
constexpr uint64_t kCard2TPic = 21990258218ULL;
constexpr uint64_t kCard2TPicBackUp = 32985361663ULL;

// "<label padded to 20>: <green><value><reset>", as every field prints.
std::string field(const std::string& label, const std::string& value) {
  char padded[64];
  std::snprintf(padded, sizeof padded, "%-20s: ", label.c_str());
  return padded + std::string("\x1b[32m") + value + "\x1b[0m\n";
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class LargeCardTest : public testing::Test {
 protected:
  LargeCardTest() { ::mkdir(dir_.file("media").c_str(), 0755); }

  // Creates the sparse card image, or returns why the file system under the
  // temporary directory cannot hold a file of that size.
  std::string makeCard(uint64_t size) {
    const std::string path = dir_.file("card.img");
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return "cannot create " + path + ": " + std::strerror(errno);
    const int result = ::ftruncate(fd, static_cast<off_t>(size));
    const int error = errno;
    ::close(fd);
    if (result != 0) {
      return "the file system under " + dir_.path() +
             " cannot hold a sparse file of " + std::to_string(size) +
             " bytes: " + std::strerror(error);
    }
    image_ = std::make_unique<CardImage>(path, size);
    return std::string();
  }

  // A sparse data file in the media directory.
  CardImage dataFile(const std::string& name, uint64_t size) const {
    return CardImage(media(name), size);
  }

  std::string media(const std::string& name) const {
    return dir_.file("media/" + name);
  }

  // The console run on the card; parts[0] is the start-up, parts[i] what
  // command line i printed.
  std::vector<std::string> run(const std::string& script,
                               std::string* err = nullptr) {
    const RunResult r =
        runConsole(script, {{"TRELLIS_DEVICE", image_->path()},
                            {"TRELLIS_MEDIA_DIR", dir_.file("media")}});
    EXPECT_EQ(r.status, 0);
    if (err != nullptr) *err = r.err;
    return splitAtPrompts(r.out);
  }

  // A valid index file header with the three dimensions.
  void putHeader(uint64_t base, uint8_t kind, uint32_t maxFileNum,
                 uint32_t maxSegmentNum, uint32_t maxAuxNumber) {
    image_->putText(base, std::string("IDX_01\0", 7));
    image_->put8(base + 7, kind);
    image_->put32(base + 144, maxFileNum);
    image_->put32(base + 148, maxSegmentNum);
    image_->put32(base + 152, maxAuxNumber);
  }

  // A data file head with a distinct file number and segment count.
  void putDataFileHead(uint64_t at, uint32_t fileNum, uint32_t validSegments) {
    image_->putText(at, std::string("DATA\0", 5));
    image_->put8(at + 5, 9);   // channel
    image_->put8(at + 6, 1);   // read/write
    image_->put8(at + 7, 1);   // in use
    image_->put32(at + 8, fileNum);
    image_->put32(at + 12, 77);  // write data index
    image_->put32(at + 20, validSegments);
  }

  TempDir dir_;
  std::unique_ptr<CardImage> image_;
};

TEST_F(LargeCardTest, EightGiBCardReachesRecordsBeyondFourGiB) {
  const std::string skip = makeCard(kCard8G);
  if (!skip.empty()) GTEST_SKIP() << skip;
  // Picture blocks of 32 + 2560 x 1680 = 4300832 bytes: the head of data
  // file 1000 lies 999 blocks in, at 85925008 + 264 + 4296531168.
  putHeader(kCard8GPic, 2, 1000, 2560, 100);
  putDataFileHead(4382456440ULL, 1000, 12);
  // Where a product cut to 32 bits would land instead.
  putDataFileHead(4382456440ULL - 4294967296ULL, 4242, 4242);

  const std::vector<std::string> parts = run("maintain picDataFileHead 1000\n");
  ASSERT_GE(parts.size(), 2u);
  EXPECT_EQ(parts[0],
            "\x1b[31mHello Trellis Maintain\x1b[0m\n" +
                field("deviceSize", "8589934592") +
                field("reserveSpaceSize", "171798691") +
                field("idxSectorSize", "171747363") +
                field("idxFileSize", "42936840") +
                field("magicWord", "TR_V001") +
                field("idxFileOffsetAV", "51328") +
                field("idxFileBackupOffsetAV", "42988168") +
                field("idxFileOffsetPic", "85925008") +
                field("idxFileBackupOffsetPic", "128861848"));
  const std::string& out = parts[1];
  EXPECT_EQ(out.rfind(field("targetOffset", "4382456440"), 0), 0u) << out;
  EXPECT_TRUE(contains(out, field("File Number", "1000"))) << out;
  EXPECT_TRUE(contains(out, field("Valid Segments", "12"))) << out;
}

TEST_F(LargeCardTest, EightGiBCardCopiesMediaFromBeyondFourGiBInTheDataFile) {
  const std::string skip = makeCard(kCard8G);
  if (!skip.empty()) GTEST_SKIP() << skip;
  // Record blocks of 32 + 7000000 x 640 = 4480000032 bytes (more than 32
  // bits): segment (2, 1) lies at 51328 + 264 + 4480000032 + 32.
  putHeader(kCard8GRec, 1, 3, 7000000, 100);
  const uint64_t info = 4480051656ULL;
  image_->putText(info, "DF_INFO");
  image_->put8(info + 7, 1);                 // in use
  image_->put64(info + 8, 6442450941ULL);    // dataOffset: 6 GiB - 3
  image_->put64(info + 16, 10);              // datalen
  const CardImage data = dataFile("TR00002.mp4", 6442451000ULL);
  data.putText(6442450941ULL, "0123456789");
  data.putText(6442450941ULL - 4294967296ULL, "wrongplace");  // 32-bit cut

  const std::vector<std::string> parts = run("maintain recData 2 1\n");
  ASSERT_GE(parts.size(), 2u);
  EXPECT_EQ(parts[1], field("targetOffset", "4480051656") +
                          "[SUCCESS] Extracted 10 bytes to " +
                          media("00002_0001.mp4") + "\n");
  EXPECT_EQ(readFile(media("00002_0001.mp4")), "0123456789");
}

TEST_F(LargeCardTest, TwoTiBCardReadsEachIndexFileHeaderWhereItLies) {
  const std::string skip = makeCard(kCard2T);
  if (!skip.empty()) GTEST_SKIP() << skip;
  const std::pair<const char*, uint64_t> files[] = {
      {"recIndexFileHead", kCard2TRec},
      {"recBackUpIndexFileHead", kCard2TRecBackUp},
      {"picIndexFileHead", kCard2TPic},
      {"picBackUpIndexFileHead", kCard2TPicBackUp}};
  std::string script;
  for (uint32_t i = 0; i < 4; ++i) {
    putHeader(files[i].second, i < 2 ? 1 : 2, 101 + i, 201 + i, 301 + i);
    image_->put64(files[i].second + 160, 10995103445ULL);  // fileSize
    script += std::string("maintain ") + files[i].first + "\n";
  }

  const std::vector<std::string> parts = run(script);
  ASSERT_GE(parts.size(), 5u);
  EXPECT_EQ(parts[0],
            "\x1b[31mHello Trellis Maintain\x1b[0m\n" +
                field("deviceSize", "2199023255552") +
                field("reserveSpaceSize", "43980465111") +
                field("idxSectorSize", "43980413783") +
                field("idxFileSize", "10995103445") +
                field("magicWord", "TR_V001") +
                field("idxFileOffsetAV", "51328") +
                field("idxFileBackupOffsetAV", "10995154773") +
                field("idxFileOffsetPic", "21990258218") +
                field("idxFileBackupOffsetPic", "32985361663"));
  for (uint32_t i = 0; i < 4; ++i) {
    const std::string& out = parts[i + 1];
    SCOPED_TRACE(files[i].first);
    EXPECT_EQ(out.rfind(field("targetOffset", std::to_string(files[i].second)), 0),
              0u) << out;
    EXPECT_TRUE(contains(out, field("Magic Word", "IDX_01")));
    EXPECT_TRUE(contains(out, field("File Type", i < 2 ? "AV" : "JPG")));
    EXPECT_TRUE(contains(out, field("Max File Number", std::to_string(101 + i))));
    EXPECT_TRUE(contains(out, field("Max Data Number", std::to_string(201 + i))));
    EXPECT_TRUE(contains(out, field("Max Aux Number", std::to_string(301 + i))));
    EXPECT_TRUE(contains(out, field("File Size", "10485.75 MB")));
  }
}

TEST_F(LargeCardTest, TwoTiBCardReadsRecordsDeepInsideItsIndexFiles) {
  const std::string skip = makeCard(kCard2T);
  if (!skip.empty()) GTEST_SKIP() << skip;
  // Record blocks of 32 + 1000000 x 640 = 640000032 bytes: file 17 lies 16
  // blocks (10240000512 bytes, a product past 32 bits) into the file.
  putHeader(kCard2TRec, 1, 20, 1000000, 100);
  putDataFileHead(10240052104ULL, 17, 999999);
  // Picture blocks of 32 + 3000000 x 1680 = 5040000032 bytes (the block
  // size itself past 32 bits): file 2 at 21990258218 + 264 + 5040000032.
  putHeader(kCard2TPic, 2, 5, 3000000, 100);
  putDataFileHead(27030258514ULL, 2, 2999999);
  // The auxiliary region ends each index file: auxiliary 100 of the picture
  // backup file at 32985361663 + 10995103445 - 4320800 + 99 x 43208, and
  // auxiliary 1 of the record backup file at 10995154773 + 10995103445 -
  // 4320800.
  putHeader(kCard2TPicBackUp, 2, 1, 1, 100);
  image_->put8(43980421900ULL, 1);
  image_->put16(43980421900ULL + 2, 54321);
  putHeader(kCard2TRecBackUp, 1, 1, 1, 1);
  image_->put8(21985937418ULL, 1);
  image_->put16(21985937418ULL + 2, 777);

  const std::vector<std::string> parts =
      run("maintain recDataFileHead 17\n"
          "maintain picDataFileHead 2\n"
          "maintain picBackUpIndexAuxHead 100\n"
          "maintain recBackUpIndexAuxHead 1\n");
  ASSERT_GE(parts.size(), 5u);
  EXPECT_EQ(parts[1].rfind(field("targetOffset", "10240052104"), 0), 0u)
      << parts[1];
  EXPECT_TRUE(contains(parts[1], field("File Number", "17")));
  EXPECT_TRUE(contains(parts[1], field("Valid Segments", "999999")));
  EXPECT_EQ(parts[2].rfind(field("targetOffset", "27030258514"), 0), 0u)
      << parts[2];
  EXPECT_TRUE(contains(parts[2], field("File Number", "2")));
  EXPECT_TRUE(contains(parts[2], field("Valid Segments", "2999999")));
  EXPECT_EQ(parts[3].rfind(field("targetOffset", "43980421900"), 0), 0u)
      << parts[3];
  EXPECT_TRUE(contains(parts[3], field("Current Count", "54321")));
  EXPECT_EQ(parts[4].rfind(field("targetOffset", "21985937418"), 0), 0u)
      << parts[4];
  EXPECT_TRUE(contains(parts[4], field("Current Count", "777")));
}

TEST_F(LargeCardTest, TwoTiBCardCopiesOnePictureFromBeyondFourGiB) {
  const std::string skip = makeCard(kCard2T);
  if (!skip.empty()) GTEST_SKIP() << skip;
  // Segment (2, 1) of the picture file: 21990258218 + 264 + 5040000032 + 32.
  putHeader(kCard2TPic, 2, 5, 3000000, 100);
  const uint64_t info = 27030258546ULL;
  image_->putText(info, "DF_INFO");
  image_->put8(info + 7, 1);
  image_->put64(info + 16, 4294967299ULL);  // fragmentOffset: 4 GiB + 3
  image_->put64(info + 24, 18);             // fragmentSize
  image_->put32(info + 32 + 16, 5);         // picture sizes 5, 6, 7
  image_->put32(info + 32 + 24 + 16, 6);
  image_->put32(info + 32 + 48 + 16, 7);
  image_->put8(info + 1632, 3);             // validNum
  const CardImage data = dataFile("TR00002.picture", 4294967400ULL);
  data.putText(4294967299ULL, "aaaaabbbbbbccccccc");

  const std::vector<std::string> parts =
      run("maintain onePic 2 1 3\nmaintain picData 2 1\n");
  ASSERT_GE(parts.size(), 3u);
  EXPECT_EQ(parts[1], field("targetOffset", "27030258546") +
                          "[SUCCESS] Saved " + media("00002_0001_03.jpg") +
                          " (Size: 0.00MB)\n");
  EXPECT_EQ(readFile(media("00002_0001_03.jpg")), "ccccccc");
  EXPECT_EQ(parts[2], field("targetOffset", "27030258546") +
                          "[SUCCESS] Extracted 18 bytes to " +
                          media("00002_0001.jpg") + "\n");
  EXPECT_EQ(readFile(media("00002_0001.jpg")), "aaaaabbbbbbccccccc");
}

TEST_F(LargeCardTest, TwoTiBCardRepairsChangeOnlyTheirBytesBeyondFourGiB) {
  const std::string skip = makeCard(kCard2T);
  if (!skip.empty()) GTEST_SKIP() << skip;
  // Distinct bytes around the picture backup header and around the head of
  // its auxiliary 100 (at 43980421900), so any stray byte shows.
  const uint64_t header = kCard2TPicBackUp;
  const uint64_t auxHead = 43980421900ULL;
  std::string pattern(400, '\0');
  for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<char>(i * 7 + 1);
  image_->put(header - 64, pattern.data(), pattern.size());
  image_->put(auxHead - 64, pattern.data(), 136);
  putHeader(header, 2, 1, 1, 100);
  const std::string headerBefore = image_->read(header - 64, 400);
  const std::string auxBefore = image_->read(auxHead - 64, 136);

  std::string err;
  const std::vector<std::string> parts =
      run("maintain picBackUpChangeAuxCtxNum 100 74565\n"
          "maintain picBackUpException\n", &err);
  EXPECT_EQ(err, "");
  ASSERT_GE(parts.size(), 3u);
  EXPECT_EQ(parts[1], "tr_IndexFileHead targetOffset: \x1b[32m32985361663\x1b[0m\n"
                      "IndexFileAuxiliaryHead targetOffset: \x1b[32m43980421900\x1b[0m\n");
  EXPECT_EQ(parts[2], "tr_IndexFileHead targetOffset: \x1b[32m32985361663\x1b[0m\n");

  // auxNum (u32 at +156) is 100; the magic word is cleared; currentCount
  // (u16 at +2) holds the low half of 74565 = 0x12345.
  std::string headerAfter = headerBefore;
  headerAfter.replace(64, 7, std::string(7, '\0'));
  headerAfter.replace(64 + 156, 4, std::string("\x64\0\0\0", 4));
  EXPECT_EQ(image_->read(header - 64, 400), headerAfter);
  std::string auxAfter = auxBefore;
  auxAfter.replace(64 + 2, 2, "\x45\x23");
  EXPECT_EQ(image_->read(auxHead - 64, 136), auxAfter);
}

}  // namespace
}  // namespace test
}  // namespace tr
