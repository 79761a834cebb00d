// Helpers for the record printers' tests: a card image per test, running
// one command on it, field lines as the console prints them, and records
// written as {offset, bytes} lists.
#ifndef TRELLIS_TESTS_SUPPORT_PRINTOUT_H_
#define TRELLIS_TESTS_SUPPORT_PRINTOUT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>

#include "base/platform.h"
#include "tests/support/test_support.h"

namespace tr {
namespace test {

constexpr char kTestGreen[] = "\x1b[32m";
constexpr char kTestRed[] = "\x1b[31m";

// "maintain <command>" on the card image: what the command printed on each
// stream, timestamps masked.
inline RunResult runOn(const CardImage& card, const std::string& command) {
  RunResult r = runConsole("maintain " + command + "\n", {{"TRELLIS_DEVICE", card.path()}});
  r.out = maskTimestamps(commandOutput(r.out));
  r.err = maskTimestamps(r.err);
  return r;
}

// A blank 2 GiB card for each test.
class CardTest : public testing::Test {
 protected:
  CardTest() : image_(dir_.file("card.img"), kCard2G) {}

  // What the command printed; it must report nothing on standard error.
  std::string print(const std::string& command) {
    const RunResult r = runOn(image_, command);
    EXPECT_EQ(r.err, "") << command;
    return r.out;
  }

  TempDir dir_;
  CardImage image_;
};

// Runs `body` (a reader or printer given no record) with the device seam
// failing the test if anything opens it; what it printed, timestamps masked.
inline Captured withoutDevice(const std::function<void()>& body) {
  SysOverride restore;
  sys.open = [](const char*, int) -> int {
    ADD_FAILURE() << "device opened without a record to read into";
    return -1;
  };
  Captured c = capture(body);
  c.err = maskTimestamps(c.err);
  return c;
}

inline bool has(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

// "<label padded to 20>: <colour><value>\e[0m\n".
inline std::string fieldLine(const std::string& label, const std::string& value,
                             const char* colour = kTestGreen) {
  char padded[64];
  std::snprintf(padded, sizeof padded, "%-20s: ", label.c_str());
  return padded + std::string(colour) + value + "\x1b[0m\n";
}

// `value` as `width` little-endian bytes.
inline std::string le(uint64_t value, int width) {
  std::string bytes(width, '\0');
  for (int i = 0; i < width; ++i) bytes[i] = static_cast<char>(value >> 8 * i);
  return bytes;
}

// Bytes stored at `at` inside a record.
struct Stored {
  uint64_t at;
  std::string bytes;
};
inline void putRecord(const CardImage& card, uint64_t record,
                      std::initializer_list<Stored> fields) {
  for (const Stored& field : fields) card.putText(record + field.at, field.bytes);
}

// Bytes stored at `at` inside a record and a line the printer must show.
struct FieldCase {
  uint64_t at;
  std::string bytes;
  std::string line;
};
inline void PrintTo(const FieldCase& c, std::ostream* os) {
  *os << "byte " << c.at << ": " << testing::PrintToString(c.line);
}

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_PRINTOUT_H_
