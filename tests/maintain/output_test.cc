#include "maintain/output.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

std::string dump(size_t len) {
  std::string data(len, '\0');
  for (size_t i = 0; i < len; ++i) data[i] = static_cast<char>(i);
  return capture([&] { _tr_maintainHexDump(data.data(), len); }).out;
}

TEST(HexDumpTest, BreaksEverySixteenBytesAndNumbersFromZero) {
  EXPECT_EQ(dump(0), "\x1b[36m\x1b[0m\n");
  EXPECT_EQ(dump(3), "\x1b[36m\n0000: 00 01 02 \x1b[0m\n");
  EXPECT_EQ(dump(17),
            "\x1b[36m\n0000: 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F "
            "\n0010: 10 \x1b[0m\n");
  const std::string lines56 = dump(56);
  EXPECT_NE(lines56.find("\n0020: 20 21"), std::string::npos);
  EXPECT_NE(lines56.find("\n0030: 30 31 32 33 34 35 36 37 \x1b[0m\n"),
            std::string::npos);
  // Positions grow past four digits rather than wrap.
  EXPECT_NE(dump(65537).find("\n10000: 00 \x1b[0m\n"), std::string::npos);
}

TEST(UnixTimeTest, ShowsTheLow32BitsAsSignedUtcSeconds) {
  const auto text = [](int64_t seconds) {
    char buf[32];
    _tr_maintainFormatUnixTime(seconds, buf, sizeof buf);
    return std::string(buf);
  };
  EXPECT_EQ(text(0), "1970-01-01 00:00:00");
  EXPECT_EQ(text(4294967296LL), "1970-01-01 00:00:00");
  EXPECT_EQ(text(1709622489), "2024-03-05 07:08:09");
  EXPECT_EQ(text(0x1'65E6'C4D9LL), "2024-03-05 07:08:09");
  EXPECT_EQ(text(-1), "1969-12-31 23:59:59");
  EXPECT_EQ(text(0x80000000LL), "1901-12-13 20:45:52");
  EXPECT_EQ(text(0x7FFFFFFFLL), "2038-01-19 03:14:07");
}

TEST(SizeTextTest, SwitchesUnitsAboveEachBoundary) {
  EXPECT_EQ(sizeText(0), "0 Bytes");
  EXPECT_EQ(sizeText(1024), "1024 Bytes");
  EXPECT_EQ(sizeText(1025), "1.00 KB");
  EXPECT_EQ(sizeText(1048576), "1024.00 KB");
  EXPECT_EQ(sizeText(1048577), "1.00 MB");
  EXPECT_EQ(sizeText(4294967296ULL), "4096.00 MB");
  EXPECT_EQ(sizeText(UINT64_MAX), "17592186044416.00 MB");
}

TEST(TimeZoneTextTest, HoursAndMinutesWithTheSignOfTheZone) {
  EXPECT_EQ(timeZoneText(28800), "+08:00");
  EXPECT_EQ(timeZoneText(19800), "+05:30");
  EXPECT_EQ(timeZoneText(-19800), "-05:30");
  EXPECT_EQ(timeZoneText(-12600), "-03:30");
  EXPECT_EQ(timeZoneText(0), "+00:00");
  EXPECT_EQ(timeZoneText(-1800), "-00:30");
  EXPECT_EQ(timeZoneText(-1), "-00:00");
  EXPECT_EQ(timeZoneText(1800), "+00:30");
  // Damaged zones are cut to the recorder's seven characters.
  EXPECT_EQ(timeZoneText(INT32_MIN), "-596523");
  EXPECT_EQ(timeZoneText(INT32_MAX), "+596523");
}

TEST(FieldLineTest, PadsTheLabelToTwentyColumnsAndNeverCutsIt) {
  EXPECT_EQ(capture([] { _tr_maintainPrintColoredField("deviceSize", "0", kGreen); }).out,
            "deviceSize          : \x1b[32m0\x1b[0m\n");
  EXPECT_EQ(capture([] {
              _tr_maintainPrintColoredField("IndexFileAuxiliaryHead targetOffset",
                                            "8", kRed);
            }).out,
            "IndexFileAuxiliaryHead targetOffset: \x1b[31m8\x1b[0m\n");
}

TEST(TableWordTest, NamesValuesPastTheTableInsteadOfIndexingThem) {
  EXPECT_EQ(tableWord(kValidityNames, 3, 2), "Read-Only");
  EXPECT_EQ(tableWord(kValidityNames, 3, 3), "Unknown (3)");
  EXPECT_EQ(tableWord(kYesNoWords, 2, 255), "Unknown (255)");
  EXPECT_EQ(tableWord(kEnableWords, 2, 4294967295ULL), "Unknown (4294967295)");
}

TEST(ColourTest, SwitchedOffDropsEveryEscapeSequenceAndNothingElse) {
  setColourEnabled(false);
  const Captured c = capture([] {
    _tr_maintainPrintColoredField("label", "value", kRed);
    printDiagnosticTitle(kRed, "OPEN FAILED");
    _tr_maintainHexDump("\x1b", 1);
  });
  setColourEnabled(true);
  EXPECT_EQ(c.out, "label               : value\n\n0000: 1B \n");
  EXPECT_EQ(maskTimestamps(c.err), "<TS> OPEN FAILED\n");
}

}  // namespace
}  // namespace test
}  // namespace tr
