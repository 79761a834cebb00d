#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/golden.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

const std::string kNotFound =
    "console: command not found\nsupport: \n\tmaintain xxx\n\texit\n";

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

TEST_F(ConsoleTest, AnswersEachLineInTurn) {
  // 2047 characters (8 + 2022 + 17) fill the line buffer and lose their
  // last one ("X"), which leaves a command; the rest of the line is a line
  // of its own.
  const std::string overlong =
      "maintain" + std::string(2022, ' ') + "recIndexFileHeadX";
  const std::string script =
      "\n   \n\t \t\n"
      "Exit\nMAINTAIN recIndexFileHead\nhelp\n"
      "maintain\nmaintain a b c d e\nmaintain recDataFileHead\n"
      "maintain nosuch\n"
      "maintain recDataFileHead 1 2\nmaintain TrellisHead now\n"
      "maintain recIndexFileHead 1\nmaintain nosuch 1 2 3\n"
      "  maintain\trecIndexFileHead  \n"
      "maintain recDataFileHead abc\nmaintain recDataFileHead 2x\n"
      "maintain recDataFileHead -1\n" +
      overlong + "hello\n" +
      "maintain recIndexFileHeadX";  // the last line, without a newline
  const RunResult r = run(script);
  // What each line prints: nothing ('-'), the hint for an unknown command
  // ('?'), the help ('H'), the farewell ('B'), or a printout holding the
  // index file header ('R') or data file head 2 at 51328 + 264 + 32 ('2').
  // Blank lines only prompt again; no words, too many or one that is no
  // one-word command get the help; two to four words that are no command of
  // that count get silence. Numbers are read as far as they go: "abc" is 0,
  // "2x" is 2. The end of input ends the console as exit does.
  //
  // The help, tests/golden/help.txt, is the table of commands: between
  // rules, 38 rows of 126 characters, each with its number, the command
  // from column 5, the parameters from column 49 (50 for row 9) and the
  // description from column 77; continuation lines of 93 characters (row
  // 13's segmentNum), 96 (ctxNum) or 94 (the other segmentNum and picNum
  // lines); then the examples.
  const std::string want = "---???HHHH----R-2-R?RB";
  const std::map<char, std::string> whole = {
      {'-', ""},
      {'?', kNotFound},
      {'H', golden("help.txt")},
      {'B', "\x1b[31mBye Trellis Maintain\x1b[0m\n"}};
  const std::map<char, std::string> held = {
      {'R', "Max File Number     : \x1b[32m4\x1b[0m\n"},
      {'2', "targetOffset        : \x1b[32m51624\x1b[0m\n"}};
  EXPECT_EQ(r.status, 0);
  const std::vector<std::string> parts = splitAtPrompts(r.out);
  ASSERT_EQ(parts.size(), 1 + want.size()) << r.out;
  for (size_t i = 0; i < want.size(); ++i) {
    if (whole.count(want[i])) {
      EXPECT_EQ(parts[i + 1], whole.at(want[i])) << "line " << i + 1;
    } else {
      EXPECT_NE(parts[i + 1].find(held.at(want[i])), std::string::npos)
          << "line " << i + 1 << ":\n"
          << parts[i + 1];
    }
  }
  // NO_COLOR drops every escape sequence and nothing else; empty, it does
  // not count.
  const RunResult plain = run(script, {{"NO_COLOR", "1"}});
  EXPECT_EQ(plain.out.find('\x1b'), std::string::npos);
  EXPECT_EQ(maskTimestamps(plain.out),
            maskTimestamps(
                std::regex_replace(r.out, std::regex("\x1b\\[[0-9;]*m"), "")));
  EXPECT_EQ(maskTimestamps(run(script, {{"NO_COLOR", ""}}).out),
            maskTimestamps(r.out));
  EXPECT_EQ(
      maskTimestamps(r.err),
      "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: 0\n maxFileNum: 4\n"
      "<TS> \x1b[31mfileNum INVALID\x1b[0m\n fileNum: -1\n maxFileNum: 4\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
