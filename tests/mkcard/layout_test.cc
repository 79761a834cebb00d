// The builder refuses dimensions whose data-file area runs into the
// auxiliary region, and cards too small for the layout, naming the sizes;
// a refused card is not created. A card that fits records its index file
// size in the storage head (byte 51240).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

struct Layout {
  const char* files;
  const char* size;
  const char* segments;
  uint64_t indexFileSize;         // 0: refused
  std::vector<std::string> said;  // parts of the refusal
};

TEST(MkcardLayoutTest, RefusesWhatDoesNotFitNamingTheSizes) {
  // clang-format off
  const Layout cases[] = {
      // 2 GiB: the auxiliary region starts 6403786 bytes into each index
      // file. 238 picture segments: 264 + 16 x (32 + 238 x 1680) = 6398216.
      {"16", "2G", "238", 10724586, {}},
      // 239: 6425096, past it; the record area (2448136) alone would fit.
      {"16", "2G", "239", 0,
       {"16 data files of 239 segments do not fit",
        "picture data-file area (264 + 16 x (32 + 239 x 1680) bytes) would "
        "end at byte 6425096, past the start of the auxiliary region at byte "
        "6403786 (index files of 10724586 bytes on a card of 2147483648 "
        "bytes)",
        "at most 238 segments per file"}},
      // 2^32 - 1 files of 2^32 - 1 segments: the area overflows 64 bits.
      {"4294967295", "2G", "4294967295", 0,
       {"would end beyond byte 18446744073709551615",
        "not one segment per file fits"}},
      // 16 x 64 needs index files of 264 + 1720832 + 4320800 = 6041896
      // bytes: a reserve of 24218912, 2 percent of 1210945600.
      {"16", "1210945599", "64", 0,
       {"auxiliary region at byte 1721095 (index files of 6041895 bytes",
        "at most 63 segments per file fit on this card; 64 segments need a "
        "card of at least 1210945600 bytes"}},
      {"16", "1210945600", "64", 6041896, {}},
      // 800 MiB: reserve 16777216, index files of 4181472 bytes.
      {"16", "800M", "64", 0,
       {"a card of 838860800 bytes is too small",
        "index files would be 4181472 bytes each",
        "needs 4321064 bytes for its header and auxiliary region",
        "need a card of at least 1210945600 bytes"}},
  };
  // clang-format on
  TempDir dir;
  const std::string image = dir.file("card.img");
  for (const Layout& k : cases) {
    SCOPED_TRACE(std::string(k.size) + " " + k.segments);
    const RunResult r = runMkcard({"--size", k.size, "--files", k.files,
                                   "--segments", k.segments, image});
    EXPECT_EQ(r.status, k.indexFileSize == 0 ? 1 : 0) << r.err;
    for (const std::string& part : k.said) {
      EXPECT_NE(r.err.find(part), std::string::npos) << r.err;
    }
    EXPECT_EQ(readAt(image, 51240, 8),
              k.indexFileSize == 0 ? "" : leBytes(k.indexFileSize, 8));
    std::remove(image.c_str());
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
