// One console kept open over thousands of commands: every command of the
// table, succeeding and failing in every way a card and its data files can
// make it fail, while the card goes from whole to cut short, to a directory
// and to missing. After each stretch the console holds exactly the
// descriptors it held before its first command.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

const char kPrompt[] = "\x1b[32mplease enter the console command:\x1b[0m\n";

// The card: index files with maxFileNum 4, maxSegmentNum 8, maxAuxNumber
// 3. Record segments 1/1 (listing and copy work), 1/2 (its output name is
// taken by a directory), 2/1 (its data file is a directory) and 3/1 (no
// data file) are in use, and so is picture segment 1/1 with two pictures.
// A record data file block is 32 + 8 x 640 = 5152 bytes.
void makeCard(const CardImage& card, const TempDir& media) {
  for (uint64_t base :
       {kCard2GRec, kCard2GRecBackUp, kCard2GPic, kCard2GPicBackUp}) {
    card.putText(base, std::string("IDX_01\0", 7));
    card.put32(base + 144, 4);
    card.put32(base + 148, 8);
    card.put32(base + 152, 3);
  }
  const uint64_t rec11 = 51328 + 264 + 32;  // 51624
  card.put8(rec11 + 7, 1);
  card.put64(rec11 + 8, 16);    // dataOffset
  card.put64(rec11 + 16, 64);   // datalen
  card.put64(rec11 + 24, 100);  // iFrameInfoOffset
  card.put64(rec11 + 32, 64);   // iFrameInfoSize
  for (uint64_t segment : {rec11 + 640, rec11 + 5152, rec11 + 2 * 5152}) {
    card.put8(segment + 7, 1);
    card.put64(segment + 16, 10);
    card.put64(segment + 32, 32);
  }
  const uint64_t pic11 = 21500500 + 264 + 32;
  card.put8(pic11 + 7, 1);
  card.put64(pic11 + 24, 300);   // fragmentSize
  card.put32(pic11 + 48, 100);   // jpgSize of picture 1
  card.put32(pic11 + 72, 200);   // and of picture 2
  card.put8(pic11 + 1632, 2);    // validNum

  writeFile(media.file("TR00001.mp4"), std::string(300, 'm'));
  writeFile(media.file("TR00001.picture"), std::string(300, 'p'));
  mkdir(media.file("TR00002.mp4").c_str(), 0755);
  mkdir(media.file("00001_0002.mp4").c_str(), 0755);
}

// One round of lines: each command once or more, right and wrong.
const char* const kRound[] = {
    "maintain TrellisHead",
    "maintain recIndexFileHead",
    "maintain picBackUpIndexFileHead",
    "maintain recDataFileHead 1",
    "maintain recDataFileHead 9",
    "maintain picBackUpDataFileHead 2",
    "maintain recIndexAuxHead 2",
    "maintain picIndexAuxHead 0",
    "maintain recDataFileInfo 1 1",
    "maintain picDataFileInfo 1 1",
    "maintain recBackUpDataFileInfo 1 99",
    "maintain recIndexFileAux 1 1",
    "maintain picBackUpIndexFileAux 3 101",
    "maintain recIFrameInfo 1 1",
    "maintain recIFrameInfo 2 1",
    "maintain recIFrameInfo 1 3",
    "maintain recData 1 1",
    "maintain recData 1 2",
    "maintain recData 2 1",
    "maintain recData 3 1",
    "maintain picData 1 1",
    "maintain onePic 1 1 2",
    "maintain onePic 1 1 3",
    "maintain recException",
    "maintain recNormal",
    "maintain picBackUpException",
    "maintain picBackUpNormal",
    "maintain recChangeAuxCtxNum 2 5",
    "maintain picChangeAuxCtxNum 4 5",
    "maintain memsetTrellisHead",
    "maintain",
    "maintain nosuch",
    "maintain recData 1",
    "hello",
    "",
};
constexpr int kRoundLines = sizeof kRound / sizeof kRound[0];

std::string rounds(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    for (const char* line : kRound) text += std::string(line) + "\n";
  }
  return text;
}

std::set<std::string> descriptors(pid_t pid) {
  std::set<std::string> names;
  const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
  if (DIR* listing = opendir(dir.c_str())) {
    while (const struct dirent* entry = readdir(listing)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.insert(name);
    }
    closedir(listing);
  }
  return names;
}

