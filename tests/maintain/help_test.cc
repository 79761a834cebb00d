#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "maintain/commands.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

std::vector<std::string> helpLines() {
  const std::string text = capture([] { printHelp(); }).out;
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

const std::string kRule(126, '=');

TEST(HelpTextTest, FramesThirtyEightRowsWithRulesAndExamples) {
  const std::vector<std::string> lines = helpLines();
  ASSERT_EQ(lines.size(), 64u);
  EXPECT_EQ(lines[0], "Supported maintenance commands:");
  EXPECT_EQ(lines[1], kRule);
  EXPECT_EQ(lines[2],
            "     Command Format                              Parameters        "
            "          Description                                      ");
  EXPECT_EQ(lines[3], kRule);
  EXPECT_EQ(lines[59], kRule);
  EXPECT_EQ(lines[60], "Examples:");
  EXPECT_EQ(lines[61],
            "  > maintain recDataFileHead 1           # Print index header of file 1");
  EXPECT_EQ(lines[62],
            "  > maintain recIndexFileAux 1 2         # Print content 2 of auxiliary 1");
  EXPECT_EQ(lines[63], kRule);
}

TEST(HelpTextTest, RowsAreNumberedInOrderAndAlignedToTheirColumns) {
  const std::vector<std::string> lines = helpLines();
  int row = 0;
  for (size_t i = 4; i < 59; ++i) {
    const std::string& line = lines[i];
    if (line.compare(0, 13, std::string(13, ' ')) == 0) continue;  // continuation
    ++row;
    SCOPED_TRACE(line);
    EXPECT_EQ(line.size(), 126u);
    EXPECT_EQ(line.substr(0, 5).find(" " + std::to_string(row) + "."), 0u);
    EXPECT_EQ(line.compare(5, 9, "maintain "), 0);
    const size_t param = row == 9 ? 50 : 49;
    EXPECT_EQ(line[param - 1], ' ');
    EXPECT_NE(line[param], ' ');
    EXPECT_EQ(line[76], ' ');
    EXPECT_NE(line[77], ' ');
  }
  EXPECT_EQ(row, 38);
}

TEST(HelpTextTest, IrregularRowsKeepTheirRecordedShape) {
  const std::vector<std::string> lines = helpLines();
  EXPECT_EQ(lines[4],
            " 1.  maintain recIndexFileHead                   (none)            "
            "          Print global file header(recordIndexFile)        ");
  EXPECT_EQ(lines[12],
            " 9.  maintain recIndexAuxHead <auxNum>            auxNum=auxiliary "
            "num       Print auxiliary header(recordIndexFile)          ");
  EXPECT_EQ(lines[16],
            " 13. maintain recDataFileInfo <fileNum>          fileNum=file numbe"
            "r         Print data segment index(recordIndexFile)        ");
  // Continuation lines: 93 characters for row 13's segmentNum, 94 for the
  // other segmentNum and picNum lines, 96 for ctxNum.
  EXPECT_EQ(lines[17], "             <segmentNum>                        segmentNum=segment num" +
                           std::string(22, ' '));
  EXPECT_EQ(lines[17].size(), 93u);
  EXPECT_EQ(lines[19].size(), 94u);
  EXPECT_EQ(lines[25], "             <ctxNum>                            ctxNum=content num" +
                           std::string(29, ' '));
  EXPECT_EQ(lines[25].size(), 96u);
  EXPECT_EQ(lines[46], " 28. maintain onePic <fileNum>                   fileNum=file numbe"
                       "r         Output a picture                                 ");
  EXPECT_EQ(lines[47].size(), 94u);
  EXPECT_EQ(lines[48], "             <picNum>                            picNum=picture num" +
                           std::string(27, ' '));
}

}  // namespace
}  // namespace test
}  // namespace tr
