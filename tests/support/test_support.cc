#include "tests/support/test_support.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include "maintain/startup.h"

namespace tr {
namespace test {
namespace {

std::string tempRoot() {
  const char* dir = std::getenv("TMPDIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

void removeTree(const std::string& path) {
  const std::string command = "rm -rf '" + path + "'";
  const int ignored = std::system(command.c_str());
  (void)ignored;
}

std::vector<std::string> splitWords(const char* text) {
  std::vector<std::string> words;
  std::istringstream stream(text == nullptr ? "" : text);
  std::string word;
  while (stream >> word) words.push_back(word);
  return words;
}

}  // namespace

TempDir::TempDir() {
  std::string pattern = tempRoot() + "/trellis-test-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
  path_ = name.data();
}

TempDir::~TempDir() { removeTree(path_); }

CardImage::CardImage(const std::string& path, uint64_t size)
    : path_(path), size_(size) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
    ADD_FAILURE() << "cannot create image " << path;
  }
  if (fd >= 0) ::close(fd);
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

void CardImage::put8(uint64_t offset, uint8_t value) const {
  put(offset, &value, 1);
}

void CardImage::put16(uint64_t offset, uint16_t value) const {
  const uint8_t bytes[2] = {static_cast<uint8_t>(value),
                            static_cast<uint8_t>(value >> 8)};
  put(offset, bytes, 2);
}

void CardImage::put32(uint64_t offset, uint32_t value) const {
  uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  put(offset, bytes, 4);
}

void CardImage::put64(uint64_t offset, uint64_t value) const {
  uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  put(offset, bytes, 8);
}

std::string CardImage::read(uint64_t offset, size_t count) const {
  std::string bytes(count, '\0');
  const int fd = ::open(path_.c_str(), O_RDONLY);
  if (fd < 0) return std::string();
  const ssize_t got = ::pread(fd, &bytes[0], count, static_cast<off_t>(offset));
  ::close(fd);
  bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return bytes;
}

std::vector<std::string> wrappedCommand(const std::vector<std::string>& argv) {
  std::vector<std::string> command =
      splitWords(std::getenv("TRELLIS_TEST_EXEC_WRAPPER"));
  command.insert(command.end(), argv.begin(), argv.end());
  return command;
}

void execWithEnv(const std::vector<std::string>& command, const EnvList& env) {
  setenv("TZ", "UTC", 1);
  unsetenv("NO_COLOR");
  unsetenv("TRELLIS_DEVICE");
  unsetenv("TRELLIS_MEDIA_DIR");
  for (const auto& [name, value] : env) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> args;
  for (const std::string& word : command) {
    args.push_back(const_cast<char*>(word.c_str()));
  }
  args.push_back(nullptr);
  execvp(args[0], args.data());
  _exit(127);
}

RunResult runProgram(const std::vector<std::string>& argv,
                     const std::string& input, const EnvList& env) {
  TempDir io;
  const std::string inPath = io.file("stdin");
  const std::string outPath = io.file("stdout");
  const std::string errPath = io.file("stderr");
  writeFile(inPath, input);

  const std::vector<std::string> command = wrappedCommand(argv);

  RunResult result;
  const pid_t pid = fork();
  if (pid == 0) {
    const int in = ::open(inPath.c_str(), O_RDONLY);
    const int outFd = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int errFd = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || outFd < 0 || errFd < 0) _exit(126);
    dup2(in, 0);
    dup2(outFd, 1);
    dup2(errFd, 2);
    execWithEnv(command, env);
  }
  int status = 0;
  const bool waited = pid > 0 && waitpid(pid, &status, 0) == pid;
  if (waited && WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  result.out = readFile(outPath);
  result.err = readFile(errPath);
  // No program under test ends on a signal or with the checkers' status,
  // whatever the test expects of its output.
  if (waited && WIFSIGNALED(status)) {
    ADD_FAILURE() << argv[0] << " was killed by signal " << WTERMSIG(status)
                  << "; its standard error:\n" << result.err;
  } else if (result.status == kCheckerStatus) {
    ADD_FAILURE() << argv[0] << " ended with status " << kCheckerStatus
                  << " (a sanitizer or valgrind report); its standard "
                     "error:\n"
                  << result.err;
  }
  return result;
}

RunResult runConsole(const std::string& input, const EnvList& env) {
  return runProgram({TRELLIS_MAINTAIN_BIN}, input, env);
}

std::string maskTimestamps(const std::string& text) {
  static const std::regex stamp(
      "(\x1b\\[33m)?\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\](\x1b\\[0m)?");
  return std::regex_replace(text, stamp, "<TS>");
}

std::vector<std::string> splitAtPrompts(const std::string& out) {
  static const std::string kColoured =
      "\x1b[32mplease enter the console command:\x1b[0m\n";
  static const std::string kPlain = "please enter the console command:\n";
  const std::string& prompt =
      out.find(kColoured) != std::string::npos ? kColoured : kPlain;
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t at = out.find(prompt, start);
    if (at == std::string::npos) break;
    parts.push_back(out.substr(start, at - start));
    start = at + prompt.size();
  }
  parts.push_back(out.substr(start));
  return parts;
}

std::string commandOutput(const std::string& out) {
  std::vector<std::string> parts = splitAtPrompts(out);
  std::string text;
  for (size_t i = 1; i < parts.size(); ++i) text += parts[i];
  static const std::string kByes[] = {"\x1b[31mBye Trellis Maintain\x1b[0m\n",
                                      "Bye Trellis Maintain\n"};
  for (const std::string& bye : kByes) {
    if (text.size() >= bye.size() &&
        text.compare(text.size() - bye.size(), bye.size(), bye) == 0) {
      text.resize(text.size() - bye.size());
      break;
    }
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
  Captured result;
  result.out = testing::internal::GetCapturedStdout();
  result.err = testing::internal::GetCapturedStderr();
  return result;
}

UseDevice::UseDevice(const std::string& image) : saved_(deviceName) {
  struct stat st;
  const uint64_t capacity =
      ::stat(image.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
  setDevicePath(image);
  trellisHead = computeTrellisHead(capacity);
}

UseDevice::UseDevice(const std::string& image, uint64_t capacity)
    : saved_(deviceName) {
  setDevicePath(image);
  trellisHead = computeTrellisHead(capacity);
}

UseDevice::~UseDevice() { setDevicePath(saved_); }

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool fileExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace test
}  // namespace tr
