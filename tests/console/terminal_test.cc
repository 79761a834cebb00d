// The console at a terminal: lines typed through the line editor on a
// pseudo-terminal run as the same lines piped in, and what was typed comes
// back from the history, from one session to the next.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

const std::string kPrompt =
    "\x1b[32mplease enter the console command:\x1b[0m\r\n";
// What the editor draws first, once the terminal is raw.
const std::string kReady = "\x1b[0K";

// A console on a pseudo-terminal; keys go in, the screen's bytes come out.
class Terminal {
 public:
  Terminal(const std::string& card, const EnvList& env,
           const std::vector<std::string>& args = {}) {
    EnvList all = {{"TRELLIS_DEVICE", card}};
    all.insert(all.end(), env.begin(), env.end());
    std::vector<std::string> argv = {TRELLIS_MAINTAIN_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    pid_ = spawnOnTerminal(argv, all, &master_);
  }
  ~Terminal() {
    if (pid_ > 0) finish();
  }

  // Waits for `text` after what was read up to `from`; its end, or npos.
  size_t waitFor(const std::string& text, size_t from) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
      const size_t at = screen_.find(text, from);
      if (at != std::string::npos) return at + text.size();
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      struct pollfd ready = {master_, POLLIN, 0};
      char buf[4096];
      ssize_t n = 0;
      if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0 ||
          (n = read(master_, buf, sizeof buf)) <= 0) {
        ADD_FAILURE() << "no " << testing::PrintToString(text) << " in "
                      << testing::PrintToString(screen_.substr(from));
        return std::string::npos;
      }
      screen_.append(buf, static_cast<size_t>(n));
    }
  }
  // Waits for `text` after what was last waited for.
  void expect(const std::string& text) {
    const size_t at = waitFor(text, mark_);
    if (at != std::string::npos) mark_ = at;
  }
  // Waits for the next prompt with the editor reading; where it is ready.
  size_t prompt() {
    const size_t at = waitFor(kPrompt, mark_);
    mark_ = at == std::string::npos ? screen_.size() : waitFor(kReady, at);
    return mark_;
  }
  void type(const std::string& keys) {
    ASSERT_EQ(write(master_, keys.data(), keys.size()),
              static_cast<ssize_t>(keys.size()));
  }
  // Types `keys`, which end the line, and returns what the console printed
  // for it, newlines as a pipe shows them.
  std::string run(const std::string& keys) {
    const size_t from = mark_;
    type(keys);
    const size_t shown = waitFor("\r\n", from);
    const size_t end = waitFor(kPrompt, shown) - kPrompt.size();
    mark_ = waitFor(kReady, end);
    return maskTimestamps(replaced(screen_.substr(shown, end - shown), "\r\n", "\n"));
  }
  void resize(unsigned short columns) {
    struct winsize size = {24, columns, 0, 0};
    ioctl(master_, TIOCSWINSZ, &size);
  }
  const std::string& screen() const { return screen_; }
  // Waits for the console to end; its exit status.
  int finish() {
    // Read to the end, which a console that waits for a line never
    // reaches: it is then stopped.
    struct pollfd ready = {master_, POLLIN, 0};
    char buf[4096];
    int got = 0;
    while ((got = poll(&ready, 1, 30000)) > 0 && read(master_, buf, sizeof buf) > 0) {
    }
    if (got == 0) {
      ADD_FAILURE() << "the console did not end";
      kill(pid_, SIGKILL);
    }
    int status = -1;
    waitpid(pid_, &status, 0);
    close(master_);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int master_ = -1;
  std::string screen_;
  size_t mark_ = 0;
};

class TerminalTest : public testing::Test {
 protected:
  // The sample card of 4 record data files, of which 1 and 3 are in use.
  TerminalTest() {
    const RunResult made = runProgram(
        {TRELLIS_MKCARD_BIN, "--size", "1G", "--files", "4", "--segments", "4",
         "--time", "1700000000", "--sample", dir_.file("media"), card_},
        "", {});
    EXPECT_EQ(made.status, 0) << made.err;
    // The inUse byte of record data file 2's head.
    EXPECT_TRUE(poke(card_, 51328 + 264 + 32 + 4 * 640 + 7, std::string(1, '\0')));
  }

  // What the plain console prints for each line of `lines` piped in.
  std::vector<std::string> piped(const std::string& lines) {
    const RunResult r =
        runProgram({TRELLIS_MAINTAIN_BIN}, lines, {{"TRELLIS_DEVICE", card_}});
    std::vector<std::string> parts;
    const std::string prompt = replaced(kPrompt, "\r\n", "\n");
    for (size_t at = r.out.find(prompt); at != std::string::npos;) {
      const size_t next = r.out.find(prompt, at + prompt.size());
      if (next == std::string::npos) break;
      parts.push_back(
          maskTimestamps(r.out.substr(at + prompt.size(), next - at - prompt.size())));
      at = next;
    }
    return parts;
  }

  EnvList history() const { return {{"TRELLIS_HISTORY", dir_.file("history")}}; }

  TempDir dir_;
  const std::string card_ = dir_.file("card.img");
};

