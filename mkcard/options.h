// The builder's command line: the target, the card's size and dimensions,
// the time its recordings start, sample mode and the force switch.
#ifndef TRELLIS_MKCARD_OPTIONS_H_
#define TRELLIS_MKCARD_OPTIONS_H_

#include <cstdint>
#include <string>

namespace tr {

struct MkcardOptions {
  std::string target;  // image file or block device
  bool sizeGiven = false;
  uint64_t size = 0;       // bytes, for an image file
  uint32_t files = 16;     // maxFileNum
  uint32_t segments = 32;  // maxSegmentNum
  uint32_t aux = 100;      // maxAuxNumber
  bool timeGiven = false;
  int64_t startTime = 0;  // seconds since 1970-01-01 UTC
  bool sample = false;
  std::string mediaDir;  // where sample mode writes the data files
  bool force = false;
  bool help = false;
  bool version = false;
};

// Parses argv into `options`. Returns 0, or -1 after printing what is wrong
// on standard error.
int parseOptions(int argc, char** argv, MkcardOptions* options);

// The --help text on standard output.
void printUsage();

// "4096", "512M", "2G": a byte count with an optional binary suffix K, M, G
// or T (either case). False for anything else, zero and overflow.
bool parseSize(const std::string& text, uint64_t* bytes);

}  // namespace tr

#endif  // TRELLIS_MKCARD_OPTIONS_H_
