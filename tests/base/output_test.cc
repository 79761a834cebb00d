#include "base/output.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

// Sizes, time zones and out-of-table words are pinned through the record
// printers that show them; these helpers have boundaries of their own.
std::string dump(size_t len) {
  std::string data(len, '\0');
  for (size_t i = 0; i < len; ++i) data[i] = static_cast<char>(i);
  return capture([&] { _tr_maintainHexDump(data.data(), len); }).out;
}

TEST(HexDumpTest, BreaksEverySixteenBytesAndNumbersFromZero) {
  EXPECT_EQ(dump(0), "\x1b[36m\x1b[0m\n");
  EXPECT_EQ(dump(17),
            "\x1b[36m\n0000: 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F "
            "\n0010: 10 \x1b[0m\n");
  // Positions grow past four digits rather than wrap.
  EXPECT_NE(dump(65537).find("\nFFF0: F0 F1"), std::string::npos);
  EXPECT_NE(dump(65537).find("\n10000: 00 \x1b[0m\n"), std::string::npos);
}

TEST(UnixTimeTest, ShowsTheLow32BitsAsSignedUtcSeconds) {
  const auto text = [](int64_t seconds) {
    char buf[32];
    _tr_maintainFormatUnixTime(seconds, buf, sizeof buf);
    return std::string(buf);
  };
  EXPECT_EQ(text(4294967296LL), "1970-01-01 00:00:00");
  EXPECT_EQ(text(0x1'65E6'C4D9LL), "2024-03-05 07:08:09");
  EXPECT_EQ(text(-1), "1969-12-31 23:59:59");
  EXPECT_EQ(text(0x80000000LL), "1901-12-13 20:45:52");
  EXPECT_EQ(text(0x7FFFFFFFLL), "2038-01-19 03:14:07");
}

}  // namespace
}  // namespace test
}  // namespace tr
