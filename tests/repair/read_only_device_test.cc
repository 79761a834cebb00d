// A device the user may read but not write: every writing command fails at
// its open and the card stays as it was. Root opens a read-only file for
// writing all the same, so the console runs as the unprivileged user
// 65534 on an image it can only read.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/device_faults.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

constexpr uid_t kNobody = 65534;

// Exit codes of the child when it cannot set the case up.
constexpr int kCannotDropPrivileges = 90;
constexpr int kStillWritable = 91;
constexpr int kCannotExecute = 92;

struct Outcome {
  RunResult run;
  std::string skipReason;  // set when the case cannot be made real here
};

Outcome runConsoleAsNobody(const std::string& image, const std::string& input) {
  TempDir io;  // root's only: the child opens these before it drops root
  const std::string inPath = io.file("stdin");
  const std::string outPath = io.file("stdout");
  const std::string errPath = io.file("stderr");
  writeFile(inPath, input);

  std::vector<std::string> command;
  std::istringstream wrapper(std::getenv("TRELLIS_TEST_EXEC_WRAPPER") == nullptr
                                 ? ""
                                 : std::getenv("TRELLIS_TEST_EXEC_WRAPPER"));
  for (std::string word; wrapper >> word;) command.push_back(word);
  command.push_back(TRELLIS_MAINTAIN_BIN);
  std::vector<char*> args;
  for (std::string& word : command) args.push_back(&word[0]);
  args.push_back(nullptr);

  const pid_t pid = fork();
  if (pid == 0) {
    const int in = ::open(inPath.c_str(), O_RDONLY);
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || out < 0 || err < 0) _exit(126);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 ||
        setuid(kNobody) != 0) {
      _exit(kCannotDropPrivileges);
    }
    if (::open(image.c_str(), O_RDWR) >= 0) _exit(kStillWritable);
    if (::access(TRELLIS_MAINTAIN_BIN, X_OK) != 0) _exit(kCannotExecute);
    setenv("TZ", "UTC", 1);
    unsetenv("NO_COLOR");
    unsetenv("TRELLIS_MEDIA_DIR");
    setenv("TRELLIS_DEVICE", image.c_str(), 1);
    execvp(args[0], args.data());
    _exit(127);
  }

  Outcome outcome;
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) {
    outcome.skipReason = "cannot start a child process";
    return outcome;
  }
  if (WIFEXITED(status)) {
    outcome.run.status = WEXITSTATUS(status);
    if (outcome.run.status == kCannotDropPrivileges) {
      outcome.skipReason = "cannot switch to uid/gid 65534 (not root?)";
    } else if (outcome.run.status == kStillWritable) {
      outcome.skipReason =
          "uid 65534 can still open a mode-0444 file for writing here";
    } else if (outcome.run.status == kCannotExecute) {
      outcome.skipReason =
          "uid 65534 cannot execute the console binary in the build tree";
    }
  }
  outcome.run.out = readFile(outPath);
  outcome.run.err = readFile(errPath);
  return outcome;
}

TEST(ReadOnlyDeviceTest, EveryWritingCommandFailsAtTheOpenAndChangesNothing) {
  TempDir dir;
  // Traversable, not listable or writable, for the unprivileged user.
  ASSERT_EQ(::chmod(dir.path().c_str(), 0711), 0);
  CardImage image(dir.file("card.img"), 4194304);
  image.putText(51328, std::string("IDX_01\0", 7));
  image.put32(51328 + 152, 50);
  image.putText(51200, "TR_V001");
  ASSERT_EQ(::chmod(image.path().c_str(), 0444), 0);
  const std::string before = wholeImage(image.path());

  const Outcome o = runConsoleAsNobody(
      image.path(),
      "maintain recException\nmaintain picBackUpNormal\n"
      "maintain recChangeAuxCtxNum 1 1\nmaintain memsetTrellisHead\n");
  if (!o.skipReason.empty()) GTEST_SKIP() << o.skipReason;

  EXPECT_EQ(o.run.status, 0);
  // Start-up could read the device, so the layout is the card's own.
  EXPECT_NE(o.run.out.find("deviceSize          : \x1b[32m4194304\x1b[0m\n"),
            std::string::npos);
  EXPECT_EQ(commandOutput(o.run.out), "");
  const std::string block =
      openFailedBlock(image.path(), "Permission denied (13)");
  EXPECT_EQ(maskTimestamps(o.run.err), block + block + block + block);
  EXPECT_EQ(changedBytes(before, wholeImage(image.path())), ByteChanges());
}

}  // namespace
}  // namespace test
}  // namespace tr
