// Measures the console on data of its own under an output directory: the
// copy of a 1 GiB record segment against dd on the same byte range, peak
// memory of large and small copies and of a picture the card says is 4 GiB,
// command throughput through a pipe, start-up time, the whole-card check of
// a fully populated 64 GiB card against cat of the same bytes and of a
// fresh 2 TiB card, and binary size. Prints one table.
//
//   trellis-bench --console PATH --mkcard PATH --out DIR
//                 [--arm-console PATH] [--runs N]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_card.h"
#include "bench/bench_check_card.h"
#include "bench/bench_repair.h"
#include "bench/bench_process.h"

namespace tr {
namespace bench {
namespace {

struct Options {
  std::string console;
  std::string mkcard;
  std::string armConsole;
  std::string out;
  int runs = 5;
};

bool parseOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string flag = argv[i];
    if (flag == "--console") {
      options->console = argv[i + 1];
    } else if (flag == "--mkcard") {
      options->mkcard = argv[i + 1];
    } else if (flag == "--arm-console") {
      options->armConsole = argv[i + 1];
    } else if (flag == "--out") {
      options->out = argv[i + 1];
    } else if (flag == "--runs") {
      options->runs = std::max(5, std::atoi(argv[i + 1]));
    } else {
      return false;
    }
  }
  return !options->console.empty() && !options->mkcard.empty() &&
         !options->out.empty();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double mib(uint64_t bytes) { return static_cast<double>(bytes) / 1048576.0; }

void row(const char* what, const std::string& figure, const char* target) {
  std::printf("| %-44s | %-30s | %-16s |\n", what, figure.c_str(), target);
}

// `value` with `decimals` decimals, then `unit`.
std::string fmt(double value, int decimals, const char* unit) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f%s", decimals, value, unit);
  return text;
}

struct CheckFigures {
  double check = 0;      // median seconds, 64 GiB card
  double cat = 0;        // median seconds, cat of the same bytes
  long checkRssKiB = 0;  // the largest of the runs
  uint64_t bytes = 0;    // read by each
  double fresh2T = -1;   // median seconds, fresh 2 TiB card; -1: skipped
};

// --check of the populated 64 GiB card and cat of the bytes it reads,
// alternating after one run of each that warms the page cache; then --check
// of a fresh 2 TiB card made by the card builder, when the file system holds
// one.
bool measureCheck(const Options& options, CheckFigures* figures) {
  const CheckCard card = prepareCheckCard(options.out);
  figures->bytes = card.rangeBytes;
  const std::vector<std::string> check = {
      options.console, "--check", "-d",
      card.image,      "-m",      options.out + "/no-media"};
  const std::vector<std::string> cat = {"cat", card.ranges};
  std::vector<double> checkSeconds;
  std::vector<double> catSeconds;
  for (int i = -1; i < options.runs; ++i) {
    const Outcome c = runTimed(check, "", {});
    const Outcome d = runTimed(cat, "", {});
    if (!c.ok || !d.ok) {
      std::fprintf(stderr, "check run %d failed or found problems\n", i);
      return false;
    }
    if (i < 0) continue;
    checkSeconds.push_back(c.seconds);
    catSeconds.push_back(d.seconds);
    figures->checkRssKiB = std::max(figures->checkRssKiB, c.maxRssKiB);
  }
  figures->check = median(checkSeconds);
  figures->cat = median(catSeconds);

  const std::string large = options.out + "/fresh-2t.img";
  if (!runTimed({options.mkcard, "--size", "2T", "--force", large}, "", {})
           .ok) {
    return true;
  }
  std::vector<double> freshSeconds;
  for (int i = 0; i < options.runs; ++i) {
    const Outcome c =
        runTimed({options.console, "--check", "-d", large}, "", {});
    if (!c.ok) return false;
    freshSeconds.push_back(c.seconds);
  }
  unlink(large.c_str());
  figures->fresh2T = median(freshSeconds);
  return true;
}

struct ExportFigures {
  double exportSeconds = 0;  // median
  double ddSeconds = 0;      // median, dd | sha256sum
  long rssKiB = 0;           // the largest of the runs
  double choose = 0;         // median seconds, on the 64 GiB card
};

// The window of the 1 GiB recording, channel 1, in UTC.
std::vector<std::string> exportWindow(int64_t start, int64_t seconds) {
  char from[32];
  char to[32];
  for (auto [text, at] : {std::pair<char*, int64_t>{from, start},
                          std::pair<char*, int64_t>{to, start + seconds}}) {
    const time_t t = static_cast<time_t>(at);
    struct tm utc;
    gmtime_r(&t, &utc);
    std::strftime(text, 32, "%Y-%m-%dT%H:%M:%SZ", &utc);
  }
  return {"--channel", "1", "--from", from, "--to", to};
}

bool measureExport(const Options& options, const Card& card,
                   ExportFigures* figures) {
  const std::string dir = options.out + "/export";
  std::vector<std::string> exporting = {options.console, "-d", card.image,
                                        "-m", card.media, "--export", dir};
  for (const std::string& word : exportWindow(kLargeStart, 3600)) {
    exporting.push_back(word);
  }
  const std::string dd =
      "dd if='" + card.dataFile + "' bs=4M iflag=skip_bytes,count_bytes skip=" +
      std::to_string(card.largeOffset) + " count=" +
      std::to_string(card.largeLength) + " status=none | sha256sum";
  std::vector<double> exportSeconds;
  std::vector<double> ddSeconds;
  for (int i = 0; i < options.runs; ++i) {
    if (std::system(("rm -rf '" + dir + "'").c_str()) != 0) return false;
    const Outcome e = runTimed(exporting, "", {});
    const Outcome d = runTimed({"sh", "-c", dd + " >/dev/null"}, "", {});
    if (!e.ok || !d.ok) {
      std::fprintf(stderr, "export run %d failed\n", i);
      return false;
    }
    exportSeconds.push_back(e.seconds);
    ddSeconds.push_back(d.seconds);
    figures->rssKiB = std::max(figures->rssKiB, e.maxRssKiB);
  }
  // The export's proof says what sha256sum says of the same bytes.
  const std::string same = "test \"$(" + dd + " | cut -c1-64)\" = " +
                           "\"$(grep -v manifest '" + dir +
                           "/SHA256SUMS' | cut -c1-64)\"";
  if (std::system(same.c_str()) != 0) {
    std::fprintf(stderr, "the export's SHA-256 is not dd's\n");
    return false;
  }
  figures->exportSeconds = median(exportSeconds);
  figures->ddSeconds = median(ddSeconds);
  // Ten minutes of channel 1 on the populated card: its segments are
  // chosen, then skipped, their data files not being there.
  const CheckCard checkCard = prepareCheckCard(options.out);
  std::vector<double> choose;
  for (int i = 0; i < options.runs; ++i) {
    if (std::system(("rm -rf '" + dir + "-choose'").c_str()) != 0) return false;
    std::vector<std::string> argv = {options.console, "-d", checkCard.image,
                                     "-m", options.out + "/no-media",
                                     "--export", dir + "-choose"};
    for (const std::string& word : exportWindow(1709622489 + 60000 + 60, 600)) {
      argv.push_back(word);
    }
    choose.push_back(runTimed(argv, "", {}).seconds);
  }
  figures->choose = median(choose);
  return true;
}

}  // namespace

