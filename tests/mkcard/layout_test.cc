// The builder refuses dimensions whose data-file area runs into the
// auxiliary region, and cards too small for the layout, naming the sizes;
// a refused card is not created.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

class MkcardLayoutTest : public testing::Test {
 protected:
  RunResult build(const std::string& size, const std::string& segments) {
    return runMkcard(
        {"--size", size, "--files", "16", "--segments", segments, image()});
  }
  std::string image() const { return dir_.file("card.img"); }
  TempDir dir_;
};

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(MkcardLayoutTest, PictureAreaDecidesHowManySegmentsFit) {
  // 2 GiB: the auxiliary region starts 6403786 bytes into each index file.
  // 238 picture segments: 264 + 16 x (32 + 238 x 1680) = 6398216 fits.
  RunResult r = build("2G", "238");
  EXPECT_EQ(r.status, 0) << r.err;
  ASSERT_TRUE(fileExists(image()));
  std::remove(image().c_str());

  // 239: 6425096, past it; the record area (2448136) alone would fit.
  r = build("2G", "239");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_TRUE(contains(r.err, "16 data files of 239 segments do not fit"));
  EXPECT_TRUE(contains(r.err,
                       "picture data-file area (264 + 16 x (32 + 239 x "
                       "1680) bytes) would end at byte 6425096, past "
                       "the start of the auxiliary region at byte "
                       "6403786 (index files of 10724586 bytes on a "
                       "card of 2147483648 bytes)"))
      << r.err;
  EXPECT_FALSE(contains(r.err, "record data-file area"));
  EXPECT_TRUE(contains(r.err, "at most 238 segments per file"));
  EXPECT_FALSE(fileExists(image()));
}

TEST_F(MkcardLayoutTest, BothKindsReportedAndOverflowCaught) {
  RunResult r = build("2G", "700");  // record: 264 + 16 x 448032 = 7168776
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err,
                       "record data-file area (264 + 16 x (32 + 700 x "
                       "640) bytes) would end at byte 7168776"))
      << r.err;
  EXPECT_TRUE(contains(r.err, "picture data-file area"));

  // 2^32 - 1 files of 2^32 - 1 segments: the area overflows 64 bits.
  r = runMkcard({"--size", "2G", "--files", "4294967295", "--segments",
                 "4294967295", image()});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "would end beyond byte 18446744073709551615"))
      << r.err;
  EXPECT_TRUE(contains(r.err, "not one segment per file fits"));
  EXPECT_FALSE(fileExists(image()));
}

TEST_F(MkcardLayoutTest, SmallestCardForItsDimensions) {
  // 16 x 64 needs index files of 264 + 1720832 + 4320800 = 6041896 bytes:
  // a reserve of 24218912, 2 percent of 1210945600.
  RunResult r = build("1210945599", "64");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err,
                       "auxiliary region at byte 1721095 (index files "
                       "of 6041895 bytes"))
      << r.err;
  EXPECT_TRUE(contains(r.err,
                       "at most 63 segments per file fit on this "
                       "card; 64 segments need a card of at least "
                       "1210945600 bytes"));
  EXPECT_FALSE(fileExists(image()));

  r = build("1210945600", "64");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(le64(readAt(image(), 51240, 8), 0), 6041896u);
}

TEST_F(MkcardLayoutTest, CardTooSmallForTheAuxiliaryRegion) {
  // 800 MiB: reserve 16777216, index files of 4181472 bytes.
  RunResult r = build("800M", "64");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "a card of 838860800 bytes is too small"))
      << r.err;
  EXPECT_TRUE(contains(r.err, "index files would be 4181472 bytes each"));
  EXPECT_TRUE(contains(r.err,
                       "needs 4321064 bytes for its header and "
                       "auxiliary region"));
  EXPECT_TRUE(contains(r.err, "need a card of at least 1210945600 bytes"));

  // 1 MiB: the reserve (20971) does not reach the first index file.
  r = build("1M", "64");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "index files would be 0 bytes each")) << r.err;
  EXPECT_FALSE(fileExists(image()));
}

}  // namespace
}  // namespace test
}  // namespace tr
