// Shared pieces of the tests and the fuzz harnesses: scratch directories and
// files written at literal offsets, the system-call seam made to fail on
// demand with a ledger of what passed through it, and the console and the
// card builder run as the engineer runs them. test_support.cc holds what
// the fuzz harnesses share and needs no test framework; run_support.cc the
// rest.
#ifndef TRELLIS_TESTS_SUPPORT_TEST_SUPPORT_H_
#define TRELLIS_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/platform.h"

namespace tr {
namespace test {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it
// at scope end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Files as the tests set them up, sparse: `path` made (or cut) to `size`
// bytes; `bytes` written at `offset`; `count` bytes read from `offset`
// (fewer at the end). sizeFile() and poke() return false on failure.
bool sizeFile(const std::string& path, uint64_t size);
bool poke(const std::string& path, uint64_t offset, const std::string& bytes);
std::string peek(const std::string& path, uint64_t offset, size_t count);
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
// `value` as `width` little-endian bytes (zeros past the eighth).
std::string le(uint64_t value, int width);
// `text` with every `from` replaced by `to`.
std::string replaced(std::string text, const std::string& from, const std::string& to);

// The data extents of a sparse file by offset (holes read as zeros), and
// "<offset>: <hex before> -> <hex after>\n" for each run of bytes that
// differ between two of them.
using Extents = std::map<uint64_t, std::string>;
Extents extents(const std::string& path);
std::string changes(const Extents& before, const Extents& after);

// kOpenFile: the open of a data file or of an extraction's output.
enum class Call { kNone, kOpen, kSeek, kRead, kWrite, kClose, kOpenFile, kFread,
                  kFwrite, kFclose, kMalloc, kFsync, kCount };

// The `occurrence`-th call of kind `call` (counted from 1) fails: it returns
// `result` (-1 for kOpenFile, a null pointer for malloc, 0 items for a stream
// transfer that moves nothing) with `error` in errno (0 leaves errno alone).
// A transfer whose result is a positive count moves that many bytes or items
// for real first; a failing close closes all the same.
struct Fault {
  Call call = Call::kNone;
  int occurrence = 1;
  long result = -1;
  int error = EIO;
};

// Puts the fault, and a ledger of every descriptor, stream and heap block
// taken, on top of the entries tr::sys holds when it is made; puts those
// back at scope end. One at a time.
class SysFaults {
 public:
  explicit SysFaults(const Fault& fault = Fault());
  ~SysFaults();
  SysFaults(const SysFaults&) = delete;
  SysFaults& operator=(const SysFaults&) = delete;

  void fail(const Fault& fault);  // a new fault; the calls count from 0
  int calls(Call call) const;
  int lastFd() const;  // the last descriptor handed out, or -1
  // What was taken and not given back, plus every close or free of
  // something never handed out: 0 when all is well.
  int unreturned() const;

 private:
  SysCalls saved_;
};

// The console or the card builder run with `input` on standard input in the
// console's environment (TZ=UTC, no NO_COLOR or TRELLIS_* variables, then
// `env`; PWD there is the directory it runs in). TRELLIS_TEST_EXEC_WRAPPER's words, when set, go in front of the
// program (an emulator, valgrind). A program killed by a signal, or ending
// with kCheckerStatus (what the sanitizers and valgrind are told to end with
// when they report), fails the calling test.
constexpr int kCheckerStatus = 99;
struct RunResult {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or -1 when the process did not exit
};
using EnvList = std::vector<std::pair<std::string, std::string>>;
// Starts `argv` so, with `fds` as its standard input, output and error (-1:
// closed); returns its process id.
pid_t spawn(const std::vector<std::string>& argv, const EnvList& env,
            const int fds[3]);
// Starts `argv` so on a new pseudo-terminal of 80 by 24, its controlling
// terminal; `*master` gets the other side. -1 when none could be had.
pid_t spawnOnTerminal(const std::vector<std::string>& argv, const EnvList& env,
                      int* master);
RunResult runProgram(const std::vector<std::string>& argv,
                     const std::string& input, const EnvList& env);
RunResult runConsole(const std::string& input, const EnvList& env);
// python3 running `script` with `input` on its standard input, for the
// tests that read an output with a parser of another origin: status 127
// when python3 is not installed (the caller skips).
RunResult runPython(const std::string& script, const std::string& input);

// Every "\e[33m[YYYY-MM-DD HH:MM:SS]\e[0m" (or the bare bracket) as "<TS>".
std::string maskTimestamps(const std::string& text);

// Runs `body` in this process; what it printed, timestamps masked.
struct Captured {
  std::string out;
  std::string err;
};
Captured capture(const std::function<void()>& body);

// Points the console at `image` with the layout start-up computes for it,
// without printing.
void useDevice(const std::string& image);

// tests/<folder>/<name> from the source tree; "\e" in a golden file stands
// for the escape byte. Fails the current test when the file is missing.
std::string sourceFile(const std::string& folder, const std::string& name);
std::string golden(const std::string& name);

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_TEST_SUPPORT_H_