int run(const Options& options) {
  const Card card = prepareCard(options.out);
  const Env env = {{"TRELLIS_DEVICE", card.image},
                   {"TRELLIS_MEDIA_DIR", card.media}};
  warmCache(card.dataFile);

  // 1. recData against dd, alternating, on the same range.
  std::vector<double> consoleSeconds;
  std::vector<double> ddSeconds;
  long largestRss = 0;
  const std::string ddOut = card.media + "/dd.out";
  const std::vector<std::string> dd = {
      "dd",
      "if=" + card.dataFile,
      "of=" + ddOut,
      "bs=4M",
      "iflag=skip_bytes,count_bytes",
      "skip=" + std::to_string(card.largeOffset),
      "count=" + std::to_string(card.largeLength),
      "status=none"};
  for (int i = 0; i < options.runs; ++i) {
    const Outcome c =
        runTimed({options.console}, "maintain recData 1 1\n", env);
    const Outcome d = runTimed(dd, "", {});
    if (!c.ok || !d.ok || !sameFile(card.media + "/00001_0001.mp4", ddOut)) {
      std::fprintf(stderr, "extraction run %d failed or differs from dd\n", i);
      return 1;
    }
    consoleSeconds.push_back(c.seconds);
    ddSeconds.push_back(d.seconds);
    largestRss = std::max(largestRss, c.maxRssKiB);
  }
  const double consoleRate = mib(card.largeLength) / median(consoleSeconds);
  const double ddRate = mib(card.largeLength) / median(ddSeconds);

  // 2. Memory of a small copy, to compare with the large one.
  long smallRss = 0;
  for (int i = 0; i < options.runs; ++i) {
    const Outcome c =
        runTimed({options.console}, "maintain recData 1 2\n", env);
    if (!c.ok) return 1;
    smallRss = std::max(smallRss, c.maxRssKiB);
  }

  // 3. One picture the card says is 4 GiB, copied once: 4 GiB written.
  const Outcome picture =
      runTimed({options.console}, "maintain onePic 1 1 1\n", env);
  unlink((card.media + "/00001_0001_01.jpg").c_str());
  if (!picture.ok) return 1;

  // 4. Command throughput through a pipe.
  std::vector<double> rates;
  std::vector<double> firstThousand;
  std::vector<double> lastThousand;
  for (int i = 0; i < options.runs; ++i) {
    const Throughput t = runThroughput(
        options.console, "maintain recDataFileInfo 1 1\n", 10000, env);
    if (!t.ok) return 1;
    rates.push_back(10000.0 / t.seconds);
    firstThousand.push_back(t.firstThousand);
    lastThousand.push_back(t.lastThousand);
  }

  // 5. Start-up, `exit` alone, against `true`.
  std::vector<double> startSeconds;
  std::vector<double> trueSeconds;
  for (int i = 0; i < 4 * options.runs; ++i) {
    startSeconds.push_back(runTimed({options.console}, "exit\n", env).seconds);
    trueSeconds.push_back(runTimed({"true"}, "", {}).seconds);
  }

  // 6. The whole-card check, and choosing what to export from that card.
  CheckFigures check;
  if (!measureCheck(options, &check)) return 1;

  // 7. --export of the 1 GiB recording against dd of the same bytes piped
  // into sha256sum, alternating.
  ExportFigures exported;
  if (!measureExport(options, card, &exported)) return 1;

  // 8. The repair of the populated card: -n against the check, and a
  // whole backup index file rewritten.
  RepairFigures repair;
  if (!measureRepair(options.console, options.out, options.runs, &repair)) {
    return 1;
  }

  // 9. The HTML report of the populated card.
  const CheckCard reportCard = prepareCheckCard(options.out);
  const std::string reportFile = options.out + "/report.html";
  std::vector<double> reportSeconds;
  long reportRss = 0;
  for (int i = 0; i < options.runs; ++i) {
    const Outcome r = runTimed({options.console, "-d", reportCard.image, "-m",
                                options.out + "/no-media", "--report", reportFile},
                               "", {});
    if (!r.ok) {
      std::fprintf(stderr, "report run %d failed\n", i);
      return 1;
    }
    reportSeconds.push_back(r.seconds);
    reportRss = std::max(reportRss, r.maxRssKiB);
  }
  struct stat reportStat;
  const double reportKiB =
      stat(reportFile.c_str(), &reportStat) == 0 ? reportStat.st_size / 1024.0 : 0;

  std::printf("| %-44s | %-30s | %-16s |\n", "measure", "figure (median)",
              "target");
  std::printf("|%s|%s|%s|\n", std::string(46, '-').c_str(),
              std::string(32, '-').c_str(), std::string(18, '-').c_str());
  row("recData 1 GiB: console", fmt(consoleRate, 0, " MiB/s"), "");
  row("recData 1 GiB: dd bs=4M, same range", fmt(ddRate, 0, " MiB/s"), "");
  row("recData 1 GiB: console / dd", fmt(consoleRate / ddRate, 2, ""),
      ">= 1.00");
  row("peak RSS, recData 1 GiB", fmt(largestRss / 1024.0, 2, " MiB"),
      "<= 8 MiB");
  row("peak RSS, recData 64 MiB", fmt(smallRss / 1024.0, 2, " MiB"),
      "<= 8 MiB");
  row("peak RSS, onePic of a 4 GiB jpgSize",
      fmt(picture.maxRssKiB / 1024.0, 2, " MiB"),
      "<= 8 MiB");
  row("recDataFileInfo 1 1 x 10000 through a pipe",
      fmt(median(rates), 0, " commands/s"), ">= 20000/s");
  row("  first 1000 commands", fmt(1000 * median(firstThousand), 1, " ms"), "");
  row("  last 1000 commands", fmt(1000 * median(lastThousand), 1, " ms"),
      "no slowdown");
  row("start-up and exit", fmt(1000 * median(startSeconds), 2, " ms"), "");
  row("`true`", fmt(1000 * median(trueSeconds), 2, " ms"), "");
  row("--check, populated 64 GiB card",
      fmt(check.check, 3, " s, ") + fmt(mib(check.bytes), 0, " MiB read"), "");
  row("cat of the same bytes", fmt(check.cat, 3, " s"), "");
  row("--check / cat", fmt(check.check / check.cat, 2, ""), "<= 2.00");
  row("peak RSS, --check 64 GiB", fmt(check.checkRssKiB / 1024.0, 2, " MiB"),
      "< 8 MiB");
  row("--check, fresh 2 TiB card",
      check.fresh2T < 0 ? std::string("skipped: no 2 TiB sparse file")
                        : fmt(1000 * check.fresh2T, 1, " ms"),
      "");
  row("--export 1 GiB recording",
      fmt(mib(card.largeLength) / exported.exportSeconds, 0, " MiB/s"), "");
  row("dd of the same bytes | sha256sum",
      fmt(mib(card.largeLength) / exported.ddSeconds, 0, " MiB/s"), "");
  row("--export / dd | sha256sum (speed)",
      fmt(exported.ddSeconds / exported.exportSeconds, 2, ""), ">= 1.00");
  row("peak RSS, --export 1 GiB", fmt(exported.rssKiB / 1024.0, 2, " MiB"),
      "< 8 MiB");
  row("--export, choosing 10 min of the 64 GiB card",
      fmt(1000 * exported.choose, 1, " ms"), "");
  row("--repair -n, populated 64 GiB card", fmt(repair.repairN, 3, " s"), "");
  row("--check of the same card", fmt(repair.check, 3, " s"), "");
  row("--repair -n / --check", fmt(repair.repairN / repair.check, 2, ""),
      "<= 1.20");
  row("peak RSS, --repair -n 64 GiB",
      fmt(repair.repairNRssKiB / 1024.0, 2, " MiB"), "< 8 MiB");
  row("--repair -y, backup index file rewritten",
      fmt(repair.rewrite, 3, " s, ") + fmt(mib(repair.rewritten), 0, " MiB"),
      "");
  row("cat of the bytes the check reads", fmt(repair.cat, 3, " s"), "");
  row("--repair -y / cat", fmt(repair.rewrite / repair.cat, 2, ""), "");
  row("peak RSS, --repair -y", fmt(repair.rewriteRssKiB / 1024.0, 2, " MiB"),
      "< 8 MiB");
  row("its journal", fmt(mib(repair.journalBytes), 0, " MiB"), "");
  row("--restore of that journal",
      repair.restored ? "the cleared area back" : "FAILED", "byte for byte");
  row("--report, populated 64 GiB card", fmt(median(reportSeconds), 3, " s"), "");
  row("peak RSS, --report 64 GiB", fmt(reportRss / 1024.0, 2, " MiB"), "< 8 MiB");
  row("its HTML file", fmt(reportKiB, 0, " KiB"), "");
  row("stripped size, host",
      fmt(strippedSize(options.console) / 1024.0, 1, " KiB"), "");
  if (!options.armConsole.empty()) {
    row("stripped size, armhf",
        fmt(strippedSize(options.armConsole, "arm-linux-gnueabihf-strip") /
                1024.0,
            1, " KiB"),
        "< 320 KiB");
  }
  return 0;
}

}  // namespace bench
}  // namespace tr

int main(int argc, char** argv) {
  tr::bench::Options options;
  if (!tr::bench::parseOptions(argc, argv, &options)) {
    std::fprintf(stderr,
                 "usage: trellis-bench --console PATH --mkcard PATH --out DIR "
                 "[--arm-console PATH] [--runs N]\n");
    return 2;
  }
  return tr::bench::run(options);
}
