// The check's benchmark card: a sparse 64 GiB image whose four index files
// are fully populated (every data file and segment in use, as many as fit
// before the auxiliary region, and every auxiliary and context used), and a
// plain file holding exactly the byte ranges the check reads, in the same
// order, for `cat` to read as the yardstick.
#ifndef TRELLIS_BENCH_BENCH_CHECK_CARD_H_
#define TRELLIS_BENCH_BENCH_CHECK_CARD_H_

#include <cstdint>
#include <string>

namespace tr {
namespace bench {

struct CheckCard {
  std::string image;
  std::string ranges;  // the bytes the check reads, back to back
  uint64_t rangeBytes;
};

// Creates (or reuses) both files under `dir`. Exits the process with a
// message when they cannot be made.
CheckCard prepareCheckCard(const std::string& dir);

}  // namespace bench
}  // namespace tr

#endif  // TRELLIS_BENCH_BENCH_CHECK_CARD_H_
