#include "console/options.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "base/version.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Words separated by '|' ("-c||-q" holds an empty word); "" is none.
std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream in(text);
  for (std::string word; std::getline(in, word, '|');) words.push_back(word);
  return words;
}

std::string summary(const Options& o) {
  std::string commands;
  for (const std::string& command : o.commands) commands += "[" + command + "]";
  return formatString("mode %d d=%s m=%s c=%s f=%s q%d colour %d",
                      static_cast<int>(o.mode), o.device.c_str(),
                      o.mediaDir.c_str(), commands.c_str(), o.script.c_str(),
                      o.quiet, static_cast<int>(o.colour));
}

// A command line and what it parses to: the options as summary() shows
// them, or the error line.
const std::pair<const char*, const char*> kParseCases[] = {
    {"", "mode 0 d= m= c= f= q0 colour 0"},
    {"-d|card.img|-m|media|-q|--color=never|-c|maintain TrellisHead|-c|exit",
     "mode 0 d=card.img m=media c=[maintain TrellisHead][exit] f= q1 colour 2"},
    {"--dev=x|--media-dir|y|-qf-|--color|auto",
     "mode 0 d=x m=y c= f=- q1 colour 3"},
    {"-x", "unknown option '-x'; trellis-maintain --help lists them"},
    {"--co", "unknown or ambiguous option '--co'; trellis-maintain --help lists them"},
    {"-d", "option --device needs a value (PATH)"},
    {"-c||-q", "option --command needs a value (LINE)"},
    {"--quiet=yes", "option --quiet takes no value"},
    {"--color=red", "--color wants always, never or auto, not 'red'"},
    {"--|-q", "unexpected argument '-q'"},
    {"-c|exit|-f|script", "-c and -f cannot be used together"},
    {"-f|a|-f|b", "-f is given once only"},
    {"--json", "--json goes with --list or --check"},
    {"--list|--check", "--list and --check cannot be used together"},
    {"--check|-c|x", "--check runs no console lines (-c, -f)"},
    {"--channel=1|--check", "--channel, --from and --to go with --list, --export or --report"},
    {"-o|x|--export=y", "-o names where console lines extract to: not with --export"},
    {"--dry-run", "--force and --dry-run go with --restore only"},
    {"--restore=j|-f|x", "--restore runs no console lines: not with -c or -f"},
    {"--restore=j|--list", "--restore and --list cannot be used together"},
};

TEST(OptionsTest, ParsesOrRefusesInOneLine) {
  for (const auto& [args, want] : kParseCases) {
    std::vector<std::string> words =
        split(std::string("trellis-maintain|") + args);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    Options options;
    const bool parsed = std::string(want).rfind("mode ", 0) == 0;
    const Captured c = capture([&] {
      EXPECT_EQ(
          parseOptions(static_cast<int>(argv.size()), argv.data(), &options),
          parsed ? 0 : -1);
    });
    EXPECT_EQ(parsed ? summary(options) : c.err,
              parsed ? want : "trellis-maintain: " + std::string(want) + "\n");
  }
}

// The console run by its command line on a 2 GiB card whose record index
// file describes 4 data files of 4 segments, all segments unused.
class ScriptTest : public testing::Test {
 protected:
  ScriptTest() {
    EXPECT_TRUE(sizeFile(card_, 2147483648ULL) && poke(card_, 51472, le(4, 4) + le(4, 4)));
  }

  // "CARD" stands for the image, a leading "DIR" for the directory.
  RunResult run(std::vector<std::string> args, const std::string& input = "",
                const EnvList& env = {}) {
    for (std::string& arg : args) {
      if (arg == "CARD") arg = card_;
      if (arg.rfind("DIR", 0) == 0) arg.replace(0, 3, dir_.path());
    }
    args.insert(args.begin(), TRELLIS_MAINTAIN_BIN);
    return runProgram(args, input, env);
  }

  TempDir dir_;
  const std::string card_ = dir_.file("card.img");
};

