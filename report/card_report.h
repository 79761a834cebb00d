// The card report (--report FILE.html): one self-contained HTML file, inline
// SVG and CSS and nothing else, to look at or attach to a ticket: the card
// and its layout, the state of its index files and the check's summary; a
// timeline per channel over the card's whole span, and a row per day when
// it spans more than one, the damage marked on it; the check's problems,
// each with the console command that shows its record; the inventory.
//
// It is made in a few passes over the index files, each in large reads, and
// holds the same memory whatever the card holds: a timeline is a fixed
// number of columns per channel, the problems table its first
// kMostProblemRows rows, the days drawn the last kMostDays with recordings.
#ifndef TRELLIS_REPORT_CARD_REPORT_H_
#define TRELLIS_REPORT_CARD_REPORT_H_

#include <string>

#include "check/check.h"
#include "format/segment_filter.h"

namespace tr {

constexpr size_t kMostProblemRows = 1000;
constexpr size_t kMostDays = 31;
constexpr size_t kMostChannels = 32;
constexpr size_t kMostDataFileRows = 2000;

struct ReportSettings {
  std::string path;
  SegmentFilter filter;  // --channel, --from, --to
  CommandNamer commandFor = nullptr;
};

// The statuses of --check: 0 nothing found, 1 problems found, 2 the card
// could not be read or the report could not be written.
int runCardReport(const ReportSettings& settings);

}  // namespace tr

#endif  // TRELLIS_REPORT_CARD_REPORT_H_