// Counts the prompts in a growing output file without reading it twice.
class PromptCounter {
 public:
  explicit PromptCounter(const std::string& path) : path_(path) {}
  ~PromptCounter() {
    if (fd_ >= 0) ::close(fd_);
  }
  int count() {
    // The console creates the file; it may not have done so yet.
    if (fd_ < 0) fd_ = ::open(path_.c_str(), O_RDONLY);
    char buffer[65536];
    ssize_t got;
    while (fd_ >= 0 && (got = ::read(fd_, buffer, sizeof buffer)) > 0) {
      tail_.append(buffer, static_cast<size_t>(got));
      size_t at;
      while ((at = tail_.find(kPrompt)) != std::string::npos) {
        ++prompts_;
        tail_.erase(0, at + sizeof kPrompt - 1);
      }
      if (tail_.size() > sizeof kPrompt) {
        tail_.erase(0, tail_.size() - sizeof kPrompt);
      }
    }
    return prompts_;
  }

 private:
  std::string path_;
  int fd_ = -1;
  std::string tail_;
  int prompts_ = 0;
};

TEST(HeldConsoleTest, NoDescriptorOutlivesAnyCommand) {
  TempDir dir;
  TempDir media;
  const std::string cardPath = dir.file("card.img");
  CardImage card(cardPath, kCard2G);
  makeCard(card, media);
  const std::string outPath = dir.file("stdout");
  const std::string errPath = dir.file("stderr");

  int input[2];
  ASSERT_EQ(pipe(input), 0);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    const int outFd = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int errFd = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (outFd < 0 || errFd < 0) _exit(126);
    dup2(input[0], 0);
    dup2(outFd, 1);
    dup2(errFd, 2);
    for (int fd : {input[0], input[1], outFd, errFd}) ::close(fd);
    execWithEnv(wrappedCommand({TRELLIS_MAINTAIN_BIN}),
                {{"TRELLIS_DEVICE", cardPath},
                 {"TRELLIS_MEDIA_DIR", media.path()}});
  }
  ::close(input[0]);
  // A console that died must fail the test, not end it at the next write.
  void (*savedPipeHandler)(int) = signal(SIGPIPE, SIG_IGN);

  PromptCounter prompts(outPath);
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(250);
  int answered = 0;  // lines the console has answered with a prompt
  auto waitForPrompts = [&](int wanted) {
    while (prompts.count() < wanted) {
      int status = 0;
      if (waitpid(pid, &status, WNOHANG) == pid) return false;
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  };
  auto feed = [&](const std::string& lines, int count) {
    const ssize_t put = ::write(input[1], lines.data(), lines.size());
    answered += count;
    return put == static_cast<ssize_t>(lines.size()) &&
           waitForPrompts(1 + answered);
  };

  bool fed = waitForPrompts(1);
  const std::set<std::string> atStart = descriptors(pid);
  EXPECT_FALSE(atStart.empty());

  // 46 rounds on the whole card, then 12 on each damaged one.
  struct Stretch {
    const char* card;
    int rounds;
    void (*damage)(const std::string& path);
  };
  const Stretch stretches[] = {
      {"whole", 46, [](const std::string&) {}},
      // Record segment 1/1 (51624) now crosses the end, the records after it
      // lie beyond it.
      {"cut short", 12,
       [](const std::string& path) {
         ASSERT_EQ(truncate(path.c_str(), 51924), 0);
       }},
      {"a directory", 12,
       [](const std::string& path) {
         ASSERT_EQ(unlink(path.c_str()), 0);
         ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
       }},
      {"missing", 12,
       [](const std::string& path) { ASSERT_EQ(rmdir(path.c_str()), 0); }},
  };
  for (const Stretch& stretch : stretches) {
    if (!fed) break;
    SCOPED_TRACE(stretch.card);
    stretch.damage(cardPath);
    fed = feed(rounds(stretch.rounds), stretch.rounds * kRoundLines);
    if (fed) {
      EXPECT_EQ(descriptors(pid), atStart);
    }
  }
  if (!fed) kill(pid, SIGKILL);
  const ssize_t put = ::write(input[1], "exit\n", 5);
  ::close(input[1]);
  int status = -1;
  waitpid(pid, &status, 0);
  signal(SIGPIPE, savedPipeHandler);
  ASSERT_TRUE(fed) << "the console stopped answering after " << answered
                   << " lines; its standard error ends:\n"
                   << readFile(errPath).substr(0, 2000);
  EXPECT_EQ(put, 5);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);

  // Every kind of failure was met along the way.
  const std::string errors = readFile(errPath);
  for (const char* seen :
       {"fileNum INVALID", "auxNum INVALID", "ctxNum INVALID",
        "READ FAILED", "INCOMPLETE READ", "OPEN FAILED",
        "[ERROR] Failed to create output file",
        "[ERROR] Read operation failed", "[ERROR] Failed to open source file",
        "[ERROR] Invalid picNum", "[ERROR]  fread failed"}) {
    EXPECT_NE(errors.find(seen), std::string::npos) << seen;
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
