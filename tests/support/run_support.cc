// The parts only the tests use.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <regex>
#include <sstream>

#include "format/device_layout.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {

namespace {

// In the child: the program started with the console's environment.
[[noreturn]] void execProgram(const std::vector<std::string>& argv,
                              const EnvList& env) {
  const char* wrapper = std::getenv("TRELLIS_TEST_EXEC_WRAPPER");
  std::istringstream words(wrapper == nullptr ? "" : wrapper);
  std::vector<std::string> command{std::istream_iterator<std::string>(words),
                                   {}};
  command.insert(command.end(), argv.begin(), argv.end());
  std::vector<char*> args;
  for (std::string& word : command) args.push_back(&word[0]);
  args.push_back(nullptr);
  setenv("TZ", "UTC", 1);
  for (const char* name : {"NO_COLOR", "TRELLIS_DEVICE", "TRELLIS_MEDIA_DIR",
                           "TRELLIS_UNDO", "TRELLIS_READ_ONLY",
                           "TRELLIS_HISTORY", "XDG_STATE_HOME"}) {
    unsetenv(name);
  }
  for (const auto& [name, value] : env) {
    setenv(name.c_str(), value.c_str(), 1);
    if (name == "PWD" && chdir(value.c_str()) != 0) _exit(127);
  }
  execvp(args[0], args.data());
  _exit(127);
}

}  // namespace

pid_t spawn(const std::vector<std::string>& argv, const EnvList& env,
            const int fds[3]) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  for (int fd = 0; fd < 3; ++fd) fds[fd] < 0 ? ::close(fd) : dup2(fds[fd], fd);
  execProgram(argv, env);
}

pid_t spawnOnTerminal(const std::vector<std::string>& argv, const EnvList& env,
                      int* master) {
  struct winsize size = {24, 80, 0, 0};
  const pid_t pid = forkpty(master, nullptr, nullptr, &size);
  if (pid != 0) return pid;
  execProgram(argv, env);
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
                  << " (a signal, or a sanitizer or valgrind report); its "
                     "standard error:\n"
                  << result.err;
  }
  return result;
}

RunResult runConsole(const std::string& input, const EnvList& env) {
  return runProgram({TRELLIS_MAINTAIN_BIN}, input, env);
}

RunResult runPython(const std::string& script, const std::string& input) {
  // Not under TRELLIS_TEST_EXEC_WRAPPER: python3 is a host tool.
  const char* wrapper = std::getenv("TRELLIS_TEST_EXEC_WRAPPER");
  const std::string saved = wrapper == nullptr ? "" : wrapper;
  unsetenv("TRELLIS_TEST_EXEC_WRAPPER");
  RunResult result;
  {
    TempDir dir;
    writeFile(dir.file("script.py"), script);
    result = runProgram({"python3", dir.file("script.py")}, input, {});
  }
  if (wrapper != nullptr) setenv("TRELLIS_TEST_EXEC_WRAPPER", saved.c_str(), 1);
  return result;
}

std::string maskTimestamps(const std::string& text) {
  static const std::regex stamp(
      "(\x1b\\[33m)?\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\](\x1b\\[0m)?");
  return std::regex_replace(text, stamp, "<TS>");
}

Captured capture(const std::function<void()>& body) {
  std::fflush(stdout);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  body();
  std::fflush(stdout);
  const std::string out = testing::internal::GetCapturedStdout();
  return {maskTimestamps(out),
          maskTimestamps(testing::internal::GetCapturedStderr())};
}

void useDevice(const std::string& image) {
  struct stat st;
  setDevicePath(image);
  trellisHead = computeTrellisHead(
      ::stat(image.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0);
}

std::string sourceFile(const std::string& folder, const std::string& name) {
  const std::string here = __FILE__;
  return here.substr(0, here.rfind("/support/") + 1) + folder + "/" + name;
}

std::string golden(const std::string& name) {
  const std::string path = sourceFile("golden", name);
  std::string text = readFile(path);
  if (text.empty()) ADD_FAILURE() << "no golden file " << path;
  for (size_t at; (at = text.find("\\e")) != std::string::npos;) {
    text.replace(at, 2, "\x1b");
  }
  return text;
}

}  // namespace test
}  // namespace tr
