// Small helpers for comparing record printouts: one field line as the
// console prints it, and the part of a printout between two markers.
#ifndef TRELLIS_TESTS_SUPPORT_PRINTOUT_H_
#define TRELLIS_TESTS_SUPPORT_PRINTOUT_H_

#include <cstdio>
#include <string>

namespace tr {
namespace test {

constexpr char kTestGreen[] = "\x1b[32m";
constexpr char kTestRed[] = "\x1b[31m";

// "<label padded to 20>: <colour><value>\e[0m\n".
inline std::string fieldLine(const std::string& label,
                             const std::string& value,
                             const char* colour = kTestGreen) {
  char padded[64];
  std::snprintf(padded, sizeof padded, "%-20s: ", label.c_str());
  return padded + std::string(colour) + value + "\x1b[0m\n";
}

// The text from the first `from` (included) up to the next `to`
// (excluded); "<missing>" when either marker is absent.
inline std::string between(const std::string& text, const std::string& from,
                           const std::string& to) {
  const size_t start = text.find(from);
  if (start == std::string::npos) return "<missing>";
  const size_t end = text.find(to, start + from.size());
  if (end == std::string::npos) return "<missing>";
  return text.substr(start, end - start);
}

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_PRINTOUT_H_
