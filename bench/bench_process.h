// Running the programs under measurement: whole-process wall time and peak
// resident size, and the command throughput of a console fed through pipes.
#ifndef TRELLIS_BENCH_BENCH_PROCESS_H_
#define TRELLIS_BENCH_BENCH_PROCESS_H_

#include <string>
#include <utility>
#include <vector>

namespace tr {
namespace bench {

using Env = std::vector<std::pair<std::string, std::string>>;

struct Outcome {
  bool ok = false;
  double seconds = 0;
  long maxRssKiB = 0;
};

// Runs `argv` with `input` on standard input and its output discarded;
// ok when it ends with `status`.
Outcome runTimed(const std::vector<std::string>& argv, const std::string& input,
                 const Env& env, int status = 0);

struct Throughput {
  bool ok = false;
  double seconds = 0;        // from the first prompt to the last
  double firstThousand = 0;  // the first 1000 commands
  double lastThousand = 0;   // the last 1000 commands
};

// Feeds `count` copies of `line` to the console through a pipe and times
// the prompts that come back through another.
Throughput runThroughput(const std::string& console, const std::string& line,
                         int count, const Env& env);

// Size of a stripped copy of `path`.
long strippedSize(const std::string& path, const std::string& strip = "strip");

}  // namespace bench
}  // namespace tr

#endif  // TRELLIS_BENCH_BENCH_PROCESS_H_
