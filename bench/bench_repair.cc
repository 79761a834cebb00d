#include "bench/bench_repair.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "bench/bench_check_card.h"
#include "bench/bench_process.h"
#include "format/device_layout.h"
#include "format/index_layout.h"

namespace tr {
namespace bench {
namespace {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// The backup record index file's data-file area: from after its header to
// its auxiliary region.
struct Area {
  uint64_t offset;
  uint64_t length;
};

Area backupArea(uint64_t cardSize) {
  const tr_TrellisHead layout = computeTrellisHead(cardSize);
  const uint64_t start = layout.idxFileBackupOffsetAV + kIndexFileHeadSize;
  return {start, auxRegionStart(layout.idxFileBackupOffsetAV,
                                layout.idxFileSize) -
                     start};
}

bool clear(const std::string& image, const Area& area) {
  const int fd = open(image.c_str(), O_WRONLY);
  if (fd < 0) return false;
  const std::vector<char> zeros(1 << 20, 0);
  bool done = true;
  for (uint64_t at = 0; done && at < area.length; at += zeros.size()) {
    const size_t n = static_cast<size_t>(
        std::min<uint64_t>(zeros.size(), area.length - at));
    done = pwrite(fd, zeros.data(), n, static_cast<off_t>(area.offset + at)) ==
           static_cast<ssize_t>(n);
  }
  return close(fd) == 0 && done;
}

bool isClear(const std::string& image, const Area& area) {
  const int fd = open(image.c_str(), O_RDONLY);
  if (fd < 0) return false;
  std::vector<char> block(1 << 20);
  bool zero = true;
  for (uint64_t at = 0; zero && at < area.length; at += block.size()) {
    const size_t n = static_cast<size_t>(
        std::min<uint64_t>(block.size(), area.length - at));
    zero = pread(fd, block.data(), n, static_cast<off_t>(area.offset + at)) ==
               static_cast<ssize_t>(n) &&
           std::all_of(block.begin(), block.begin() + static_cast<long>(n),
                       [](char c) { return c == 0; });
  }
  close(fd);
  return zero;
}

}  // namespace

bool measureRepair(const std::string& console, const std::string& out,
                   int runs, RepairFigures* figures) {
  const CheckCard card = prepareCheckCard(out);
  const std::vector<std::string> base = {console, "-d", card.image, "-m",
                                         out + "/no-media"};
  auto with = [&base](std::vector<std::string> more) {
    more.insert(more.begin(), base.begin(), base.end());
    return more;
  };
  std::vector<double> repairN;
  std::vector<double> check;
  for (int i = -1; i < runs; ++i) {
    const Outcome n = runTimed(with({"--repair", "-n"}), "", {});
    const Outcome c = runTimed(with({"--check"}), "", {});
    if (!n.ok || !c.ok) {
      std::fprintf(stderr, "repair -n run %d failed or found problems\n", i);
      return false;
    }
    if (i < 0) continue;
    repairN.push_back(n.seconds);
    check.push_back(c.seconds);
    figures->repairNRssKiB = std::max(figures->repairNRssKiB, n.maxRssKiB);
  }
  figures->repairN = median(repairN);
  figures->check = median(check);

  const Area area = backupArea(64ULL << 30);
  figures->rewritten = area.length;
  const std::string journal = out + "/repair.undo";
  std::vector<double> rewrite;
  std::vector<double> cat;
  const int rewrites = std::min(runs, 3);
  for (int i = 0; i < rewrites; ++i) {
    unlink(journal.c_str());
    if (!clear(card.image, area)) return false;
    const Outcome r =
        runTimed(with({"--repair", "-y", "-u", journal}), "", {}, 1);
    const Outcome c = runTimed({"cat", card.ranges}, "", {});
    if (!r.ok || !c.ok) {
      std::fprintf(stderr, "repair run %d failed\n", i);
      return false;
    }
    rewrite.push_back(r.seconds);
    cat.push_back(c.seconds);
    figures->rewriteRssKiB = std::max(figures->rewriteRssKiB, r.maxRssKiB);
  }
  struct stat st;
  figures->journalBytes =
      stat(journal.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
  figures->rewrite = median(rewrite);
  figures->cat = median(cat);
  // The journal of the last run puts the cleared area back; a repair
  // without one then leaves the card as the check expects it.
  figures->restored =
      runTimed({console, "-d", card.image, "--restore", journal}, "", {}).ok &&
      isClear(card.image, area);
  unlink(journal.c_str());
  return runTimed(with({"--repair", "-y", "--no-undo"}), "", {}, 1).ok &&
         runTimed(with({"--check"}), "", {}).ok;
}

}  // namespace bench
}  // namespace tr
