// Expected printouts kept as files under tests/golden/, so a long record
// printout reads as what the engineer sees. In a golden file "\e" stands for
// the escape byte and every other byte is itself; timestamps are "<TS>" as
// maskTimestamps() leaves them.
#ifndef TRELLIS_TESTS_SUPPORT_GOLDEN_H_
#define TRELLIS_TESTS_SUPPORT_GOLDEN_H_

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace tr {
namespace test {

// The contents of tests/golden/<name> with "\e" turned into the escape byte.
// Fails the current test when the file is missing.
inline std::string golden(const std::string& name) {
  // tests/golden/, found from this file's own place in the source tree.
  const std::string here = __FILE__;
  const std::string path = here.substr(0, here.rfind("/support/")) + "/golden/" + name;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    ADD_FAILURE() << "no golden file " << path;
    return std::string();
  }
  std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  for (size_t at = text.find("\\e"); at != std::string::npos; at = text.find("\\e", at + 1)) {
    text.replace(at, 2, "\x1b");
  }
  return text;
}

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_GOLDEN_H_
