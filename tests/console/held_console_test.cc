// The console as the engineer holds it: standard input a pipe that stays
// open, or no standard input at all. One console answers two thousand
// lines, written 35 at a time and each batch answered while the pipe stays
// open: every command of the table, succeeding and failing in every way a
// card and its data files can make it fail, while the card goes from whole
// to cut short, to a directory and to missing. After each stretch it holds
// exactly the descriptors it held before its first command.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include "tests/support/index_image.h"

namespace tr {
namespace test {
namespace {

int exitStatus(pid_t pid) {
  int status = -1;  // not an exit, if waitpid fails
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(HeldConsoleTest, NoStandardInputAtAllEndsAtOnce) {
  const int devNull = ::open("/dev/null", O_WRONLY);
  const int fds[3] = {-1, devNull, devNull};
  const pid_t pid = spawn({TRELLIS_MAINTAIN_BIN}, {}, fds);
  ::close(devNull);
  EXPECT_EQ(exitStatus(pid), 0);
}

// The card: index files with maxFileNum 4, maxSegmentNum 8, maxAuxNumber
// 3. Record segments 1/1 (listing and copy work), 1/2 (its output name is
// taken by a directory), 2/1 (its data file is a directory) and 3/1 (no
// data file) are in use, and so is picture segment 1/1 with two pictures.
// A record data file block is 32 + 8 x 640 = 5152 bytes.
void makeCard(const CardImage& card, const TempDir& media) {
  for (uint64_t base :
       {kCard2GRec, kCard2GRecBackUp, kCard2GPic, kCard2GPicBackUp}) {
    putIndexDimensions(card, base, 4, 8, 3);
  }
  const uint64_t rec11 = 51328 + 264 + 32;
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
  card.put64(pic11 + 24, 300);  // fragmentSize
  card.put32(pic11 + 48, 100);  // jpgSize of picture 1
  card.put32(pic11 + 72, 200);  // and of picture 2
  card.put8(pic11 + 1632, 2);   // validNum
  writeFile(media.file("TR00001.mp4"), std::string(300, 'm'));
  writeFile(media.file("TR00001.picture"), std::string(300, 'p'));
  mkdir(media.file("TR00002.mp4").c_str(), 0755);
  mkdir(media.file("00001_0002.mp4").c_str(), 0755);
}

// One round of 35 lines (about 900 bytes): each command once or more,
// right and wrong.
const std::string kRound =
    "maintain TrellisHead\nmaintain recIndexFileHead\n"
    "maintain picBackUpIndexFileHead\nmaintain recDataFileHead 1\n"
    "maintain recDataFileHead 9\nmaintain picBackUpDataFileHead 2\n"
    "maintain recIndexAuxHead 2\nmaintain picIndexAuxHead 0\n"
    "maintain recDataFileInfo 1 1\nmaintain picDataFileInfo 1 1\n"
    "maintain recBackUpDataFileInfo 1 99\nmaintain recIndexFileAux 1 1\n"
    "maintain picBackUpIndexFileAux 3 101\nmaintain recIFrameInfo 1 1\n"
    "maintain recIFrameInfo 2 1\nmaintain recIFrameInfo 1 3\n"
    "maintain recData 1 1\nmaintain recData 1 2\nmaintain recData 2 1\n"
    "maintain recData 3 1\nmaintain picData 1 1\nmaintain onePic 1 1 2\n"
    "maintain onePic 1 1 3\nmaintain recException\nmaintain recNormal\n"
    "maintain picBackUpException\nmaintain picBackUpNormal\n"
    "maintain recChangeAuxCtxNum 2 5\nmaintain picChangeAuxCtxNum 4 5\n"
    "maintain memsetTrellisHead\nmaintain\nmaintain nosuch\n"
    "maintain recData 1\nhello\n\n";

std::set<std::string> descriptors(pid_t pid) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(
           "/proc/" + std::to_string(pid) + "/fd")) {
    names.insert(entry.path().filename());
  }
  return names;
}

TEST(HeldConsoleTest, NoDescriptorOutlivesAnyCommand) {
  TempDir dir;
  TempDir media;
  const std::string card = dir.file("card.img");
  makeCard(CardImage(card, kCard2G), media);
  // Standard input and output are pipes, standard error a file; the
  // console keeps no other end of them, so it sees the end of its input
  // when this test ends, however it ends.
  int in[2];
  int out[2];
  ASSERT_TRUE(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0);
  const int fds[3] = {
      in[0], out[1],
      ::open(dir.file("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644)};
  const pid_t pid = spawn(
      {TRELLIS_MAINTAIN_BIN},
      {{"TRELLIS_DEVICE", card}, {"TRELLIS_MEDIA_DIR", media.path()}}, fds);
  for (int fd : fds) ::close(fd);
  // A console that died fails the test rather than end it at the next write.
  signal(SIGPIPE, SIG_IGN);
  // Reads the console's output until it has prompted `wanted` times in
  // all; false when it ended first. A round of input fits in any pipe, so
  // writing it never waits for this.
  std::string printed;
  size_t scanned = 0;  // up to the last prompt counted
  int prompts = 0;
  const std::string prompt =
      "\x1b[32mplease enter the console command:\x1b[0m\n";
  auto waitForPrompts = [&](int wanted) {
    char buffer[65536];
    for (ssize_t n;
         prompts < wanted && (n = ::read(out[0], buffer, 65536)) > 0;) {
      printed.append(buffer, static_cast<size_t>(n));
      for (size_t at; (at = printed.find(prompt, scanned)) != std::string::npos;
           ++prompts) {
        scanned = at + prompt.size();
      }
    }
    return prompts >= wanted;
  };
  ASSERT_TRUE(waitForPrompts(1));
  const std::set<std::string> atStart = descriptors(pid);
  EXPECT_FALSE(atStart.empty());
  int answered = 1;
  auto stretch = [&](int rounds, const char* state) {
    SCOPED_TRACE(state);
    for (int i = 0; i < rounds; ++i) {
      answered += 35;
      ASSERT_TRUE(::write(in[1], kRound.data(), kRound.size()) ==
                      static_cast<ssize_t>(kRound.size()) &&
                  waitForPrompts(answered))
          << readFile(dir.file("err")).substr(0, 2000);
    }
    EXPECT_EQ(descriptors(pid), atStart);
  };
  stretch(30, "whole card");
  // Record segment 1/1 (51624) now crosses the end, the records after it
  // lie beyond it.
  EXPECT_EQ(truncate(card.c_str(), 51924), 0);
  stretch(10, "card cut short");
  EXPECT_EQ(unlink(card.c_str()), 0);
  EXPECT_EQ(mkdir(card.c_str(), 0755), 0);
  stretch(10, "card a directory");
  EXPECT_EQ(rmdir(card.c_str()), 0);
  stretch(10, "card missing");
  // Words after "exit" are ignored, and so is every line after it.
  EXPECT_EQ(::write(in[1], "exit now please\nhello\n", 22), 22);
  ::close(in[1]);
  EXPECT_FALSE(waitForPrompts(answered + 1));  // to the end of its output
  ::close(out[0]);
  EXPECT_EQ(exitStatus(pid), 0);
  EXPECT_EQ(printed.substr(scanned), "\x1b[31mBye Trellis Maintain\x1b[0m\n");

  // Every kind of failure was met along the way.
  const std::string errors = readFile(dir.file("err"));
  for (const char* seen :
       {"fileNum INVALID", "auxNum INVALID", "ctxNum INVALID", "READ FAILED",
        "INCOMPLETE READ", "OPEN FAILED", "create output", "Read operation",
        "open source", "Invalid picNum", "fread failed"}) {
    EXPECT_NE(errors.find(seen), std::string::npos) << seen;
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