TEST_F(ScriptTest, ExitStatusTellsWhetherEveryCommandSucceeded) {
  writeFile(dir_.file("script"),
            "maintain recIndexFileHead\nmaintain recDataFileHead 9\n");
  // recData's answer without colour.
  const std::string plain =
      "targetOffset        : 51624\n[ERROR] _tr_maintainGetRecDataToFile "
      "This segment has no data\n";
  const struct {
    const char* args;
    std::string input;
    int status;
    std::string errHas;  // a part of standard error; "": none at all
    std::string out;     // the whole of standard output; "*": any
    EnvList env = {};
  } cases[] = {
      {"-qd|CARD|-c|maintain recDataFileHead 2|-c|exit|-c|maintain nosuch", "",
       0, "", "*"},
      {"-qd|CARD|-c|maintain recDataFileHead 5|-c|maintain recDataFileHead 1",
       "", 1, "fileNum INVALID", "*"},
      {"-qd|CARD|-m|DIR|--color=never|-c|maintain recData 1 1", "", 1, "",
       plain},
      {"-qd|CARD|-m|DIR|--color=auto|-c|maintain recData 1 1", "", 1, "",
       plain},
      {"-qd|CARD|-m|DIR|--color=always|-c|maintain recData 1 1", "", 1, "",
       plain, {{"NO_COLOR", "1"}}},
      {"-qd|CARD|-f|DIR/script", "", 1, "fileNum INVALID", "*"},
      {"-qd|CARD", "maintain recNormall\n", 0,
       "maintain: recNormall: no such command; closest: recNormal\n", ""},
      {"-qd|CARD|-f|DIR/none", "", 2, "/none: No such file", ""},
      {"-c", "", 2, "option --command needs a value (LINE)\n", ""},
      // --repair: usage errors 16, a card that cannot be read 8.
      {"--repair|-d|CARD", "", 16, "--repair asks before each fix, at a terminal only", ""},
      {"--repa|-x", "", 16, "unknown option '-x'", ""},
      {"-qn|-d|CARD", "", 2, "-n, -p, -y and --no-undo go with --repair\n", ""},
      {"--repair|-pr|-d|CARD", "", 16, "-r lets --repair write nothing: add -n\n", ""},
      {"--repair|-n|-d|DIR/none", "", 8, "/none: No such file or directory\n", ""},
      // Read-only from the environment: 1, or a value that means neither.
      {"-qd|CARD|-c|maintain recNormal", "", 1,
       "maintain recNormal: not written: the console is read-only", "",
       {{"TRELLIS_READ_ONLY", "1"}}},
      {"-qd|CARD|-c|maintain recNormal", "", 2,
       "TRELLIS_READ_ONLY is 'yes': set it to 1 to refuse writing, or to 0 "
       "to allow it\n",
       "", {{"TRELLIS_READ_ONLY", "yes"}}},
      {"-qd|CARD|-c|maintain recNormal", "", 0, "", "*",
       {{"TRELLIS_READ_ONLY", "0"}}},
      // A script's last line needs no newline; a line too long for the
      // console runs nothing rather than a command cut short.
      {"-qd|CARD|-f|-", "maintain recDataFileHead 1", 0, "", "*"},
      {"-qd|CARD|-f|-",
       "maintain TrellisHead " + std::string(2040, '1') + " 2\nexit\n", 1,
       "standard input: line 1: longer than 2047 characters; not run\n", ""},
      // Misspelt words, wrong counts of numbers, command words without
      // `maintain`; `maintain` alone is the help, asked for.
      {"-qd|CARD|-f|-",
       "maintain recDataFileInf 2 3\nmaintain PICBACKUPNORMEL\n"
       "maintain onePic 1 2\nmaintain TrellisHead now\n"
       "maintain recIndexAuxHead 1 2 3 4 5\n"
       "TrellisHead\nexiit\nmantain TrellisHead\nmaintain\n",
       1, golden("bad_lines.txt"), golden("help.txt")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    const RunResult r = run(split(c.args), c.input, c.env);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_NE(r.err.find(c.errHas), std::string::npos) << r.err;
    EXPECT_EQ(c.errHas.empty() ? r.err : "", "");
    EXPECT_EQ(r.out, c.out == "*" ? r.out : c.out);
  }
}

// A device that cannot be worked on ends every start with options in one
// line naming it and why, before anything else is printed.
TEST_F(ScriptTest, StartUpFailuresAreOneLine) {
  ASSERT_EQ(mkfifo(dir_.file("fifo").c_str(), 0600), 0);
  writeFile(dir_.file("empty.img"), "");
  const std::pair<std::string, std::string> devices[] = {
      {"DIR/none.img", "No such file or directory"},
      {"DIR", "a directory, not a card or a card image"},
      {"DIR/fifo", "a FIFO, not a card or a card image"},
      {"/dev/null", "a character device, not a card or a card image"},
      {"DIR/empty.img", "empty: it holds no card"},
  };
  const char* const modes[] = {"", "-q", "-c|maintain TrellisHead", "--check",
                               "--list", "--export|DIR/out", "--restore|DIR/j"};
  for (const auto& [device, why] : devices) {
    for (const char* mode : modes) {
      std::vector<std::string> args = split(mode);
      args.insert(args.begin(), {"-d", device});
      SCOPED_TRACE(device + " " + mode);
      const RunResult r = run(args, "exit\n");
      EXPECT_EQ(r.status, 2);
      EXPECT_EQ(r.out, "");
      const std::string path =
          device.rfind("DIR", 0) == 0 ? dir_.path() + device.substr(3) : device;
      EXPECT_EQ(r.err, "trellis-maintain: " + path + ": " + why + "\n");
    }
  }
  EXPECT_NE(access(dir_.file("out").c_str(), F_OK), 0);
}

// Host tools (cmake, the linters) run through std::system, not under the
// emulator or checker that runs the programs under test; what they print
// shows in the test's own output.
TEST_F(ScriptTest, InstallsBothProgramsAndPagesUnderDestdir) {
  TempDir dest;
  const std::string install = "DESTDIR='" + dest.path() +
                              "' '" TRELLIS_CMAKE_COMMAND
                              "' --install '" TRELLIS_BUILD_DIR
                              "' --prefix /usr/local >/dev/null";
  ASSERT_EQ(std::system(install.c_str()), 0);
  const std::string prefix = dest.path() + "/usr/local/";
  for (const char* file :
       {"bin/trellis-mkcard", "share/man/man1/trellis-maintain.1",
        "share/man/man1/trellis-mkcard.1"}) {
    EXPECT_EQ(::access((prefix + file).c_str(), F_OK), 0) << file;
  }
  const std::string console = prefix + "bin/trellis-maintain";
  EXPECT_EQ(runProgram({console, "--version"}, "", {}).out,
            "trellis-maintain " + std::string(kVersion) + "\n");
  const RunResult installed = runProgram(
      {console, "-qd", card_, "-c", "maintain recIndexFileHead"}, "",
      {});
  EXPECT_EQ(installed.status, 0) << installed.err;
  EXPECT_NE(installed.out.find("=== tr_IndexFileHead ==="), std::string::npos);
}

// Each page passes every linter installed, and names the build's version.
TEST(ManPageTest, PagesPassTheLinters) {
  const std::string here = __FILE__;
  const std::string man = here.substr(0, here.rfind("/tests/")) + "/man/";
  bool linted = false;
  for (const std::string linter :
       {"mandoc -Tlint -W warning", "groff -man -ww -z"}) {
    const std::string tool = linter.substr(0, linter.find(' '));
    if (std::system(("command -v " + tool + " >/dev/null").c_str())) continue;
    linted = true;
    for (const std::string program : {"trellis-maintain", "trellis-mkcard"}) {
      const std::string page = man + program + ".1";
      // Passes: ends well and says nothing.
      EXPECT_EQ(std::system(("out=$(" + linter + " '" + page +
                             "' 2>&1) && test -z \"$out\" || "
                             "{ echo \"$out\"; exit 1; }")
                                .c_str()),
                0)
          << linter << " " << page;
      EXPECT_NE(readFile(page).find("\"" + program + " " + kVersion + "\""),
                std::string::npos)
          << page;
    }
  }
  if (!linted)
    GTEST_SKIP()
        << "neither mandoc nor groff is installed (apt-get install mandoc)";
}

}  // namespace
}  // namespace test
}  // namespace tr
