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

// Every line of both reports of the sample card is one JSON object, as a
// JSON parser other than the report's own writer reads it.
TEST(CheckTest, JsonLinesParse) {
  TempDir dir;
  ASSERT_EQ(runProgram({TRELLIS_MKCARD_BIN, "--size", "1G", "--sample",
                        dir.file("media"), dir.file("card.img")},
                       "", {})
                .status,
            0);
  std::string lines;
  for (const char* mode : {"--check", "--list"}) {
    lines += runProgram({TRELLIS_MAINTAIN_BIN, "-d", dir.file("card.img"), "-m",
                         dir.file("media"), mode, "--json"},
                        "", {})
                 .out;
  }
  const RunResult parsed = runPython(
      "import json, sys\n"
      "kinds = [json.loads(line)['type'] for line in sys.stdin]\n"
      "print(kinds.count('problem'), kinds.count('segment'))\n",
      lines);
  if (parsed.status == 127) GTEST_SKIP() << "python3 is not installed";
  EXPECT_EQ(parsed.out, "6 13\n") << parsed.err;
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