// Moving, erasing and keys the editor does not know, then Enter: the
// command prints exactly what the edited line prints when piped in. A line
// of 2047 characters is cut as the console cuts it from a pipe.
TEST_F(TerminalTest, EditedLinesRunAsPipedLines) {
  const std::string longLine =
      "maintain recDataFileInfo 3 1" + std::string(2047 - 29, ' ') + "9";
  const std::vector<std::string> want = piped(
      "maintain recDataFileInfo 3 2\nmaintain TrellisHead\n" + longLine + "\n");
  ASSERT_EQ(want.size(), 4u);
  Terminal t(card_, history());
  t.prompt();
  // An F5, an Alt-x, a Ctrl-Right and UTF-8 bytes inside the command word;
  // Home, three Deletes, End, Left twice, Backspace.
  EXPECT_EQ(t.run("xx maintain recData\x1b[15~\x1bx\x1b[1;5C\xc3\xa9" "FileInfo 9 2"
                  "\x1b[H\x1b[3~\x1b[3~\x1b[3~\x1b[F\x1b[D\x1b[D\x7f" "3\r"),
            want[0]);
  // On a narrower terminal: Ctrl-U, Ctrl-A, Ctrl-E, Ctrl-W, Ctrl-B twice,
  // Ctrl-F, Ctrl-K, and Ctrl-L, which shows the prompt again.
  t.resize(20);
  t.type("nothing\x15maintain Trellis\x01\x05Head extra\x17\x02\x02\x06\x0b\x0c");
  t.expect("\x1b[2J" + kPrompt);
  EXPECT_EQ(t.run("\r"), want[1]);
  EXPECT_EQ(t.run(longLine + "\r"), want[2]);
  t.type("\x04");
  EXPECT_EQ(t.finish(), 0);
}

// Lines come back with Up and Ctrl-R in the next session; Ctrl-C drops a
// line, Ctrl-D ends as exit does. The history never lies on the card.
TEST_F(TerminalTest, HistoryOutlivesTheSession) {
  {
    Terminal t(card_, {{"HOME", dir_.path()}});
    t.prompt();
    t.run("maintain recDataFileInfo 3 2\r");
    t.run("maintain TrellisHead\r");
    t.type("maintain recNormal\x03");
    t.prompt();
    t.type("\x04");
    EXPECT_EQ(t.finish(), 0);
  }
  const std::string file = dir_.file(".local/state/trellis-maintain/history");
  EXPECT_EQ(readFile(file), "maintain recDataFileInfo 3 2\nmaintain TrellisHead\n");
  Terminal t(card_, {{"XDG_STATE_HOME", dir_.file(".local/state")}});
  t.prompt();
  EXPECT_NE(t.run("\x1b[A\x1b[A\r").find("fileNum:3, segmentNum:2"), std::string::npos);
  EXPECT_NE(t.run("\x12Trel\r").find("idxFileOffsetAV"), std::string::npos);
  t.type("exit\r");
  EXPECT_EQ(t.finish(), 0);

  Terminal onCard(card_, {{"TRELLIS_HISTORY", dir_.file("media/history")},
                          {"TRELLIS_MEDIA_DIR", dir_.file("media")}});
  onCard.prompt();
  onCard.run("maintain TrellisHead\r");
  onCard.type("exit\r");
  EXPECT_EQ(onCard.finish(), 0);
  EXPECT_NE(onCard.screen().find("/media/history lies on the card; no history is kept"),
            std::string::npos);
  EXPECT_NE(access(dir_.file("media/history").c_str(), F_OK), 0);
}

// Tab completes the words and the numbers the card holds; Tab again lists
// them under the command's usage. A line naming no command gets the hint.
TEST_F(TerminalTest, TabCompletesFromTheCard) {
  Terminal t(card_, history());
  t.prompt();
  t.type("mai\trecDataFileI\t");
  t.expect("maintain recDataFileInfo ");
  t.type("\t\t");
  t.expect("\r\nrecDataFileInfo fileNum segmentNum: ");
  t.expect("\r\n1  3\r\n");
  t.type("3\t\t\t");
  t.expect("\r\n1  2\r\n");
  EXPECT_NE(t.run("2\r").find("fileNum:3, segmentNum:2"), std::string::npos);
  t.type("maintain onePic 1 2 \t\t");
  t.expect("\r\n1  2  3\r\n");
  EXPECT_EQ(t.run("\x15recDataFileInfo 3 2\r"),
            "console: recDataFileInfo: no such command; closest: maintain "
            "recDataFileInfo fileNum segmentNum\n"
            "console: command not found\nsupport: \n\tmaintain xxx\n\texit\n");
  // The first write of a session without a journal says so, once.
  const std::string warning = "this change cannot be undone: no undo journal is kept";
  EXPECT_NE(t.run("maintain recNormal\r").find(warning), std::string::npos);
  EXPECT_EQ(t.run("maintain picNormal\r").find(warning), std::string::npos);
  t.type("ex\t\r");
  EXPECT_EQ(t.finish(), 0);
}

// --repair at a terminal asks before each fix, and makes the ones answered
// yes: the primary's data file head over the backup's (not safe), not the
// dataOffset, the backup picture index file's mark.
TEST_F(TerminalTest, RepairAsksBeforeEachFix) {
  Terminal t(card_, {{"TRELLIS_MEDIA_DIR", dir_.file("media")}},
             {"--repair", "--no-undo"});
  t.expect("  fix: backup recordIndexFile file 2 written from recordIndexFile: inUse 1 -> 0 "
           "(not safe: both copies pass every check)\r\nFix? [y/N] ");
  t.type("y\r");
  t.expect("  fix: recordIndexFile file 3 segment 2 written from backup recordIndexFile: "
           "dataOffset 0x1a9000 -> 0xa9000\r\nFix? [y/N] ");
  t.type("\r");
  t.expect("  fix: backup pictureIndexFile marked normal: magicWord \"\" -> \"IDX_01\", "
           "exceptionFlag 1 -> 0\r\nFix? [y/N] ");
  t.type("yes\r");
  t.expect("repair: 2 fixed, 2 not fixable, 1 declined\r\n");
  EXPECT_EQ(t.finish(), 5);
}

}  // namespace
}  // namespace test
}  // namespace tr
