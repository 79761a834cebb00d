// The console as the engineer holds it: standard input a pipe that stays
// open. One console answers 60 rounds of the lines in
// tests/golden/held_round.txt, each round answered while the pipe stays
// open: every command of the table on the sample card, succeeding and failing in
// every way a card and its data files can make it fail, while the card goes
// from whole to cut short, to a directory and to missing. After each stretch
// it holds exactly the descriptors it held before its first command. And the
// line parser when memory runs out.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "console/console.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

int exitStatus(pid_t pid) {
  int status = -1;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A line's words take three blocks; when any of them cannot be had the
// line gives no record, as a blank line does, and nothing is kept.
TEST(LineParserTest, AFailedAllocationGivesNoRecordAndKeepsNothing) {
  for (int n = 1; n <= 3; ++n) {
    SysFaults faults({Call::kMalloc, n});
    EXPECT_EQ(_tr_lineParser("maintain x", 10), nullptr) << n;
    EXPECT_EQ(faults.unreturned(), 0) << n;
  }
}

std::set<std::string> descriptors(pid_t pid) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
    names.insert(entry.path().filename());
  }
  return names;
}

TEST(HeldConsoleTest, NoDescriptorOutlivesAnyCommand) {
  TempDir dir;
  const std::string card = dir.file("card.img");
  const std::string media = dir.file("media");
  ASSERT_EQ(runProgram({TRELLIS_MKCARD_BIN, "--size", "2G", "--sample", media, card}, "", {}).status, 0);
  // An output name taken by a directory, a data file that is a directory,
  // one missing.
  ASSERT_TRUE(::mkdir((media + "/00001_0002.mp4").c_str(), 0755) == 0 &&
              ::unlink((media + "/TR00003.mp4").c_str()) == 0 &&
              ::mkdir((media + "/TR00003.mp4").c_str(), 0755) == 0 &&
              ::unlink((media + "/TR00002.picture").c_str()) == 0);
  const std::string round = readFile(sourceFile("golden", "held_round.txt"));
  const int lines = static_cast<int>(std::count(round.begin(), round.end(), '\n'));
  // Standard input and output are pipes the console holds the only read
  // and write ends of, so it sees the end of its input when the test ends.
  int in[2];
  int out[2];
  ASSERT_TRUE(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0);
  const int fds[3] = {in[0], out[1], ::open(dir.file("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)};
  const pid_t pid = spawn({TRELLIS_MAINTAIN_BIN}, {{"TRELLIS_DEVICE", card}, {"TRELLIS_MEDIA_DIR", media}}, fds);
  for (int fd : fds) ::close(fd);
  signal(SIGPIPE, SIG_IGN);  // a console that died fails the test instead
  // Reads the output until the console has prompted `wanted` times in all;
  // false when it ended first.
  std::string printed;
  int prompts = 0;
  const std::string prompt = "\x1b[32mplease enter the console command:\x1b[0m\n";
  auto waitForPrompts = [&](int wanted) {
    char buffer[65536];
    for (ssize_t n; prompts < wanted && (n = ::read(out[0], buffer, sizeof buffer)) > 0;) {
      printed.append(buffer, static_cast<size_t>(n));
      for (size_t at; (at = printed.find(prompt)) != std::string::npos; ++prompts) {
        printed.erase(0, at + prompt.size());
      }
    }
    return prompts >= wanted;
  };
  ASSERT_TRUE(waitForPrompts(1));
  const std::set<std::string> atStart = descriptors(pid);
  auto stretch = [&](int rounds, const char* state) {
    SCOPED_TRACE(state);
    for (int i = 0; i < rounds; ++i) {
      ASSERT_TRUE(::write(in[1], round.data(), round.size()) == static_cast<ssize_t>(round.size()) &&
                  waitForPrompts(prompts + lines))
          << readFile(dir.file("err")).substr(0, 2000);
    }
    EXPECT_EQ(descriptors(pid), atStart);
  };
  stretch(30, "whole card");
  // Record segment 1/1 (51624) now crosses the end, the records after it
  // lie beyond it.
  EXPECT_EQ(::truncate(card.c_str(), 51924), 0);
  stretch(10, "card cut short");
  EXPECT_TRUE(::unlink(card.c_str()) == 0 && ::mkdir(card.c_str(), 0755) == 0);
  stretch(10, "card a directory");
  EXPECT_EQ(::rmdir(card.c_str()), 0);
  stretch(10, "card missing");
  // Words after "exit" are ignored, and so is every line after it.
  EXPECT_EQ(::write(in[1], "exit now please\nhello\n", 22), 22);
  ::close(in[1]);
  EXPECT_FALSE(waitForPrompts(prompts + 1));
  ::close(out[0]);
  EXPECT_EQ(exitStatus(pid), 0);
  EXPECT_EQ(printed, "\x1b[31mBye Trellis Maintain\x1b[0m\n");
  // Every kind of failure was met along the way.
  const std::string errors = readFile(dir.file("err"));
  for (const char* seen : {"fileNum INVALID", "auxNum INVALID", "ctxNum INVALID", "READ FAILED",
                           "INCOMPLETE READ", "OPEN FAILED", "Will not write", "Will not read",
                           "open source", "Invalid picNum"}) {
    EXPECT_NE(errors.find(seen), std::string::npos) << seen;
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
