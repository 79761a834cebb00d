// The console in a hostile or unlucky environment, where a session case
// cannot put it: standard descriptors closed, a FIFO, a second name or a
// device under a name it opens, a second writer holding the card, signals
// in the middle of a copy, card text on a terminal, sizes that would take
// all memory. The card and the files stay as they were unless a command
// asked for a change, and the console answers every time. (Links and
// directories under its names, numbers past the int range and card text
// through a pipe are in tests/cases/hazards.case.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// An 8 MiB card: reserve 167772, index area 116444, idxFileSize 29111; the
// record index file at 51328, the picture index file at 109550, the info
// of segment 1 of data file 1 at 51624 and 109846.
constexpr uint64_t kCard = 8388608;
constexpr uint64_t kPic = 109550;
constexpr char kRecData[] = "maintain recData 1 1\n";
constexpr char kOnePic[] = "maintain onePic 1 1 1\n";

bool has(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

// One console run: what it is given, then what came of it.
struct Session {
  Session(const std::string& in, const EnvList& e) : input(in), env(e) {}
  std::string input;
  EnvList env;
  std::vector<std::string> args;  // the console's options
  int closed = 0;       // bit n set: descriptor n closed
  int terminal = -1;    // a terminal for descriptor `onTerminal`
  int onTerminal = 1;   // instead of its file
  std::function<void(pid_t)> meanwhile;
  std::string out;
  std::string err;  // timestamps masked
  int status = -1;  // as waitpid gives it
  long rssKiB = 0;  // peak resident size
};

// A console still running after a minute hangs: it is killed and fails
// the test.
Session run(Session s) {
  TempDir io;
  writeFile(io.file("in"), s.input);
  auto file = [&](int fd, const char* name, int flags) {
    if (fd == s.onTerminal && s.terminal >= 0) return dup(s.terminal);
    return (s.closed >> fd & 1) != 0 ? -1
                                     : open(io.file(name).c_str(), flags, 0644);
  };
  const int fds[3] = {file(0, "in", O_RDONLY),
                      file(1, "out", O_WRONLY | O_CREAT),
                      file(2, "err", O_WRONLY | O_CREAT)};
  std::vector<std::string> argv = {TRELLIS_MAINTAIN_BIN};
  argv.insert(argv.end(), s.args.begin(), s.args.end());
  const pid_t pid = spawn(argv, s.env, fds);
  for (int fd : fds) close(fd);
  if (s.meanwhile) s.meanwhile(pid);
  struct rusage usage;
  for (int tick = 0; wait4(pid, &s.status, WNOHANG, &usage) == 0; ++tick) {
    if (tick == 6000 && kill(pid, SIGKILL) == 0) ADD_FAILURE() << "it hangs";
    usleep(10000);
  }
  s.rssKiB = usage.ru_maxrss;
  s.out = readFile(io.file("out"));
  s.err = maskTimestamps(readFile(io.file("err")));
  return s;
}

// The card in `dir` and its media directory: record segment 1/1 and picture
// segment 1/1, one picture, both `length` bytes from the start of their data
// files, which are `dataBytes` long (a hole).
EnvList makeCard(const TempDir& dir, uint32_t length, uint64_t dataBytes) {
  const std::string card = dir.file("card.img");
  sizeFile(card, kCard);
  for (uint64_t base : {uint64_t{51328}, kPic}) {
    poke(card, base, std::string("IDX_01\0", 7));
    poke(card, base + 144, le(1, 4) + le(1, 4) + le(1, 4));
  }
  poke(card, 51624 + 7, "\1" + le(0, 8) + le(length, 8));
  poke(card, 109846 + 7, "\1" + le(0, 16) + le(length, 8));
  poke(card, 109846 + 48, le(length, 4));
  poke(card, 109846 + 1632, "\1");
  mkdir(dir.file("media").c_str(), 0755);
  for (const char* data : {"media/TR00001.mp4", "media/TR00001.picture"}) {
    sizeFile(dir.file(data), dataBytes);
  }
  return {{"TRELLIS_DEVICE", card}, {"TRELLIS_MEDIA_DIR", dir.file("media")}};
}

// Each combination of closed standard descriptors, with a writing command
// that is refused (no auxiliary fits an 8 MiB card) and one that marks the
// picture index file abnormal. With standard input closed nothing is asked.
TEST(HazardTest, ClosedStandardDescriptorsNeverReachTheCard) {
  TempDir dir;
  const EnvList env = makeCard(dir, 0, 0);
  const std::string card = dir.file("card.img");
  const std::string before = readFile(card);
  for (int closed = 1; closed < 16; ++closed) {
    const bool accepted = closed >= 8;
    writeFile(card, before);
    const Extents was = extents(card);
    Session s(accepted ? "maintain picException\n"
                       : "maintain picChangeAuxCtxNum 0 5\n",
              env);
    s.closed = closed % 8;
    EXPECT_EQ(run(s).status, 0);
    EXPECT_EQ(changes(was, extents(card)),
              accepted && s.closed % 2 == 0
                  ? "109550: 4944585f3031 -> 000000000000\n"
                  : "")
        << s.closed;
  }
}

// What stands under a name the console opens, made by kind: 'p' a FIFO,
// 'h' a second name of `to`, 'c' a device. Each is refused, naming what it
// is, without waiting on it; nothing is written.
struct NameCase {
  const char* at;  // in the media directory
  char kind;
  const char* to;
  const char* command;
  const char* reason;
};

const NameCase kNames[] = {
    {"../card.img", 'p', "", kRecData, "a FIFO"},
    {"TR00001.picture", 'p', "", kOnePic, "a FIFO"},
    {"00001_0001_01.jpg", 'p', "", kOnePic, "a FIFO"},
    {"00001_0001_01.jpg", 'h', "../card.img", kOnePic, "the card's device"},
    {"00001_0001.mp4", 'h', "TR00001.mp4", kRecData,
     "the data file being copied"},
    {"00001_0001_01.jpg", 'c', "", kOnePic, "a device"},
};

TEST(HazardTest, OnlyRegularFilesAreReadOrWritten) {
  for (const NameCase& row : kNames) {
    TempDir dir;
    const EnvList env = makeCard(dir, 100, 100);
    const std::string at = dir.file("media/") + row.at;
    const std::string to = dir.file("media/") + row.to;
    unlink(at.c_str());
    const int made = row.kind == 'p' ? mkfifo(at.c_str(), 0644)
                     : row.kind == 'h'
                         ? link(to.c_str(), at.c_str())
                         : mknod(at.c_str(), S_IFCHR | 0666, makedev(1, 3));
    struct stat before, after;
    if (made != 0 || lstat(at.c_str(), &before) != 0) continue;  // no mknod
    const bool device = row.at[0] == '.';
    const Extents card = device ? Extents() : extents(dir.file("card.img"));
    const Session e = run(Session(row.command, env));
    EXPECT_TRUE(
        has(e.err, (device ? "  Error" : at) + ": it is " + row.reason + "\n"))
        << e.err;
    EXPECT_TRUE(
        e.status == 0 &&
        (device || changes(card, extents(dir.file("card.img"))).empty()));
    EXPECT_EQ(readFile(dir.file("media/TR00001.mp4")), std::string(100, '\0'));
    EXPECT_TRUE(lstat(at.c_str(), &after) == 0 &&
                after.st_ino == before.st_ino);
  }
}

// The test holds the lock a second console or card builder would hold.
TEST(HazardTest, AWriterFindingTheCardBusyWritesNothing) {
  TempDir dir;
  const EnvList env = makeCard(dir, 0, 0);
  const std::string card = dir.file("card.img");
  const Extents before = extents(card);
  const std::string image = dir.file("big.img");  // room for a layout
  ASSERT_TRUE(sizeFile(image, 1 << 30) && poke(image, 51200, "untouched"));
  const int holders[] = {open(card.c_str(), O_RDONLY),
                         open(image.c_str(), O_RDONLY)};
  // Even a reader's shared lock keeps a writer out.
  for (const int fd : holders) ASSERT_EQ(flock(fd, LOCK_SH), 0);
  EXPECT_TRUE(has(run(Session("maintain picException\n", env)).err,
                  card + " is busy: "));
  EXPECT_TRUE(
      has(runProgram({TRELLIS_MKCARD_BIN, "--force", image}, "", {}).err,
          image + " is busy: "));
  EXPECT_EQ(changes(before, extents(card)), "");
  EXPECT_EQ(peek(image, 51200, 9), "untouched");
  for (const int fd : holders) close(fd);
}

// Ctrl-C ends the copy of a 256 MiB segment, not the console; SIGTERM ends
// both, the console with status 143. Neither leaves a file behind.
TEST(HazardTest, ASignalDuringACopyKeepsNothing) {
  for (const int signal : {SIGINT, SIGTERM}) {
    TempDir dir;
    Session s(std::string(kRecData) + "maintain picIndexFileHead\n",
              makeCard(dir, 256 << 20, 256 << 20));
    const std::string output = dir.file("media/00001_0001.mp4");
    s.meanwhile = [&](pid_t pid) {
      for (int i = 0; i < 60000 && !exists(output); ++i) usleep(1000);
      kill(pid, signal);
    };
    const Session e = run(s);
    EXPECT_FALSE(exists(output)) << signal;
    EXPECT_EQ(e.err, "[ERROR] Extraction interrupted: nothing was kept of " +
                         output + "\n");
    EXPECT_TRUE(signal == SIGINT
                    ? e.status == 0 && has(e.out, "Magic Word")
                    : WEXITSTATUS(e.status) == 143 && !has(e.out, "Magic"));
  }
}

// `s` run with descriptor `fd` on a terminal: what the terminal showed.
std::string onTerminal(Session* s, int fd) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return "";
  s->terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
  s->onTerminal = fd;
  *s = run(*s);
  close(s->terminal);
  std::string screen;
  char buf[4096];
  for (ssize_t got; (got = read(master, buf, sizeof buf)) > 0;)
    screen.append(buf, got);
  close(master);
  return screen;
}

