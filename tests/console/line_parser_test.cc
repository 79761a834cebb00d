#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "console/console.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

using Words = std::vector<std::string>;

// The words of `line`, and in `*argBufLen` the record's buffer size; no
// words when no record comes back.
Words parse(const std::string& line, int32_t* argBufLen) {
  tr_LineParser* record =
      _tr_lineParser(line.c_str(), static_cast<int32_t>(line.size()));
  if (record == nullptr) return Words();
  *argBufLen = record->argBufLen;
  const Words words(record->argv, record->argv + record->argc);
  EXPECT_EQ(_tr_freeLineParser(record), 0);
  return words;
}

int gCalls = 0;
int gFailAt = 0;

TEST(LineParserTest, SplitsOnRunsOfSpacesAndTabsOrGivesNoRecord) {
  // Runs of spaces and tabs separate words. Every other byte belongs to a
  // word: control characters, high bytes, quotes and comment characters are
  // taken literally.
  int32_t size = 0;
  EXPECT_EQ(parse("\t\"x  y\" #z \x01\xff\r ", &size),
            (Words{"\"x", "y\"", "#z", "\x01\xff\r"}));
  // The longest line the console reads holds at most 1024 words.
  std::string line = "w";
  for (int i = 1; i < 1024; ++i) line += " w";
  ASSERT_EQ(line.size(), 2047u);
  EXPECT_EQ(parse(line, &size).size(), 1024u);
  EXPECT_EQ(size, 2048);
  // Position `len` ends the last word, whatever byte follows it.
  tr_LineParser* record = _tr_lineParser("ab cdX", 4);
  ASSERT_NE(record, nullptr);
  EXPECT_STREQ(record->argv[1], "cd");
  _tr_freeLineParser(record);
  // A failed allocation gives no record, as a blank line does.
  SysOverride guard;
  sys.malloc = [](size_t bytes) {
    return ++gCalls == gFailAt ? nullptr : std::malloc(bytes);
  };
  for (gFailAt = 1; gFailAt <= 3; ++gFailAt, gCalls = 0)
    EXPECT_EQ(_tr_lineParser("maintain x", 10), nullptr) << gFailAt;
}

}  // namespace
}  // namespace test
}  // namespace tr
