#include "tests/support/test_support.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "format/device_layout.h"

namespace tr {
namespace test {

TempDir::TempDir() {
  const char* root = std::getenv("TMPDIR");
  path_ = (root != nullptr && *root != '\0' ? root : "/tmp") +
          std::string("/trellis-test-XXXXXX");
  if (mkdtemp(&path_[0]) == nullptr) ADD_FAILURE() << "mkdtemp failed";
}

TempDir::~TempDir() {
  const int ignored = std::system(("rm -rf '" + path_ + "'").c_str());
  (void)ignored;
}

CardImage::CardImage(const std::string& path, uint64_t size) : path_(path) {
  writeFile(path, "");
  if (::truncate(path.c_str(), static_cast<off_t>(size)) != 0) {
    ADD_FAILURE() << "cannot create image " << path;
  }
}

void CardImage::put(uint64_t offset, const void* bytes, size_t count) const {
  const int fd = ::open(path_.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::pwrite(fd, bytes, count, static_cast<off_t>(offset)),
            static_cast<ssize_t>(count));
  ::close(fd);
}

void CardImage::putText(uint64_t offset, const std::string& text) const {
  put(offset, text.data(), text.size());
}

void CardImage::putLE(uint64_t offset, uint64_t value, size_t count) const {
  uint8_t bytes[8];
  for (size_t i = 0; i < count; ++i)
    bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  put(offset, bytes, count);
}

std::string CardImage::read(uint64_t offset, size_t count) const {
  std::string bytes(count, '\0');
  const int fd = ::open(path_.c_str(), O_RDONLY);
  const ssize_t got =
      fd < 0 ? 0 : ::pread(fd, &bytes[0], count, static_cast<off_t>(offset));
  if (fd >= 0) ::close(fd);
  bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return bytes;
}

pid_t spawn(const std::vector<std::string>& argv, const EnvList& env,
            const int fds[3]) {
  const char* wrapper = std::getenv("TRELLIS_TEST_EXEC_WRAPPER");
  std::istringstream words(wrapper == nullptr ? "" : wrapper);
  std::vector<std::string> command{std::istream_iterator<std::string>(words),
                                   {}};
  command.insert(command.end(), argv.begin(), argv.end());
  std::vector<char*> args;
  for (std::string& word : command) args.push_back(&word[0]);
  args.push_back(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  for (int fd = 0; fd < 3; ++fd) fds[fd] < 0 ? ::close(fd) : dup2(fds[fd], fd);
  setenv("TZ", "UTC", 1);
  for (const char* name : {"NO_COLOR", "TRELLIS_DEVICE", "TRELLIS_MEDIA_DIR"}) {
    unsetenv(name);
  }
  for (const auto& [name, value] : env) setenv(name.c_str(), value.c_str(), 1);
  execvp(args[0], args.data());
  _exit(127);
}

RunResult runProgram(const std::vector<std::string>& argv,
                     const std::string& input, const EnvList& env) {
  TempDir io;
  writeFile(io.file("in"), input);
  const int fds[3] = {::open(io.file("in").c_str(), O_RDONLY),
                      ::open(io.file("out").c_str(), O_WRONLY | O_CREAT, 0644),
                      ::open(io.file("err").c_str(), O_WRONLY | O_CREAT, 0644)};
  const pid_t pid = spawn(argv, env, fds);
  for (int fd : fds) ::close(fd);
  int status = 0;
  const bool waited = pid > 0 && waitpid(pid, &status, 0) == pid;
  RunResult result;
  if (waited && WIFEXITED(status)) result.status = WEXITSTATUS(status);
  result.out = readFile(io.file("out"));
  result.err = readFile(io.file("err"));
  // No program under test ends on a signal or with the checkers' status,
  // whatever the test expects of its output.
  if ((waited && WIFSIGNALED(status)) || result.status == kCheckerStatus) {
    ADD_FAILURE() << argv[0] << " ended with wait status " << status
                  << " (a signal, or a sanitizer or valgrind report at "
                  << kCheckerStatus << "); its standard error:\n"
                  << result.err;
  }
  return result;
}

RunResult runConsole(const std::string& input, const EnvList& env) {
  return runProgram({TRELLIS_MAINTAIN_BIN}, input, env);
}

std::string maskTimestamps(const std::string& text) {
  static const std::regex stamp(
      "(\x1b\\[33m)?\\[\\d{4}-\\d\\d-\\d\\d "
      "\\d\\d:\\d\\d:\\d\\d\\](\x1b\\[0m)?");
  return std::regex_replace(text, stamp, "<TS>");
}

std::vector<std::string> splitAtPrompts(const std::string& out) {
  const std::string coloured =
      "\x1b[32mplease enter the console command:\x1b[0m\n";
  const std::string prompt = out.find(coloured) != std::string::npos
                                 ? coloured
                                 : "please enter the console command:\n";
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t at; (at = out.find(prompt, start)) != std::string::npos;
       start = at + prompt.size()) {
    parts.push_back(out.substr(start, at - start));
  }
  parts.push_back(out.substr(start));
  return parts;
}

std::string commandOutput(const std::string& out) {
  const std::vector<std::string> parts = splitAtPrompts(out);
  std::string text;
  for (size_t i = 1; i < parts.size(); ++i) text += parts[i];
  for (const char* bye :
       {"\x1b[31mBye Trellis Maintain\x1b[0m\n", "Bye Trellis Maintain\n"}) {
    const size_t at = text.size() - std::min(text.size(), std::strlen(bye));
    if (text.compare(at, std::string::npos, bye) == 0)
      return text.substr(0, at);
  }
  return text;
}

Captured capture(const std::function<void()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  body();
  std::fflush(stdout);
  const std::string out = testing::internal::GetCapturedStdout();
  return {out, testing::internal::GetCapturedStderr()};
}

UseDevice::UseDevice(const std::string& image) : saved_(deviceName) {
  struct stat st;
  setDevicePath(image);
  trellisHead = computeTrellisHead(
      ::stat(image.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0);
}

UseDevice::UseDevice(const std::string& image, uint64_t capacity)
    : saved_(deviceName) {
  setDevicePath(image);
  trellisHead = computeTrellisHead(capacity);
}

UseDevice::~UseDevice() { setDevicePath(saved_); }

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

bool fileExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace test
}  // namespace tr
