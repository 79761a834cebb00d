#include "report/timeline.h"

#include <algorithm>

#include "base/platform.h"
#include "base/times.h"
#include "format/rec_data_file_info.h"
#include "report/html.h"

namespace tr {
namespace {

constexpr double kLabelWidth = 96;
constexpr double kAxisHeight = 30;
constexpr double kLaneHeight = 34;
constexpr double kBarHeight = 18;

// The kinds of recording by how much they matter: a column shows the first
// it holds.
struct Kind {
  uint32_t bit;
  const char* name;
  const char* colour;
};
const Kind kKinds[] = {
    {kAlarmRecording, "alarm", "#d62728"},
    {kEventRecording, "event", "#ff7f0e"},
    {kManualRecording, "manual", "#1f77b4"},
    {kScheduledRecording, "scheduled", "#2ca02c"},
};
const Kind kUnnamed = {0, "no type recorded", "#8c8c8c"};

const Kind& kindOf(uint8_t types) {
  for (const Kind& kind : kKinds) {
    if ((types & kind.bit) != 0) return kind;
  }
  return kUnnamed;
}

// Axis steps, in seconds, from a minute to a year: the first that gives at
// most ten ticks.
const int64_t kSteps[] = {60,     300,     600,     1800,     3600,
                          10800,  21600,   43200,   86400,    172800,
                          604800, 2592000, 7776000, 31536000};

std::string number(double value) { return formatString("%.1f", value); }

}  // namespace

std::string zoneName(int32_t zone) { return "UTC" + isoZone(zone); }

std::string localMinute(int64_t utc, int32_t zone) {
  std::string text = isoLocal(utc, zone).substr(0, 16);
  if (text.size() > 10) text[10] = ' ';
  return text;
}

Timeline::Timeline(int64_t from, int64_t to, int32_t zone,
                   const std::vector<int64_t>& channels)
    : from_(from),
      to_(std::max(to, from + 1)),
      zone_(zone),
      channels_(channels),
      columns_(channels.size() * kColumns) {}

int Timeline::columnOf(int64_t time) const {
  if (time < from_ || time >= to_) return -1;
  const double share = static_cast<double>(time - from_) /
                       static_cast<double>(to_ - from_);
  return std::min(kColumns - 1, static_cast<int>(share * kColumns));
}

Timeline::Column* Timeline::lane(int64_t channel) {
  const auto it = std::find(channels_.begin(), channels_.end(), channel);
  if (it == channels_.end()) return nullptr;
  return &columns_[static_cast<size_t>(it - channels_.begin()) * kColumns];
}

void Timeline::addSegment(int64_t channel, int64_t start, int64_t end,
                          uint32_t types, bool cutShort) {
  Column* columns = lane(channel);
  if (columns == nullptr || end < from_ || start >= to_) return;
  const int first = columnOf(std::max(start, from_));
  const int last = columnOf(std::min(std::max(end, start), to_ - 1));
  if (start >= from_) ++columns[first].segments;
  for (int c = first; c <= last; ++c) {
    columns[c].covered = true;
    columns[c].types |= static_cast<uint8_t>(types);
  }
  if (cutShort) columns[last].cutShort = true;
}

void Timeline::addPicture(int64_t channel, int64_t time) {
  Column* columns = lane(channel);
  const int c = columnOf(time);
  if (columns != nullptr && c >= 0) ++columns[c].pictures;
}

void Timeline::addProblem(int64_t channel, int64_t time, uint32_t number) {
  Column* columns = lane(channel);
  const int c = columnOf(time);
  if (columns != nullptr && c >= 0 && columns[c].problem == 0) {
    columns[c].problem = number;
  }
}

std::string Timeline::axis() const {
  const int64_t span = to_ - from_;
  int64_t step = kSteps[sizeof kSteps / sizeof kSteps[0] - 1];
  for (int64_t candidate : kSteps) {
    if (span / candidate <= 10) {
      step = candidate;
      break;
    }
  }
  // Ticks on the local clock's round times.
  std::string svg;
  const int64_t localFrom = from_ + zone_;
  int64_t tick = localFrom - ((localFrom % step) + step) % step;
  for (; tick < to_ + zone_; tick += step) {
    if (tick < localFrom) continue;
    const double x = kLabelWidth + static_cast<double>(tick - localFrom) *
                                       kColumns / static_cast<double>(span);
    const std::string label = localMinute(tick - zone_, zone_);
    svg += "<line class=\"tick\" x1=\"" + number(x) + "\" y1=\"" +
           number(kAxisHeight - 6) + "\" x2=\"" + number(x) + "\" y2=\"" +
           number(kAxisHeight + kLaneHeight * channels_.size()) + "\"/>";
    // The date where the ticks are days, the time where they fall within
    // one, both where they run over days.
    const std::string text = step >= 86400 ? label.substr(0, 10)
                             : span <= 86400 ? label.substr(11)
                                             : label.substr(5);
    svg += "<text class=\"axis\" x=\"" + number(x) + "\" y=\"" +
           number(kAxisHeight - 10) + "\">" + htmlText(text) + "</text>";
  }
  return svg;
}

std::string Timeline::laneSvg(size_t index, double y) const {
  const Column* columns = &columns_[index * kColumns];
  const int64_t channel = channels_[index];
  std::string svg = "<text class=\"lane\" x=\"4\" y=\"" + number(y + 14) +
                    "\">" +
                    (channel == kNoChannel
                         ? std::string("no channel")
                         : formatString("channel %lld",
                                        static_cast<long long>(channel))) +
                    "</text>";
  svg += "<rect class=\"track\" x=\"" + number(kLabelWidth) + "\" y=\"" +
         number(y) + "\" width=\"" + number(kColumns) + "\" height=\"" +
         number(kBarHeight) + "\"/>";
  auto timeAt = [this](int c) {
    return from_ + static_cast<int64_t>(static_cast<double>(to_ - from_) * c /
                                        kColumns);
  };
  for (int c = 0; c < kColumns;) {
    if (!columns[c].covered) {
      ++c;
      continue;
    }
    const Kind& kind = kindOf(columns[c].types);
    int end = c;
    uint64_t segments = 0;
    while (end < kColumns && columns[end].covered &&
           &kindOf(columns[end].types) == &kind) {
      segments += columns[end].segments;
      ++end;
    }
    svg += "<rect x=\"" + number(kLabelWidth + c) + "\" y=\"" + number(y) +
           "\" width=\"" + number(end - c) + "\" height=\"" +
           number(kBarHeight) + "\" fill=\"" + kind.colour + "\"><title>" +
           htmlText(formatString("%llu segment%s starting, %s",
                                 static_cast<unsigned long long>(segments),
                                 segments == 1 ? "" : "s", kind.name) +
                    ", " + localMinute(timeAt(c), zone_) + " to " +
                    localMinute(timeAt(end), zone_)) +
           "</title></rect>";
    c = end;
  }
  for (int c = 0; c < kColumns; ++c) {
    const double x = kLabelWidth + c + 0.5;
    if (columns[c].cutShort) {
      svg += "<path class=\"cut\" d=\"M" + number(x - 5) + " " + number(y - 7) +
             " h10 l-5 7 z\"><title>" +
             htmlText("a segment cut short, ending " +
                      localMinute(timeAt(c + 1), zone_)) +
             "</title></path>";
    }
    if (columns[c].pictures > 0) {
      svg += "<line class=\"picture\" x1=\"" + number(x) + "\" y1=\"" +
             number(y + kBarHeight + 2) + "\" x2=\"" + number(x) +
             "\" y2=\"" + number(y + kBarHeight + 9) + "\"><title>" +
             formatString("%u picture%s", columns[c].pictures,
                          columns[c].pictures == 1 ? "" : "s") +
             "</title></line>";
    }
    if (columns[c].problem != 0) {
      svg += formatString(
          "<a href=\"#p%u\"><circle class=\"problem\" cx=\"%s\" cy=\"%s\" "
          "r=\"5\"><title>problem %u</title></circle></a>",
          columns[c].problem, number(x).c_str(),
          number(y + kBarHeight / 2).c_str(), columns[c].problem);
    }
  }
  return svg;
}

std::string Timeline::svg(const std::string& title) const {
  const double width = kLabelWidth + kColumns + 20;
  const double height = kAxisHeight + kLaneHeight * channels_.size() + 4;
  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " +
                    number(width) + " " + number(height) +
                    "\" class=\"timeline\"><title>" + htmlText(title) +
                    "</title>";
  svg += axis();
  for (size_t i = 0; i < channels_.size(); ++i) {
    svg += laneSvg(i, kAxisHeight + kLaneHeight * i);
  }
  return svg + "</svg>\n";
}

}  // namespace tr
