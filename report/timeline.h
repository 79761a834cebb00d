// A timeline of the card's channels over a span of time, drawn as inline
// SVG: one lane per channel, its span cut into a fixed number of columns
// (pixels), each column holding what lies in it. Segments narrower than a
// column fall into it and are counted there, so the drawing and the memory
// stay the same size however many segments the card holds: adjacent
// columns of the same kind of recording become one bar, with the count of
// the segments it holds in its tooltip.
#ifndef TRELLIS_REPORT_TIMELINE_H_
#define TRELLIS_REPORT_TIMELINE_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tr {

// A lane's key: the channel number a segment records, or kNoChannel.
constexpr int64_t kNoChannel = INT64_MIN;

class Timeline {
 public:
  static constexpr int kColumns = 720;

  // [from, to) in UTC seconds; `zone`, seconds east of UTC, for the axis.
  Timeline(int64_t from, int64_t to, int32_t zone,
           const std::vector<int64_t>& channels);

  // A record segment of `types` (RecordTypeBit) from `start` to `end`.
  void addSegment(int64_t channel, int64_t start, int64_t end,
                  uint32_t types, bool cutShort);
  void addPicture(int64_t channel, int64_t time);
  // Problem `number` (1-based) of the report's table, at `time`.
  void addProblem(int64_t channel, int64_t time, uint32_t number);

  // The drawing: an axis in the recorder's local time and a lane per
  // channel, `title` above it.
  std::string svg(const std::string& title) const;

 private:
  struct Column {
    uint32_t segments = 0;  // record segments starting in it
    uint32_t pictures = 0;
    uint32_t problem = 0;  // the first problem in it, 0 for none
    uint8_t types = 0;     // RecordTypeBit of the recordings lying in it
    bool covered = false;  // a record segment lies in it
    bool cutShort = false;
  };
  // The column of `time`, or -1 outside the span.
  int columnOf(int64_t time) const;
  Column* lane(int64_t channel);
  std::string axis() const;
  std::string laneSvg(size_t index, double y) const;

  int64_t from_;
  int64_t to_;
  int32_t zone_;
  std::vector<int64_t> channels_;
  std::vector<Column> columns_;  // channels_.size() x kColumns
};

// "UTC+08:00".
std::string zoneName(int32_t zone);
// "2024-03-05 15:10" in the recorder's local time.
std::string localMinute(int64_t utc, int32_t zone);

}  // namespace tr

#endif  // TRELLIS_REPORT_TIMELINE_H_
