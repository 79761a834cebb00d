#include "report/card_report.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <ctime>
#include <set>
#include <vector>

#include "base/output.h"
#include "base/platform.h"
#include "base/region_reader.h"
#include "base/times.h"
#include "base/version.h"
#include "check/follow.h"
#include "check/report.h"
#include "format/card.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/rec_data_file_info.h"
#include "format/segment_walk.h"
#include "report/html.h"
#include "report/timeline.h"

namespace tr {
namespace {

// The channel a segment's lane is keyed by.
int64_t laneOf(const SegmentFacts& facts) {
  return facts.channelValid ? facts.channel : kNoChannel;
}

const char kStyle[] =
    "@page{size:A4;margin:12mm}"
    "body{font:10pt/1.35 'DejaVu Sans',Arial,sans-serif;color:#222;"
    "max-width:186mm;margin:8mm auto}"
    "h1{font-size:15pt;margin:0 0 4pt}"
    "h2{font-size:12pt;margin:16pt 0 6pt;border-bottom:1px solid #bbb}"
    "h3{font-size:10pt;margin:10pt 0 2pt}"
    "table{border-collapse:collapse;width:100%;font-size:8.5pt}"
    "th,td{border-bottom:1px solid #e2e2e2;padding:2px 4px;text-align:left;"
    "vertical-align:top}"
    "td.n{text-align:right}tr{page-break-inside:avoid}"
    "svg.timeline{width:100%;height:auto;display:block}"
    "svg{page-break-inside:avoid}"
    ".axis{font-size:13px;text-anchor:middle;fill:#444}"
    ".lane{font-size:14px;fill:#222}.track{fill:#efefef}"
    ".tick{stroke:#ccc;stroke-width:.6}.cut{fill:#000}"
    ".picture{stroke:#6a3d9a;stroke-width:1}"
    ".problem{fill:#fff;stroke:#d62728;stroke-width:2}"
    ".key span{display:inline-block;width:10px;height:10px;"
    "margin:0 4px 0 12px;vertical-align:middle}"
    ".bad{color:#b00000;font-weight:bold}.good{color:#006400}"
    ".note{color:#555;font-size:8.5pt}";

struct ChannelSummary {
  int64_t lane;
  uint64_t segments = 0;
  uint64_t cutShort = 0;
  uint64_t bytes = 0;
  uint64_t pictureSegments = 0;
  uint64_t pictures = 0;
  int64_t first = INT64_MAX;
  int64_t last = INT64_MIN;
};

// What a first pass finds: the span, the channels and the zones recorded.
struct Survey {
  int64_t first = INT64_MAX;
  int64_t last = INT64_MIN;
  std::vector<ChannelSummary> channels;  // by lane, at most kMostChannels
  bool moreChannels = false;
  std::vector<std::pair<int32_t, uint64_t>> zones;
  uint64_t untimed = 0;

