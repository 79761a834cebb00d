// Shared test fixtures: temporary directories, sparse card images written
// at literal offsets, the console binary run on a script, output capture and
// the system-call override.
#ifndef TRELLIS_TESTS_SUPPORT_TEST_SUPPORT_H_
#define TRELLIS_TESTS_SUPPORT_TEST_SUPPORT_H_

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/platform.h"

namespace tr {
namespace test {

// A fresh directory, removed with everything in it at scope end.
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

// A sparse image file. Values are written little-endian at the offsets the
// test names, never through the records under test.
class CardImage {
 public:
  CardImage(const std::string& path, uint64_t size);
  const std::string& path() const { return path_; }
  void put(uint64_t offset, const void* bytes, size_t count) const;
  void putText(uint64_t offset, const std::string& text) const;
  void put8(uint64_t offset, uint8_t value) const { putLE(offset, value, 1); }
  void put32(uint64_t offset, uint32_t value) const { putLE(offset, value, 4); }
  void put64(uint64_t offset, uint64_t value) const { putLE(offset, value, 8); }
  std::string read(uint64_t offset, size_t count) const;

 private:
  // The low `count` bytes of `value`, least significant first.
  void putLE(uint64_t offset, uint64_t value, size_t count) const;

  std::string path_;
};

// Layout of a 2 GiB card as start-up computes it, worked out by hand:
// reserve 42949672, index area 42898344, idxFileSize 10724586.
constexpr uint64_t kCard2G = 2147483648ULL;
constexpr uint64_t kCard2GRec = 51328;
constexpr uint64_t kCard2GRecBackUp = 10775914;
constexpr uint64_t kCard2GPic = 21500500;
constexpr uint64_t kCard2GPicBackUp = 32225086;

struct RunResult {
  std::string out;
  std::string err;
  int status = -1;  // exit status, or -1 when the process did not exit
};

using EnvList = std::vector<std::pair<std::string, std::string>>;

// Runs the console with `input` on standard input (TZ=UTC, NO_COLOR unset,
// plus `env`). TRELLIS_TEST_EXEC_WRAPPER, when set, is put in front of the
// binary (an emulator, say).
RunResult runConsole(const std::string& input, const EnvList& env);
// Starts `argv`, with TRELLIS_TEST_EXEC_WRAPPER's words in front of it, in
// the console's environment (TZ=UTC, no NO_COLOR or TRELLIS_* variables,
// then `env`), with `fds` as its standard input, output and error (-1:
// closed); returns its process id.
pid_t spawn(const std::vector<std::string>& argv, const EnvList& env,
            const int fds[3]);
// The status the sanitizers (ASAN_OPTIONS/UBSAN_OPTIONS exitcode) and
// valgrind (--error-exitcode) are told to end with when they report, so a
// report in a spawned program fails the test that spawned it.
constexpr int kCheckerStatus = 99;

// Runs `argv` as runConsole() does. A program killed by a signal, or ending
// with kCheckerStatus, fails the calling test.
RunResult runProgram(const std::vector<std::string>& argv,
                     const std::string& input, const EnvList& env);

// Every "\e[33m[YYYY-MM-DD HH:MM:SS]\e[0m" (or the bare bracket, without
// colour) replaced by "<TS>".
std::string maskTimestamps(const std::string& text);
// The console's standard output cut at each prompt line: [0] is greeting
// and start-up, [i] what command line i printed, the last ends with "Bye".
std::vector<std::string> splitAtPrompts(const std::string& out);
// The output of the command lines only: everything after the first prompt,
// with prompts and the farewell removed.
std::string commandOutput(const std::string& out);

// Runs `body` in this process and returns what it printed.
struct Captured {
  std::string out;
  std::string err;
};
Captured capture(const std::function<void()>& body);

// Points the console at `image` with the layout start-up computes for it,
// without printing start-up lines; restores the previous device at scope end.
class UseDevice {
 public:
  explicit UseDevice(const std::string& image);
  UseDevice(const std::string& image, uint64_t capacity);
  ~UseDevice();

 private:
  std::string saved_;
};

// Restores every system call at scope end; tests swap entries of tr::sys.
class SysOverride {
 public:
  SysOverride() : saved_(sys) {}
  ~SysOverride() { sys = saved_; }
  SysOverride(const SysOverride&) = delete;
  SysOverride& operator=(const SysOverride&) = delete;

 private:
  SysCalls saved_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool fileExists(const std::string& path);

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_TEST_SUPPORT_H_
