#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

const char kNotFound[] = "console: command not found\nsupport: \n\tmaintain xxx\n\texit\n";
const char kBye[] = "\x1b[31mBye Trellis Maintain\x1b[0m\n";
const char kPrompt[] = "\x1b[32mplease enter the console command:\x1b[0m\n";

size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + what.size())) {
    ++n;
  }
  return n;
}

class ConsoleTest : public testing::Test {
 protected:
  ConsoleTest() : image_(dir_.file("card.img"), kCard2G) {
    image_.put32(kCard2GRec + 144, 4);  // maxFileNum, to tell reads apart
  }

  RunResult run(const std::string& script, EnvList env = {}) {
    env.emplace_back("TRELLIS_DEVICE", image_.path());
    return runConsole(script, env);
  }

  TempDir dir_;
  CardImage image_;
};

TEST_F(ConsoleTest, GreetsPromptsAndSaysGoodbye) {
  const RunResult r = run("exit now please\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0].rfind("\x1b[31mHello Trellis Maintain\x1b[0m\n", 0), 0u);
  EXPECT_EQ(parts[1], kBye);
}

TEST_F(ConsoleTest, BlankLinesOnlyPromptAgain) {
  const RunResult r = run("\n   \n\t \t\n\nexit\n");
  EXPECT_EQ(count(r.out, kPrompt), 5u);
  EXPECT_EQ(commandOutput(r.out), "");
  EXPECT_EQ(r.err, "");
}

TEST_F(ConsoleTest, OnlyExactLowerCaseWordsAreCommands) {
  const RunResult r = run("Exit\nMAINTAIN recIndexFileHead\nhelp\nexit\n");
  EXPECT_EQ(commandOutput(r.out), std::string(kNotFound) + kNotFound + kNotFound);
}

TEST_F(ConsoleTest, DispatcherAnswersMalformedCommandsWithHelpOrSilence) {
  const RunResult r = run(
      "maintain\n"
      "maintain a b c d e\n"
      "maintain recDataFileHead\n"
      "maintain nosuch\n"
      "maintain recDataFileHead 1 2\n"
      "maintain TrellisHead now\n"
      "maintain recIndexFileHead 1\n"
      "maintain nosuch 1 2 3\n");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 10u);
  for (int i = 1; i <= 4; ++i) {
    EXPECT_EQ(parts[i].rfind("Supported maintenance commands:\n", 0), 0u) << i;
    EXPECT_EQ(count(parts[i], "\n"), 64u) << i;
  }
  for (int i = 5; i <= 8; ++i) EXPECT_EQ(parts[i], "") << i;
  EXPECT_EQ(parts[9], kBye);
  EXPECT_EQ(r.err, "");
}

TEST_F(ConsoleTest, WordsAfterMaintainReachTheDispatcherAcrossTabs) {
  const RunResult r = run("  maintain\trecIndexFileHead  \n");
  EXPECT_NE(commandOutput(r.out).find("Max File Number     : \x1b[32m4\x1b[0m\n"),
            std::string::npos);
}

TEST_F(ConsoleTest, AnOverlongLineIsTakenInPiecesEachLosingItsLastCharacter) {
  // 2047 characters fill the line buffer; their last one ("X") is dropped,
  // which leaves a valid command. The rest of the line is a line of its own.
  std::string first = "maintain" + std::string(2022, ' ') + "recIndexFileHeadX";
  ASSERT_EQ(first.size(), 2047u);
  const RunResult r = run(first + "exit\n");
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_NE(parts[1].find("=== tr_IndexFileHead ==="), std::string::npos);
  EXPECT_EQ(parts[2], kBye);
}

TEST_F(ConsoleTest, TheLastLineWithoutNewlineLosesItsLastCharacterThenInputEnds) {
  const RunResult r = run("maintain recIndexFileHeadX");
  EXPECT_EQ(r.status, 0);
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_NE(parts[1].find("=== tr_IndexFileHead ==="), std::string::npos);
  EXPECT_EQ(parts[2], kBye);
}

TEST_F(ConsoleTest, EndOfInputEndsLikeExit) {
  const RunResult r = run("");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(splitAtPrompts(r.out).back(), kBye);
}

TEST_F(ConsoleTest, NoStandardInputAtAllEndsAtOnce) {
  const pid_t pid = fork();
  if (pid == 0) {
    const int out = ::open("/dev/null", O_WRONLY);
    dup2(out, 1);
    dup2(out, 2);
    ::close(0);
    execWithEnv(wrappedCommand({TRELLIS_MAINTAIN_BIN}),
                {{"TRELLIS_DEVICE", image_.path()}});
  }
  const auto start = std::chrono::steady_clock::now();
  int status = -1;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() - start > std::chrono::seconds(20)) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      FAIL() << "the console kept waiting without standard input";
    }
    usleep(10000);
  }
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(ConsoleTest, BufferedLinesAreAnsweredWhileThePipeStaysOpen) {
  int in[2];
  int out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    ::close(in[1]);
    ::close(out[0]);
    execWithEnv(wrappedCommand({TRELLIS_MAINTAIN_BIN}),
                {{"TRELLIS_DEVICE", image_.path()}});
  }
  ::close(in[0]);
  ::close(out[1]);
  std::string script;
  for (int i = 0; i < 10; ++i) script += "hello\n";
  ASSERT_EQ(write(in[1], script.data(), script.size()),
            static_cast<ssize_t>(script.size()));

  // All ten answers arrive although nothing more is written.
  std::string seen;
  const auto start = std::chrono::steady_clock::now();
  while (count(seen, "console: command not found\n") < 10 &&
         std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
    struct pollfd p = {out[0], POLLIN, 0};
    if (poll(&p, 1, 100) > 0) {
      char buf[4096];
      const ssize_t n = read(out[0], buf, sizeof buf);
      if (n <= 0) break;
      seen.append(buf, static_cast<size_t>(n));
    }
  }
  EXPECT_EQ(count(seen, "console: command not found\n"), 10u);

  ::close(in[1]);
  char buf[4096];
  for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) {
    seen.append(buf, static_cast<size_t>(n));
  }
  ::close(out[0]);
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(splitAtPrompts(seen).back(), kBye);
}

TEST_F(ConsoleTest, NoColorRemovesEveryEscapeSequenceAndNothingElse) {
  const std::string script = "maintain\nmaintain recIndexFileHead\nbad\n";
  const RunResult coloured = run(script);
  const RunResult plain = run(script, {{"NO_COLOR", "1"}});
  EXPECT_EQ(plain.out.find('\x1b'), std::string::npos);
  std::string stripped;
  for (size_t i = 0; i < coloured.out.size(); ++i) {
    if (coloured.out[i] == '\x1b') {
      i = coloured.out.find('m', i);
      continue;
    }
    stripped += coloured.out[i];
  }
  EXPECT_EQ(maskTimestamps(plain.out), maskTimestamps(stripped));

  const RunResult empty = run(script, {{"NO_COLOR", ""}});
  EXPECT_EQ(maskTimestamps(empty.out), maskTimestamps(coloured.out));
}

}  // namespace
}  // namespace test
}  // namespace tr