  void add(const SegmentSeen& seen) {
    const SegmentFacts& facts = seen.facts;
    const int64_t lane = laneOf(facts);
    auto it = std::find_if(channels.begin(), channels.end(),
                           [lane](const ChannelSummary& c) { return c.lane == lane; });
    if (it == channels.end()) {
      if (channels.size() == kMostChannels) {
        moreChannels = true;
        return;
      }
      channels.push_back({lane});
      std::sort(channels.begin(), channels.end(),
                [](const ChannelSummary& a, const ChannelSummary& b) {
                  return a.lane < b.lane;
                });
      it = std::find_if(channels.begin(), channels.end(),
                        [lane](const ChannelSummary& c) { return c.lane == lane; });
    }
    if (seen.pictures != nullptr) {
      ++it->pictureSegments;
      it->pictures += static_cast<uint64_t>(std::max(facts.pictures, 0));
    } else {
      ++it->segments;
      it->cutShort += facts.incomplete;
      it->bytes += facts.length;
    }
    if (!facts.timeValid) {
      ++untimed;
      return;
    }
    it->first = std::min(it->first, facts.start);
    it->last = std::max(it->last, facts.end);
    first = std::min(first, facts.start);
    last = std::max(last, facts.end);
    auto zone = std::find_if(zones.begin(), zones.end(),
                             [&facts](const auto& z) { return z.first == facts.zone; });
    if (zone != zones.end()) {
      ++zone->second;
    } else if (zones.size() < 64) {
      zones.push_back({facts.zone, 1});
    }
  }
  // The zone most segments record.
  int32_t zone() const {
    const auto most = std::max_element(
        zones.begin(), zones.end(),
        [](const auto& a, const auto& b) { return a.second < b.second; });
    return most == zones.end() ? 0 : most->first;
  }
  std::vector<int64_t> lanes() const {
    std::vector<int64_t> keys;
    for (const ChannelSummary& c : channels) keys.push_back(c.lane);
    return keys;
  }
};

struct ProblemMark {
  int64_t lane;
  int64_t time;
  uint32_t number;
};

// The check, followed only to keep its first problems as the table shows
// them and to place those of segments on the timeline.
class ProblemList : public CheckFollower {
 public:
  Kept follow(const Finding& finding) override {
    const uint64_t number = total_ + 1;
    for (const ReportedProblem& p : finding.problems) {
      ++total_;
      if (rows_.size() < kMostProblemRows) rows_.push_back(p);
    }
    if (number > kMostProblemRows || finding.kind != FindingKind::kRecordPair ||
        finding.place.kind != RecordKind::kSegmentInfo) {
      return Kept::kAsRead;
    }
    for (const unsigned char* bytes : {finding.bytes, finding.twinBytes}) {
      if (bytes == nullptr) continue;
      const SegmentFacts facts = segmentFacts(finding.place.file->kind, bytes);
      if (!facts.timeValid) continue;
      marks_.push_back({laneOf(facts), facts.start, static_cast<uint32_t>(number)});
      break;
    }
    return Kept::kAsRead;
  }
  bool stopped() const override { return false; }
  const std::vector<ReportedProblem>& rows() const { return rows_; }
  const std::vector<ProblemMark>& marks() const { return marks_; }

 private:
  uint64_t total_ = 0;
  std::vector<ReportedProblem> rows_;
  std::vector<ProblemMark> marks_;
};

std::string cell(const std::string& text, const char* cls = nullptr) {
  return std::string("<td") + (cls != nullptr ? std::string(" class=\"") + cls + "\"" : "") +
         ">" + htmlText(text) + "</td>";
}

std::string row(const std::string& name, const std::string& html) {
  return "<tr><th>" + htmlText(name) + "</th><td>" + html + "</td></tr>\n";
}

std::string number(uint64_t value) { return formatString("%" PRIu64, value); }

// The local day of a UTC time, as a count of days since 1970-01-01.
int64_t dayOf(int64_t utc, int32_t zone) {
  const int64_t local = utc + zone;
  return local / 86400 - (local % 86400 < 0 ? 1 : 0);
}

// Everything a report is made of, pass by pass.
class CardReport {
 public:
  CardReport(const ReportSettings& settings, CardSession* card)
      : settings_(settings), card_(card), out_(settings.path) {}

  int run();

 private:
  void header(uint64_t problems, uint64_t records);
  void indexFiles();
  int timelines();
  void drawDays(const std::set<int64_t>& days, bool moreDays);
  void problemTable(uint64_t problems);
  void inventory();
  int dataFiles();
  void addTo(Timeline* timeline, const SegmentSeen& seen);

