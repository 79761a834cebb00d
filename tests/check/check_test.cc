// What the whole-card check's text cannot show: its JSON Lines parse as
// JSON, and a read failing halfway through the card ends the check with
// status 2, no report and every descriptor given back. The reports
// themselves are in tests/cases/check.case.
#include "check/check.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Skips one JSON value at `at`; false when the text there is not one. Bare
// words and numbers are taken whole, unparsed.
bool skipJson(const std::string& s, size_t& at) {
  if (at >= s.size()) return false;
  const char open = s[at];
  if (open == '"') {
    for (++at; at < s.size() && s[at] != '"'; ++at) {
      if (static_cast<unsigned char>(s[at]) < 0x20) return false;
      if (s[at] != '\\') continue;
      const char escaped = ++at < s.size() ? s[at] : '\0';
      if (escaped == 'u') {
        if (s.find_first_not_of("0123456789abcdef", at + 1) < at + 5)
          return false;
        at += 4;
      } else if (escaped == '\0' || !std::strchr("\"\\/bfnrt", escaped)) {
        return false;
      }
    }
    return at++ < s.size();
  }
  if (open == '{' || open == '[') {
    const char close = open == '{' ? '}' : ']';
    if (s[++at] == close) return ++at, true;
    for (;;) {
      if (open == '{' && (s[at] != '"' || !skipJson(s, at) || s[at++] != ':'))
        return false;
      if (!skipJson(s, at) || at >= s.size()) return false;
      if (s[at] == close) return ++at, true;
      if (s[at++] != ',') return false;
    }
  }
  const size_t end = s.find_first_not_of("-0123456789truefalsn", at);
  const std::string word = s.substr(at, end - at);
  at = end;
  return word == "true" || word == "false" || word == "null" ||
         (!word.empty() &&
          word.find_first_not_of("-0123456789") == std::string::npos);
}

// Every line one JSON object; the number of those holding `member`.
int jsonLines(const std::string& text, const std::string& member) {
  int count = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    size_t at = 0;
    EXPECT_TRUE(line[0] == '{' && skipJson(line, at) && at == line.size())
        << line;
    count += line.find(member) != std::string::npos;
  }
  return count;
}

TEST(CheckTest, JsonLinesParse) {
  TempDir dir;
  ASSERT_EQ(runProgram({TRELLIS_MKCARD_BIN, "--size", "1G", "--sample",
                        dir.file("media"), dir.file("card.img")},
                       "", {})
                .status,
            0);
  const auto run = [&](const char* mode) {
    return runProgram({TRELLIS_MAINTAIN_BIN, "-d", dir.file("card.img"), "-m",
                       dir.file("media"), mode, "--json"},
                      "", {})
        .out;
  };
  EXPECT_EQ(jsonLines(run("--check"), "\"problem\":"), 6);
  EXPECT_EQ(jsonLines(run("--list"), "\"type\":\"segment\""), 13);
}

TEST(CheckTest, AReadFailingHalfwayEndsWithStatusTwo) {
  TempDir dir;
  ASSERT_EQ(
      runProgram({TRELLIS_MKCARD_BIN, "--size", "1G", dir.file("card.img")}, "",
                 {})
          .status,
      0);
  useDevice(dir.file("card.img"));
  // Reads 1 to 5 are the storage head and the four headers.
  SysFaults faults({Call::kRead, 8, -1, EIO});
  int status = -1;
  const Captured c = capture([&] { status = runCheck(CheckSettings{}); });
  EXPECT_EQ(c.out, "");
  EXPECT_NE(c.err.find("INCOMPLETE READ"), std::string::npos) << c.err;
  EXPECT_EQ(status, kCardUnreadable);
  EXPECT_EQ(faults.calls(Call::kRead), 8);
  EXPECT_EQ(faults.unreturned(), 0);
}

}  // namespace
}  // namespace test
}  // namespace tr
