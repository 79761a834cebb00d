#include "bench/bench_process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace tr {
namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start, Clock::time_point end) {
  return std::chrono::duration<double>(end - start).count();
}

[[noreturn]] void execWith(const std::vector<std::string>& argv, const Env& env) {
  for (const auto& [name, value] : env) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> args;
  for (const std::string& word : argv) args.push_back(const_cast<char*>(word.c_str()));
  args.push_back(nullptr);
  execvp(args[0], args.data());
  _exit(127);
}

bool writeAll(int fd, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

Outcome runTimed(const std::vector<std::string>& argv, const std::string& input,
                 const Env& env, int expected) {
  int in[2];
  if (pipe(in) != 0) return {};
  const Clock::time_point start = Clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(in[0], 0);
    dup2(null, 1);
    dup2(null, 2);
    close(in[1]);
    execWith(argv, env);
  }
  close(in[0]);
  const bool written = writeAll(in[1], input);
  close(in[1]);
  int status = 0;
  struct rusage usage;
  std::memset(&usage, 0, sizeof usage);
  wait4(pid, &status, 0, &usage);
  Outcome outcome;
  outcome.seconds = since(start, Clock::now());
  outcome.ok = written && WIFEXITED(status) && WEXITSTATUS(status) == expected;
  outcome.maxRssKiB = usage.ru_maxrss;
  return outcome;
}

Throughput runThroughput(const std::string& console, const std::string& line,
                         int count, const Env& env) {
  int in[2];
  int out[2];
  if (pipe(in) != 0 || pipe(out) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(null, 2);
    close(in[1]);
    close(out[0]);
    execWith({console}, env);
  }
  close(in[0]);
  close(out[1]);
  std::string script;
  for (int i = 0; i < count; ++i) script += line;
  std::thread writer([&] {
    writeAll(in[1], script);
    close(in[1]);
  });

  static const std::string kPrompt = "please enter the console command:";
  std::vector<Clock::time_point> prompts;
  std::string tail;
  char buffer[1 << 16];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) {
    const Clock::time_point now = Clock::now();
    std::string text = tail + std::string(buffer, static_cast<size_t>(n));
    for (size_t at = text.find(kPrompt); at != std::string::npos;
         at = text.find(kPrompt, at + kPrompt.size())) {
      prompts.push_back(now);
    }
    const size_t keep = std::min(text.size(), kPrompt.size() - 1);
    tail = text.substr(text.size() - keep);
  }
  writer.join();
  close(out[0]);
  int status = 0;
  waitpid(pid, &status, 0);

  Throughput result;
  // A prompt before every command and one more at the end of input.
  if (static_cast<int>(prompts.size()) < count + 1 || count < 2000) return result;
  result.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  result.seconds = since(prompts[0], prompts[count]);
  result.firstThousand = since(prompts[0], prompts[1000]);
  result.lastThousand = since(prompts[count - 1000], prompts[count]);
  return result;
}

long strippedSize(const std::string& path, const std::string& strip) {
  const std::string copy = path + ".stripped";
  const std::string command = strip + " -o '" + copy + "' '" + path + "'";
  if (std::system(command.c_str()) != 0) return -1;
  struct stat st;
  const long size = stat(copy.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
  unlink(copy.c_str());
  return size;
}

}  // namespace bench
}  // namespace tr