// Card text is escaped, and --color=auto colours, only when standard output
// is the terminal: with standard input on it instead, the bytes stay as
// stored and no colour is added.
TEST(HazardTest, CardTextIsEscapedOnATerminal) {
  TempDir dir;
  const std::string card = dir.file("card.img");
  ASSERT_TRUE(sizeFile(card, kCard) && poke(card, kPic, "\x1b]0;x\x7f\a"));
  Session s("", {{"TRELLIS_DEVICE", card}});
  s.args = {"--color=auto", "-c", "maintain picIndexFileHead"};
  Session typed = s;
  const std::string screen = onTerminal(&s, 1);
  EXPECT_TRUE(has(screen, "\x1b[31m\\x1b]0;x\\x7f\\x07\x1b[0m\r\n")) << screen;
  EXPECT_FALSE(has(screen, "\x1b]"));
  onTerminal(&typed, 0);
  EXPECT_TRUE(has(typed.out, "\x1b]0;x\x7f\a\n") && !has(typed.out, "\x1b["))
      << typed.out;
}

// Command, segment length, what it prints. The data files hold 32 MiB:
// a copy, or a picture read whole into memory, touches every byte of it.
const std::tuple<const char*, uint32_t, const char*> kMemory[] = {
    {kOnePic, 0xFFFFFFFF, "Read incomplete (33554432/4294967295 bytes)"},
    {kOnePic, 32 << 20, "[SUCCESS] Saved "},
    {kRecData, 32 << 20, "[SUCCESS] Extracted 33554432 "},
};

// Peak resident size stays under 8 MiB whatever size the card claims. Under
// an emulator, a checker or a sanitizer (make test-sanitize sets ASAN_OPTIONS)
// their own memory counts: there the console may grow 8 MiB over an idle one.
TEST(HazardTest, MemoryStaysSmallWhateverTheCardClaims) {
  const bool alone = std::getenv("TRELLIS_TEST_EXEC_WRAPPER") == nullptr &&
                     std::getenv("ASAN_OPTIONS") == nullptr;
  const long idleKiB = alone ? 0 : run(Session("exit\n", {})).rssKiB;
  for (const auto& [command, length, result] : kMemory) {
    TempDir dir;
    const Session e = run(Session(command, makeCard(dir, length, 32 << 20)));
    EXPECT_TRUE(has(e.out + e.err, result)) << e.out << e.err;
    EXPECT_LT(e.rssKiB, idleKiB + 8192) << command << "idle: " << idleKiB;
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
