// Fixtures for the commands that work on data files in the media directory:
// pointing the media directory at a test directory, and a ledger of the
// streams and heap blocks taken through tr::sys that can also make chosen
// calls fail.
#ifndef TRELLIS_TESTS_SUPPORT_MEDIA_SEAMS_H_
#define TRELLIS_TESTS_SUPPORT_MEDIA_SEAMS_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace tr {
namespace test {

// Points the media directory at `dir` until scope end.
class UseMediaDir {
 public:
  explicit UseMediaDir(const std::string& dir);
  ~UseMediaDir();
  UseMediaDir(const UseMediaDir&) = delete;
  UseMediaDir& operator=(const UseMediaDir&) = delete;

 private:
  std::string saved_;
};

// `text` with "@SRC" replaced by `source` and "@OUT" by `output`, for
// expected messages written before the paths are known.
std::string withPaths(std::string text, const std::string& source,
                      const std::string& output);

// Counts fopen/fclose and malloc/free through tr::sys, records what each
// fread and malloc asked for, and fails the calls a test selects. Only one
// ledger may be alive at a time; tr::sys is restored at scope end.
class SysLedger {
 public:
  SysLedger();
  SysLedger(const SysLedger&) = delete;
  SysLedger& operator=(const SysLedger&) = delete;

  // Every malloc returns null (ENOMEM).
  void failMalloc();
  // From the `from`-th fread on (counted from 1), fread returns 0 with
  // `error` in errno, the stream not at its end.
  void failFread(int error, int from = 1);
  // The `call`-th fwrite writes at most `count` items, then reports ENOSPC.
  void shortFwrite(int call, size_t count);
  // Closing a stream opened for writing closes it, then reports EIO.
  void failOutputClose();

  int openStreams() const;  // opened minus closed
  int liveBlocks() const;   // allocated minus freed
  const std::vector<size_t>& freadRequests() const;
  const std::vector<size_t>& mallocRequests() const;

 private:
  SysOverride restore_;
};

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_MEDIA_SEAMS_H_
