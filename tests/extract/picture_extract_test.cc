#include "extract/picture_extract.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/media_seams.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Picture index file with maxFileNum 10 and maxSegmentNum 100: segment
// (3, 12) lies at 21500500 + 264 + 2 x 168032 + 32 + 11 x 1680 = 21855340.
constexpr uint64_t kSegment = 21855340;
constexpr char kTarget[] = "targetOffset        : \x1b[32m21855340\x1b[0m\n";

std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}

class PictureExtractTest : public testing::Test {
 protected:
  PictureExtractTest()
      : card_(dir_.file("card.img"), kCard2G), data_(pattern(2000)) {
    card_.put32(kCard2GPic + 144, 10);
    card_.put32(kCard2GPic + 148, 100);
    writeFile(dir_.file("TR00003.picture"), data_);
    setPictures(1000, 600, {100, 200, 300});
  }
  // fragmentOffset at byte 16, fragmentSize at 24, jpgSize of entry k at
  // 32 + 24k + 16, validNum at 1632.
  void setPictures(uint64_t offset, uint64_t size,
                   const std::vector<uint32_t>& sizes, int validNum = -1) {
    card_.put8(kSegment + 7, 1);
    card_.put64(kSegment + 16, offset);
    card_.put64(kSegment + 24, size);
    for (size_t k = 0; k < sizes.size(); ++k) card_.put32(kSegment + 48 + 24 * k, sizes[k]);
    card_.put8(kSegment + 1632, static_cast<uint8_t>(validNum < 0 ? sizes.size() : validNum));
  }
  RunResult run(const std::string& picNum) {
    return runConsole("maintain onePic 3 12 " + picNum + "\n",
                      {{"TRELLIS_DEVICE", card_.path()},
                       {"TRELLIS_MEDIA_DIR", dir_.path()}});
  }
  std::string output(const char* picNum) const {
    return dir_.file(std::string("00003_0012_") + picNum + ".jpg");
  }
  void expectSaved(const char* picNum, size_t at, size_t size) {
    SCOPED_TRACE(picNum);
    const RunResult r = run(picNum);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(commandOutput(r.out), kTarget + std::string("[SUCCESS] Saved ") +
                                        output(picNum) + " (Size: 0.00MB)\n");
    EXPECT_EQ(readFile(output(picNum)), data_.substr(at, size));
  }
  void expectRefused(const std::string& picNum, const std::string& message) {
    SCOPED_TRACE(picNum);
    const RunResult r = run(picNum);
    EXPECT_EQ(commandOutput(r.out), kTarget);
    EXPECT_EQ(r.err, message);
  }

  TempDir dir_;
  CardImage card_;
  std::string data_;
};

TEST_F(PictureExtractTest, SavesEachPictureFromItsOwnPlace) {
  expectSaved("01", 1000, 100);
  expectSaved("03", 1300, 300);  // the last picture, ending at the fragment's end
  std::vector<uint32_t> sixty(60, 10);
  setPictures(1000, 600, sixty, 200);
  expectSaved("60", 1590, 10);
  setPictures(1000, 599, {100, 200, 300});
  expectSaved("02", 1100, 200);
}

TEST_F(PictureExtractTest, RefusesPicturesTheSegmentDoesNotHold) {
  expectRefused("4", "[ERROR] Invalid picNum 4 (valid range: 1-3)\n");
  expectRefused("0", "[ERROR] Invalid picNum 0 (valid range: 1-3)\n");
  expectRefused("-1", "[ERROR] Invalid picNum 4294967295 (valid range: 1-3)\n");
  setPictures(1000, 599, {100, 200, 300});
  expectRefused("3", "[ERROR] Image 3 exceeds fragment boundary\n");
  setPictures(1000, 600, {}, 200);  // more pictures claimed than entries exist
  expectRefused("61", "[ERROR] Invalid picNum 61 (valid range: 1-60)\n");
  EXPECT_FALSE(fileExists(output("03")));
  EXPECT_FALSE(fileExists(output("61")));
  card_.put8(kSegment + 7, 0);
  EXPECT_EQ(commandOutput(run("1").out),
            kTarget + std::string("[ERROR] _tr_maintainGetOneJpgToFile This "
                                  "segment has no data\n"));
}

