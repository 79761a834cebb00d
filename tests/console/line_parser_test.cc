#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "console/console.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

struct Parsed {
  bool present = false;
  std::vector<std::string> words;
  int32_t argBufLen = 0;
};

Parsed parse(const std::string& line) {
  Parsed result;
  tr_LineParser* record =
      _tr_lineParser(line.c_str(), static_cast<int32_t>(line.size()));
  if (record == nullptr) return result;
  result.present = true;
  result.argBufLen = record->argBufLen;
  for (int i = 0; i < record->argc; ++i) result.words.push_back(record->argv[i]);
  EXPECT_EQ(_tr_freeLineParser(record), 0);
  return result;
}

TEST(LineParserTest, SplitsOnRunsOfSpacesAndTabsOnly) {
  Parsed p = parse("  maintain\trecIndexFileHead  ");
  ASSERT_TRUE(p.present);
  EXPECT_EQ(p.words, (std::vector<std::string>{"maintain", "recIndexFileHead"}));
  EXPECT_EQ(p.argBufLen, 8 + 1 + 16 + 1);

  p = parse("a\t \tb c");
  EXPECT_EQ(p.words, (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(p.argBufLen, 6);

  // Every other byte belongs to a word: control characters, high bytes,
  // quotes and comment characters are taken literally.
  p = parse("\"x y\" #z \x01\xff\r");
  EXPECT_EQ(p.words, (std::vector<std::string>{"\"x", "y\"", "#z", "\x01\xff\r"}));
}

TEST(LineParserTest, BlankOrMissingLinesGiveNoRecord) {
  EXPECT_FALSE(parse("").present);
  EXPECT_FALSE(parse(" \t  \t").present);
  EXPECT_EQ(_tr_lineParser(nullptr, 0), nullptr);
  EXPECT_EQ(_tr_freeLineParser(nullptr), -1);
}

TEST(LineParserTest, ALongLineOfSingleLettersHoldsHalfItsLengthInWords) {
  std::string line = "w";
  for (int i = 1; i < 1024; ++i) line += " w";
  ASSERT_EQ(line.size(), 2047u);  // the longest line the console reads
  const Parsed p = parse(line);
  EXPECT_EQ(p.words.size(), 1024u);
  EXPECT_EQ(p.argBufLen, 2048);
}

TEST(LineParserTest, TextWithoutItsNulStillEndsItsLastWord) {
  const char text[] = {'a', 'b', ' ', 'c', 'd'};
  tr_LineParser* record = _tr_lineParser(text, 4);  // position 4 is 'd'
  ASSERT_NE(record, nullptr);
  ASSERT_EQ(record->argc, 2);
  EXPECT_STREQ(record->argv[1], "cd");
  _tr_freeLineParser(record);
}

TEST(LineParserTest, AnAllocationFailureCountsAsALineWithoutWords) {
  for (int failing = 1; failing <= 3; ++failing) {
    SysOverride guard;
    static int calls;
    static int failAt;
    calls = 0;
    failAt = failing;
    sys.malloc = [](size_t bytes) -> void* {
      return ++calls == failAt ? nullptr : std::malloc(bytes);
    };
    EXPECT_EQ(_tr_lineParser("maintain x", 10), nullptr) << failing;
  }
}

TEST(LineParserTest, SeparatorsAreNulSpaceAndTab) {
  for (int c = 0; c < 256; ++c) {
    const bool separator = c == 0 || c == ' ' || c == '\t';
    EXPECT_EQ(_tr_argvFieldSeperator(static_cast<char>(c)), separator ? 1 : 0) << c;
  }
}

}  // namespace
}  // namespace test
}  // namespace tr
