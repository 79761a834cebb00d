// The benchmark's own card: a sparse 2 GiB image whose record index file
// describes one data file with a 1 GiB segment and a 64 MiB segment, and
// whose picture index file describes one segment of one 4 GiB picture (its
// data file a hole).
#ifndef TRELLIS_BENCH_BENCH_CARD_H_
#define TRELLIS_BENCH_BENCH_CARD_H_

#include <cstdint>
#include <string>

namespace tr {
namespace bench {

// When the 1 GiB recording began: 2024-03-05T07:08:09Z.
constexpr int64_t kLargeStart = 1709622489;

struct Card {
  std::string image;
  std::string media;
  std::string dataFile;
  std::string pictureFile;
  uint64_t largeOffset;
  uint64_t largeLength;
};

// Creates (or reuses) the card and its data file under `dir`. Exits the
// process with a message when the files cannot be made.
Card prepareCard(const std::string& dir);
// Reads the whole file once so that every run finds it in the page cache.
void warmCache(const std::string& path);
bool sameFile(const std::string& a, const std::string& b);

}  // namespace bench
}  // namespace tr

#endif  // TRELLIS_BENCH_BENCH_CARD_H_
