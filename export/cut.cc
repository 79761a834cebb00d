#include "export/cut.h"

#include <cerrno>
#include <cstring>

#include "base/platform.h"
#include "base/times.h"
#include "format/iframe_index.h"

namespace tr {
namespace {

constexpr uint64_t kLow32 = uint64_t{1} << 32;

// The byte of the media [start, end) whose position has the low 32 bits
// `low`, or `end` when none has.
uint64_t placeOf(uint32_t low, uint64_t start, uint64_t end) {
  const uint64_t ahead = (low - static_cast<uint32_t>(start)) % kLow32;
  return end - start > ahead ? start + ahead : end;
}

bool readWhole(int fd, uint64_t offset, void* buffer, size_t size) {
  if (offset > static_cast<uint64_t>(INT64_MAX) ||
      sys.lseek(fd, static_cast<int64_t>(offset)) == -1) {
    return false;
  }
  char* bytes = static_cast<char*>(buffer);
  for (size_t done = 0; done < size;) {
    const ssize_t got = sys.read(fd, bytes + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

}  // namespace

bool readIFrames(int fd, uint64_t tableOffset, uint64_t tableSize,
                 const SegmentFacts& facts, std::vector<IFrame>* frames,
                 std::string* why) {
  frames->clear();
  const uint64_t size = tableSize;
  const uint64_t entry = sizeof(tr_IFrameIndex);
  if (size == 0 || size % entry != 0 || size / entry > kMaxIFrames) {
    *why = formatString("its iFrameInfoSize %llu is not 1 to %u whole entries",
                        static_cast<unsigned long long>(size), kMaxIFrames);
    return false;
  }
  if (!facts.timeValid) {
    *why = "its time group is not valid";
    return false;
  }
  std::vector<tr_IFrameIndex> table(static_cast<size_t>(size / entry));
  if (!readWhole(fd, tableOffset, table.data(), static_cast<size_t>(size))) {
    *why = "its I-frame table cannot be read from the data file";
    return false;
  }
  const uint64_t end = facts.offset + facts.length;
  for (size_t i = 0; i < table.size(); ++i) {
    const IFrame frame = {storedSeconds(table[i].utcTime),
                          placeOf(table[i].offset, facts.offset, end)};
    const bool inside = frame.position < end && frame.time >= facts.start &&
                        frame.time <= facts.end;
    const bool ordered =
        frames->empty() || (frame.position > frames->back().position &&
                            frame.time >= frames->back().time);
    if (!inside || !ordered) {
      *why =
          formatString("its I-frame %zu %s", i + 1,
                       inside ? "is out of order" : "lies outside the segment");
      frames->clear();
      return false;
    }
    frames->push_back(frame);
  }
  return true;
}

Cut cutSegment(const SegmentFacts& facts, const std::vector<IFrame>& frames,
               const SegmentFilter& window) {
  Cut cut = {facts.offset, facts.offset + facts.length, facts.start, facts.end,
             false};
  if (frames.empty()) return cut;
  if (window.hasFrom && window.from.seconds > facts.start) {
    for (const IFrame& frame : frames) {
      if (frame.time > window.from.seconds) break;
      cut.start = frame.position;
      cut.startTime = frame.time;
      cut.atIFrames = true;
    }
  }
  if (window.hasTo && window.to.seconds < facts.end) {
    for (const IFrame& frame : frames) {
      if (frame.time < window.to.seconds || frame.position <= cut.start) {
        continue;
      }
      cut.end = frame.position;
      cut.endTime = frame.time;
      cut.atIFrames = true;
      break;
    }
  }
  return cut;
}

}  // namespace tr