TEST_F(PictureExtractTest, DataFileFailuresLeaveNoPictureFile) {
  writeFile(dir_.file("TR00003.picture"), data_.substr(0, 1500));
  expectRefused("3", "[ERROR] Read incomplete (200/300 bytes)\n");
  setPictures(9223372036854775808ULL, 600, {100, 200, 300});
  expectRefused("1", "[ERROR] Seek failed @ 0x8000000000000000 (errno 22)\n");
  setPictures(18446744073709551566ULL, 600, {100, 200, 300});  // 2^64 - 50
  expectRefused("2", "[ERROR] Seek failed @ 0xffffffffffffffff (errno 75)\n");
  EXPECT_FALSE(fileExists(output("01")));
  EXPECT_FALSE(fileExists(output("02")));
  EXPECT_FALSE(fileExists(output("03")));

  setPictures(1000, 600, {100, 200, 300});
  ASSERT_EQ(mkdir(output("01").c_str(), 0755), 0);
  expectRefused("1", "[ERROR] Failed to create " + output("01") + " (errno 21)\n");
  ASSERT_EQ(symlink("/dev/full", output("02").c_str()), 0);
  expectRefused("2", "[ERROR] Write incomplete (0/200 bytes)\n");
  unlink(dir_.file("TR00003.picture").c_str());
  expectRefused("1", "[ERROR] Failed to open source file: " +
                         dir_.file("TR00003.picture") + "\n");
}

TEST_F(PictureExtractTest, PictureBeyondFourGiB) {
  CardImage data(dir_.file("TR00003.picture"), 4294967296ULL + 4096);
  data.putText(4294967403ULL, data_.substr(0, 200));  // 2^32 + 7 + 100
  setPictures(4294967296ULL + 7, 600, {100, 200, 300});
  const RunResult r = run("2");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(readFile(output("02")), data_.substr(0, 200));
}

// In-process: allocation and close failures, and sizes in the success line.
class OnePictureTest : public testing::Test {
 protected:
  OnePictureTest() : media_(dir_.path()) {
    writeFile(dir_.file("TR00003.picture"), pattern(1600000));
    std::memset(&info_, 0, sizeof info_);
    info_.inUse = 1;
    info_.fragmentSize = 1600000;
    info_.validNum = 3;
    info_.imageDetails[0].jpgSize = 300;
    info_.imageDetails[1].jpgSize = 1048576;
    info_.imageDetails[2].jpgSize = 500000;
  }
  Captured save(uint32_t picNum, int* result) {
    return capture([&] { *result = _tr_maintainGetOneJpgToFile(&info_, 3, 12, picNum); });
  }
  std::string output(const char* picNum) const {
    return dir_.file(std::string("00003_0012_") + picNum + ".jpg");
  }

  TempDir dir_;
  UseMediaDir media_;
  tr_JPGDataFileInfo info_;
};

TEST_F(OnePictureTest, SizesShownInMegabytes) {
  int result = -1;
  EXPECT_EQ(save(2, &result).out,
            "[SUCCESS] Saved " + output("02") + " (Size: 1.00MB)\n");
  EXPECT_EQ(save(3, &result).out,
            "[SUCCESS] Saved " + output("03") + " (Size: 0.48MB)\n");
  EXPECT_EQ(result, 0);
}

TEST_F(OnePictureTest, AllocationAndCloseFailures) {
  int result = 0;
  {
    SysLedger ledger;
    ledger.failMalloc();
    Captured c = save(1, &result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(c.err, "[ERROR] Alloc 300 bytes failed\n");
    EXPECT_FALSE(fileExists(output("01")));

    // An empty picture needs no memory, whatever malloc(0) would do.
    info_.imageDetails[0].jpgSize = 0;
    c = save(1, &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(c.out, "[SUCCESS] Saved " + output("01") + " (Size: 0.00MB)\n");
    EXPECT_TRUE(fileExists(output("01")));
    EXPECT_EQ(readFile(output("01")), "");
    EXPECT_EQ(ledger.openStreams(), 0);
  }
  SysLedger ledger;
  ledger.failOutputClose();
  info_.imageDetails[0].jpgSize = 300;
  const Captured c = save(1, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(c.out, "");
  EXPECT_EQ(c.err, "[ERROR] Write incomplete (300/300 bytes)\n");
  EXPECT_EQ(ledger.openStreams(), 0);
  EXPECT_EQ(ledger.liveBlocks(), 0);
}

}  // namespace
}  // namespace test
}  // namespace tr