  const ReportSettings& settings_;
  CardSession* card_;
  HtmlFile out_;
  RegionReader reader_;
  Survey survey_;
  ProblemList problems_;
  int32_t zone_ = 0;
  int64_t from_ = 0;
  int64_t to_ = 0;
  bool failed_ = false;
};

void CardReport::header(uint64_t problems, uint64_t records) {
  const tr_TrellisHead& layout = card_->layout();
  const time_t now = std::time(nullptr);
  out_.put("<!DOCTYPE html>\n<html xmlns=\"http://www.w3.org/1999/xhtml\" "
           "lang=\"en\"><head><meta charset=\"utf-8\"/><title>" +
           htmlText("Card report: " + deviceName) + "</title><style>" +
           kStyle + "</style></head><body>\n");
  out_.put("<h1>" + htmlText("Card report: " + deviceName) + "</h1>\n");
  out_.put("<table class=\"facts\">\n");
  out_.put(row("Device", htmlText(deviceName) + " (" +
                             htmlText(number(card_->capacity())) + " bytes)"));
  out_.put(row("Layout", htmlText(formatString(
                             "index files of %" PRIu64 " bytes at %" PRIu64
                             ", %" PRIu64 ", %" PRIu64 " and %" PRIu64,
                             layout.idxFileSize, layout.idxFileOffsetAV,
                             layout.idxFileBackupOffsetAV, layout.idxFileOffsetPic,
                             layout.idxFileBackupOffsetPic))));
  out_.put(row("Media directory", htmlText(mediaPath(""))));
  out_.put(row("Check", std::string("<a href=\"#problems\" class=\"") +
                            (problems == 0 ? "good" : "bad") + "\">" +
                            htmlText(problems == 0 ? "no problem"
                                                   : counted(problems, "problem")) +
                            "</a>" +
                            htmlText(formatString("; %" PRIu64 " records read",
                                                  records))));
  const SegmentFilter& filter = settings_.filter;
  std::string chosen;
  for (int32_t channel : filter.channels) {
    chosen += (chosen.empty() ? "channels " : ", ") + std::to_string(channel);
  }
  if (filter.hasFrom) chosen += (chosen.empty() ? "" : "; ") + ("from " + isoUtc(filter.from.seconds));
  if (filter.hasTo) chosen += (chosen.empty() ? "" : "; ") + ("to " + isoUtc(filter.to.seconds));
  if (!chosen.empty()) out_.put(row("Chosen", htmlText(chosen)));
  out_.put(row("Made", htmlText(isoUtc(static_cast<int64_t>(now)) +
                                " by trellis-maintain " + kVersion)));
  out_.put("</table>\n");
}

void CardReport::indexFiles() {
  out_.put("<h2>Index files</h2>\n<table><tr><th>index file</th><th>at byte</th>"
           "<th>magic word</th><th>state</th></tr>\n");
  for (const IndexFileDef& file : kIndexFiles) {
    tr_IndexFileHead head;
    if (card_->read(card_->base(file), &head, sizeof head) == -1) {
      failed_ = true;
      return;
    }
    const bool magic =
        std::memcmp(head.magicWord, kIndexFileMagic, sizeof head.magicWord) == 0;
    std::string state = magic && head.exceptionFlag == 0 ? "normal" : "abnormal";
    if (!magic) state += ": magic word not IDX_01";
    if (head.exceptionFlag != 0) state += ": exception flag set";
    out_.put("<tr>" + cell(file.name) + cell(number(card_->base(file)), "n") +
             cell(escapedText(head.magicWord, sizeof head.magicWord, kQuotedText)) +
             "<td class=\"" + (state == "normal" ? "good" : "bad") + "\">" +
             htmlText(state) + "</td></tr>\n");
  }
  out_.put("</table>\n");
}

void CardReport::addTo(Timeline* timeline, const SegmentSeen& seen) {
  const SegmentFacts& facts = seen.facts;
  if (!facts.timeValid) return;
  const int64_t lane = laneOf(facts);
  if (seen.pictures == nullptr) {
    timeline->addSegment(lane, facts.start, facts.end, facts.types,
                         facts.incomplete);
    return;
  }
  for (int i = 0; i < facts.pictures; ++i) {
    const int64_t time = storedSeconds(seen.pictures->imageDetails[i].utcTime);
    if (settings_.filter.takesTime(time)) timeline->addPicture(lane, time);
  }
}

int CardReport::timelines() {
  out_.put("<h2>Timeline</h2>\n<p class=\"key\">");
  const char* const key[][2] = {{"#2ca02c", "scheduled"}, {"#1f77b4", "manual"},
                                {"#d62728", "alarm"},     {"#ff7f0e", "event"},
                                {"#8c8c8c", "no type recorded"}};
  for (const auto& k : key) {
    out_.put(std::string("<span style=\"background:") + k[0] + "\"></span>" + k[1]);
  }
  out_.put(" &#8212; &#9660; cut short, | pictures, &#9675; a problem (its row below)</p>\n");
  if (survey_.first > survey_.last && !settings_.filter.hasFrom) {
    out_.put("<p>No segment with a valid time to draw.</p>\n");
    return 0;
  }
  const std::vector<int64_t> lanes = survey_.lanes();
  Timeline overview(from_, to_, zone_, lanes);
  std::set<int64_t> days;  // local day numbers, the latest kMostDays
  bool moreDays = false;
  auto noteDay = [&days, &moreDays](int64_t day) {
    days.insert(day);
    if (days.size() > kMostDays) {
      days.erase(days.begin());
      moreDays = true;
    }
  };
  if (visitSegments(card_, settings_.filter, &reader_,
                    [&](const SegmentSeen& seen) {
                      addTo(&overview, seen);
                      if (!seen.facts.timeValid) return;
                      const int64_t first = dayOf(seen.facts.start, zone_);
                      const int64_t last =
                          dayOf(std::max(seen.facts.end, seen.facts.start), zone_);
                      for (int64_t d = first; d <= last && d - first < 31; ++d) noteDay(d);
                      if (last - first >= 31) noteDay(last);
                    }) == -1) {
    return -1;
  }
  for (const ProblemMark& mark : problems_.marks()) {
    overview.addProblem(mark.lane, mark.time, mark.number);
  }
  const std::string span = localMinute(from_, zone_) + " to " +
                           localMinute(to_, zone_) + ", local time of the recorder (" +
                           zoneName(zone_) + ")";
  out_.put("<h3>" + htmlText(span) + "</h3>\n");
  if (survey_.zones.size() > 1) {
    out_.put("<p class=\"note\">" +
             htmlText(formatString("The segments record %zu time zones; the axes "
                                   "show the one most of them record.",
                                   survey_.zones.size())) +
             "</p>\n");
  }
  out_.put(overview.svg("All recordings, " + span));
  if (survey_.moreChannels) {
    out_.put("<p class=\"note\">" +
             htmlText(formatString("Only the first %zu channels are drawn.", kMostChannels)) +
             "</p>\n");
  }
  if (survey_.untimed > 0) {
    out_.put("<p class=\"note\">" +
             htmlText(counted(survey_.untimed, "segment") +
                      " without a valid time cannot be drawn; the inventory "
                      "counts them.") +
             "</p>\n");
  }
  if (to_ - from_ > 86400) drawDays(days, moreDays);
  return failed_ ? -1 : 0;
}

// A row per day, a few days per pass so that the columns held stay few.
void CardReport::drawDays(const std::set<int64_t>& days, bool moreDays) {
  out_.put("<h2>Day by day</h2>\n");
  if (moreDays) {
    out_.put("<p class=\"note\">" +
             htmlText(formatString("The last %zu days with recordings; "
                                   "--from and --to choose others.",
                                   kMostDays)) +
             "</p>\n");
  }
  const std::vector<int64_t> lanes = survey_.lanes();
  // About half a megabyte of columns at a time.
  const size_t perPass = std::max<size_t>(
      1, 32768 / (std::max<size_t>(1, lanes.size()) * Timeline::kColumns));
  std::vector<int64_t> all(days.begin(), days.end());
  for (size_t at = 0; at < all.size(); at += perPass) {
    std::vector<Timeline> batch;
    const size_t end = std::min(all.size(), at + perPass);
    for (size_t i = at; i < end; ++i) {
      const int64_t start = all[i] * 86400 - zone_;
      batch.emplace_back(start, start + 86400, zone_, lanes);
    }
    if (visitSegments(card_, settings_.filter, &reader_,
                      [&](const SegmentSeen& seen) {
                        for (Timeline& day : batch) addTo(&day, seen);
                      }) == -1) {
      failed_ = true;
      return;
    }
    for (size_t i = at; i < end; ++i) {
      Timeline& day = batch[i - at];
      for (const ProblemMark& mark : problems_.marks()) {
        day.addProblem(mark.lane, mark.time, mark.number);
      }
      const std::string title = localMinute(all[i] * 86400 - zone_, zone_).substr(0, 10);
      out_.put("<h3>" + htmlText(title) + "</h3>\n");
      out_.put(day.svg("Recordings of " + title + " (" + zoneName(zone_) + ")"));
    }
  }
}

void CardReport::problemTable(uint64_t problems) {
  out_.put("<h2 id=\"problems\">Problems</h2>\n");
  if (problems == 0) {
    out_.put("<p class=\"good\">The check found no problem.</p>\n");
    return;
  }
  out_.put("<table><tr><th>#</th><th>where</th><th>problem</th>"
           "<th>console command</th></tr>\n");
  uint32_t n = 0;
  for (const ReportedProblem& p : problems_.rows()) {
    ++n;
    const std::string command =
        settings_.commandFor != nullptr ? settings_.commandFor(p.where) : "";
    out_.put(formatString("<tr id=\"p%u\">", n) + cell(std::to_string(n), "n") +
             cell(p.where.text()) + cell(p.message) + cell(command) + "</tr>\n");
  }
  out_.put("</table>\n");
  if (problems > problems_.rows().size()) {
    out_.put("<p class=\"note\">" +
             htmlText(formatString("The first %zu of %" PRIu64 " problems; "
                                   "trellis-maintain --check lists them all.",
                                   problems_.rows().size(), problems)) +
             "</p>\n");
  }
}

void CardReport::inventory() {
  out_.put("<h2>Inventory</h2>\n<table><tr><th>channel</th><th>record segments</th>"
           "<th>cut short</th><th>bytes</th><th>picture segments</th>"
           "<th>pictures</th><th>first</th><th>last</th></tr>\n");
  for (const ChannelSummary& c : survey_.channels) {
    const bool timed = c.first <= c.last;
    out_.put("<tr>" +
             cell(c.lane == kNoChannel ? "none" : std::to_string(c.lane)) +
             cell(number(c.segments), "n") + cell(number(c.cutShort), "n") +
             cell(number(c.bytes), "n") + cell(number(c.pictureSegments), "n") +
             cell(number(c.pictures), "n") +
             cell(timed ? localMinute(c.first, zone_) : "") +
             cell(timed ? localMinute(c.last, zone_) : "") + "</tr>\n");
  }
  out_.put("</table>\n");
}

// The data files in use, or marked other than plainly free, of the record
// and the picture index file.
int CardReport::dataFiles() {
  out_.put("<h3>Data files</h3>\n<table><tr><th>index file</th><th>file</th>"
           "<th>channel</th><th>state</th><th>valid segments</th>"
           "<th>used size</th></tr>\n");
  size_t rows = 0;
  uint64_t more = 0;
  for (const IndexFileDef& file : kIndexFiles) {
    if (file.backup) continue;
    const uint64_t base = card_->base(file);
    tr_IndexFileHead head;
    if (card_->read(base, &head, sizeof head) == -1) return -1;
    if (!dataFileAreaFits(head, file.kind, card_->layout().idxFileSize)) {
      continue;
    }
    for (uint32_t f = 1; f <= head.maxFileNum; ++f) {
      tr_DataFileHead data;
      if (card_->read(dataFileHeadOffset(base, file.kind, head.maxSegmentNum, f),
                      &data, sizeof data) == -1) {
        return -1;
      }
      if ((data.inUse == 0 && data.validity == 1) ||
          !settings_.filter.takesChannel(data.channel)) {
        continue;
      }
      if (rows == kMostDataFileRows) {
        ++more;
        continue;
      }
      ++rows;
      std::string state = data.inUse != 0 ? "in use" : "not in use";
      if (data.validity == 0) state += ", invalid";
      if (data.validity == 2) state += ", full";
      if (data.validity > 2) state += ", unknown validity";
      out_.put("<tr>" + cell(file.name) + cell(DataFileSizes::name(file.kind, f)) +
               cell(std::to_string(data.channel), "n") +
               "<td class=\"" + (data.validity == 0 ? "bad" : "") + "\">" +
               htmlText(state) + "</td>" + cell(number(data.validSegments), "n") +
               cell(number(data.usedSize), "n") + "</tr>\n");
    }
  }
  out_.put("</table>\n");
  if (more > 0) {
    out_.put("<p class=\"note\">" +
             htmlText(formatString("%" PRIu64 " more data files; trellis-maintain "
                                   "--list lists them all.",
                                   more)) +
             "</p>\n");
  }
  return 0;
}

int CardReport::run() {
  auto interrupted = [] { return InterruptScope::caught() != 0; };
  if (!reader_.valid()) {
    errTimestamped("the report's read buffer could not be allocated");
    return kCardUnreadable;
  }
  // The check first, silently: its summary heads the report.
  Report check(false, "checking", settings_.commandFor);
  check.silence();
  WalkCounts counts;
  if (walkCard(card_, &check, &problems_, &counts) == -1) return kCardUnreadable;
  const bool readable = card_->indexFilesHoldTheirRegions();
  if (readable &&
      visitSegments(card_, settings_.filter, &reader_,
                    [this](const SegmentSeen& seen) { survey_.add(seen); }) == -1) {
    return kCardUnreadable;
  }
  zone_ = survey_.zone();
  from_ = settings_.filter.hasFrom ? settings_.filter.from.seconds : survey_.first;
  to_ = settings_.filter.hasTo ? settings_.filter.to.seconds : survey_.last;
  if (interrupted() || out_.open() == -1) return kCardUnreadable;
  header(check.problems(), counts.records);
  if (readable) {
    indexFiles();
    if (failed_ || timelines() == -1) return kCardUnreadable;
  }
  problemTable(check.problems());
  if (readable) {
    inventory();
    if (dataFiles() == -1) return kCardUnreadable;
  }
  out_.put("</body></html>\n");
  if (interrupted() || out_.keep() == -1 || card_->close() == -1) {
    return kCardUnreadable;
  }
  return check.problems() == 0 ? kCardClean : kCardProblems;
}

}  // namespace

int runCardReport(const ReportSettings& settings) {
  CardSession card;
  if (card.open() == -1) return kCardUnreadable;
  ReportSettings chosen = settings;
  const int zoned = resolveWindowZone(&card, &chosen.filter);
  if (zoned != 0) return zoned == 1 ? kCardUsage : kCardUnreadable;
  // Ctrl-C and SIGTERM end the report without a file: the one half written
  // is removed with its temporary name.
  const InterruptScope interrupts;
  int status;
  {
    CardReport report(chosen, &card);
    status = report.run();
  }
  if (InterruptScope::caught() == 0) return status;
  err("trellis-maintain: interrupted: no report was written\n");
  return InterruptScope::terminated() ? 143 : 130;
}

}  // namespace tr
