// Running the card builder from the end-to-end tests, and reading numbers
// back from the images it writes.
#ifndef TRELLIS_TESTS_SUPPORT_MKCARD_RUNNER_H_
#define TRELLIS_TESTS_SUPPORT_MKCARD_RUNNER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace tr {
namespace test {

// Runs trellis-mkcard with `args` (TZ=UTC, like the console).
RunResult runMkcard(const std::vector<std::string>& args);

// `count` bytes of the file at `path` from `offset` (fewer at its end).
std::string readAt(const std::string& path, uint64_t offset, size_t count);

// `value` as `width` little-endian bytes, to build expected records from
// literals; and the little-endian number of `width` bytes at `at` (bytes
// past the end read as zero, so a short image fails the comparison).
std::string leBytes(uint64_t value, size_t width);
uint64_t le(const std::string& bytes, size_t at, size_t width = 8);

// Bytes allocated to a file on disk (its sparse size).
uint64_t allocatedBytes(const std::string& path);

}  // namespace test
}  // namespace tr

#endif  // TRELLIS_TESTS_SUPPORT_MKCARD_RUNNER_H_
