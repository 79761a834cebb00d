// The builder's command line: --help describes every option; a bad command
// line is answered on standard error with status 2 and writes nothing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/mkcard_runner.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

TEST(MkcardOptionsTest, HelpDescribesEveryOption) {
  for (const char* word : {"--help", "-h"}) {
    const RunResult r = runMkcard({word});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.rfind("Usage: trellis-mkcard [OPTION]... TARGET\n", 0), 0u)
        << r.out;
    for (const char* option :
         {"--size SIZE ", "--files N ", "--segments N ", "--aux N ",
          "--time SECONDS ", "--sample MEDIA_DIR ", "--force ",
          "-h, --help "}) {
      EXPECT_NE(r.out.find(std::string("\n  ") + option), std::string::npos)
          << option;
    }
  }
}

TEST(MkcardOptionsTest, BadCommandLinesWriteNothing) {
  TempDir dir;
  const std::string image = dir.file("card.img");
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "no target given"},
      {{"--size", "2G"}, "no target given"},
      {{"--size", "2G", image, dir.file("other.img")}, "one target only"},
      {{"--size", "2G", "--colour", image}, "unknown option '--colour'"},
      {{image, "--size"}, "--size wants a value"},
      {{"--size", "2Q", image}, "--size wants a size in bytes"},
      {{"--size", "0", image}, "--size wants a size in bytes"},
      {{"--size", "16777216T", image}, "--size wants a size in bytes"},
      {{"--size", "2G", "--files", "0", image},
       "--files wants a whole number from 1 to 4294967295, not '0'"},
      {{"--size", "2G", "--segments", "4294967296", image},
       "--segments wants a whole number from 1 to 4294967295"},
      {{"--size", "2G", "--segments", "-1", image},
       "--segments wants a whole number from 1 to 4294967295, not '-1'"},
      {{"--size", "2G", "--aux=101", image},
       "--aux wants a whole number from 1 to 100, not '101'"},
      {{"--size", "2G", "--time", "2147483000", image},
       "--time wants seconds since 1970-01-01 UTC, at most 2147397247"},
      {{"--size", "2G", "--sample=", image}, "--sample wants a directory"},
      {{"--size", "2G", "--files", "3", "--sample", dir.file("media"), image},
       "the sample needs --files and --segments of at least 4 and 4; got 3 "
       "and 32"},
  };
  for (const auto& [args, message] : cases) {
    const RunResult r = runMkcard(args);
    EXPECT_EQ(r.status, 2) << message;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("trellis-mkcard: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
  EXPECT_FALSE(fileExists(image));
  EXPECT_FALSE(fileExists(dir.file("media")));
}

TEST(MkcardOptionsTest, ValuesAfterEqualsAndATargetAfterDoubleDash) {
  TempDir dir;
  const std::string image = dir.file("-card.img");
  const RunResult r = runMkcard({"--size=1G", "--files=8", "--segments=32",
                                 "--aux=7", "--time=86400", "--", image});
  ASSERT_EQ(r.status, 0) << r.err;
  // Record index file header at 51328 of a 1 GiB card.
  const std::string header = readAt(image, 51328, 264);
  EXPECT_EQ(le32(header, 144), 8u);
  EXPECT_EQ(le32(header, 148), 32u);
  EXPECT_EQ(le32(header, 152), 7u);
  EXPECT_EQ(le64(header, 176), 86400u);
}

}  // namespace
}  // namespace test
}  // namespace tr
