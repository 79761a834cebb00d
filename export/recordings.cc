// The recordings of an export: per channel, in time order across data
// files, runs of segments joined into one file each, cut at I-frames to the
// window. The record index file is gone through twice: once to find which
// data files hold chosen segments of which channel and from when, then data
// file by data file in that order, so memory holds the data files and one
// data file's segments, never the card's.
#include <algorithm>
#include <cstring>
#include <vector>

#include "base/output.h"
#include "base/platform.h"
#include "base/region_reader.h"
#include "base/times.h"
#include "export/cut.h"
#include "export/export_parts.h"
#include "export/session.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/segment_facts.h"
#include "format/segment_walk.h"

namespace tr {
namespace {

const IndexFileDef& recordFile() { return kIndexFiles[0]; }

// A data file holding chosen segments of a channel, from its earliest.
struct Group {
  int32_t channel;
  int64_t first;
  uint32_t fileNum;
};

// A chosen segment, and the copy of its info that is used.
struct Pick {
  uint32_t segmentNum;
  bool backup;
  uint64_t iFrameOffset;
  uint64_t iFrameSize;
  SegmentFacts facts;
};

enum class Choice { kLeft, kTaken, kSkipped };

// Whether the segment goes into the export, judged by the copy of its info
// in use: left out by the window or the channels, taken (`*pick` then holds
// it), or chosen but skipped (`*why` says why; `pick->facts` holds what the
// primary's copy says).
Choice choose(ExportSession* session, uint32_t fileNum, uint32_t segmentNum,
              const unsigned char* bytes, Pick* pick, std::string* why) {
  SegmentCopy copy;
  chooseCopy(session, recordFile(), fileNum, segmentNum, bytes, &copy);
  tr_RecDataFileInfo info;
  std::memcpy(&info, copy.usable ? copy.bytes : bytes, sizeof info);
  *pick = {segmentNum, copy.backup, info.iFrameInfoOffset, info.iFrameInfoSize,
           recordFacts(info)};
  if (!session->window().takes(pick->facts)) return Choice::kLeft;
  *why = !copy.usable                ? copy.why
         : !pick->facts.timeValid    ? "its time group is not valid"
         : !pick->facts.channelValid ? "its channel is not valid"
                                     : "";
  if (why->empty() && copy.backup) *why = copy.damage;
  return copy.usable && pick->facts.timeValid && pick->facts.channelValid
             ? Choice::kTaken
             : Choice::kSkipped;
}

// The run of segments written into one file.
class Run {
 public:
  explicit Run(ExportSession* session)
      : session_(session), out_(session->dir()) {}

  // Adds the segment, cut to the window, to the run in progress when it
  // continues it, else ends that run and begins another.
  void add(uint32_t fileNum, const Pick& pick) {
    const SegmentFacts& facts = pick.facts;
    uint64_t size = 0;
    std::string why;
    const int fd = session_->dataFile(kRecordKind, fileNum, &size, &why);
    std::vector<IFrame> frames;
    std::string tableWhy;
    if (fd == -1 || !readIFrames(fd, pick.iFrameOffset, pick.iFrameSize, facts,
                                 &frames, &tableWhy)) {
      frames.clear();
    }
    const Cut cut = cutSegment(facts, frames, session_->window());
    const int64_t gap = facts.start - lastEnd_;
    const bool continues =
        out_.isOpen() && facts.channel == first_.channel && facts.encodeValid &&
        first_.encodeValid && facts.codec == first_.codec &&
        facts.width == first_.width && facts.height == first_.height &&
        gap >= -2 && gap <= 2 && !endCut_ && cut.start == facts.offset;
    if (!continues) {
      finish();
      if (session_->stopped() || out_.open() == -1) {
        if (!session_->stopped()) session_->failWriting();
        return;
      }
      first_ = facts;
      startTime_ = cut.startTime;
      sources_.clear();
      segments_ = 0;
    }
    if (session_->copy(fd, cut.start, cut.end - cut.start, &out_) == -1) {
      out_.drop();
      return;
    }
    JsonObject source;
    source.add("dataFile", DataFileSizes::name(kRecordKind, fileNum))
        .add("indexFile",
             pick.backup ? twinOf(recordFile()).name : recordFile().name)
        .add("fileNum", uint64_t{fileNum})
        .add("segmentNum", uint64_t{pick.segmentNum})
        .add("offset", cut.start)
        .add("length", cut.end - cut.start)
        .add("copied", frames.empty()  ? "whole: " + tableWhy
                       : cut.atIFrames ? std::string("cut at I-frames")
                                       : std::string("whole"));
    sources_ += (sources_.empty() ? "" : ",") + source.str();
    ++segments_;
    endTime_ = cut.endTime;
    lastEnd_ = facts.end;
    endCut_ = cut.end != facts.offset + facts.length;
  }

  // Names the file of the run in progress and adds it to the proof.
  void finish() {
    if (!out_.isOpen()) return;
    const std::string name = formatString(
        "ch%02d_%s_%s%s", first_.channel, compactUtc(startTime_).c_str(),
        compactUtc(endTime_).c_str(),
        first_.encodeValid ? codecExtension(first_.codec) : ".bin");
    JsonObject entry;
    entry.add("type", "video").add("channel", int64_t{first_.channel});
    if (first_.encodeValid) {
      entry.add("codec", _tr_maintainVideoEncodeTypeToStr(first_.codec))
          .add("width", uint64_t{first_.width})
          .add("height", uint64_t{first_.height})
          .addRaw("fps", formatString("%g", static_cast<double>(first_.fps)));
    }
    entry.add("start", isoUtc(startTime_))
        .add("end", isoUtc(endTime_))
        .add("localStart", isoLocal(startTime_, first_.zone))
        .add("localEnd", isoLocal(endTime_, first_.zone))
        .addRaw("sources", "[" + sources_ + "]");
    session_->keep(&out_, name, entry,
                   formatString("%u segment%s, channel %d, %s to %s", segments_,
                                segments_ == 1 ? "" : "s", first_.channel,
                                isoLocal(startTime_, first_.zone).c_str(),
                                isoLocal(endTime_, first_.zone).c_str()));
  }

 private:
  ExportSession* session_;
  ExportFile out_;
  SegmentFacts first_ = {};
  int64_t startTime_ = 0;
  int64_t endTime_ = 0;
  int64_t lastEnd_ = 0;
  bool endCut_ = false;
  uint32_t segments_ = 0;
  std::string sources_;
};

// The record index file's dimensions, when its data files can be read.
bool readHead(ExportSession* session, tr_IndexFileHead* head) {
  CardSession& card = session->card();
  if (card.read(card.base(recordFile()), head, sizeof *head) == -1)
    return false;
  return dataFileAreaFits(*head, kRecordKind, card.layout().idxFileSize);
}

// The first pass: the data files holding chosen segments, per channel.
bool survey(ExportSession* session, const tr_IndexFileHead& head,
            RegionReader* reader, std::vector<Group>* groups) {
  return walkSegmentsInUse(
      &session->card(), recordFile(), head, reader,
      [&](uint32_t f, uint32_t s, const unsigned char* bytes) {
        Pick pick;
        std::string why;
        if (choose(session, f, s, bytes, &pick, &why) == Choice::kLeft) {
          return true;
        }
        auto same = [&](const Group& g) {
          return g.fileNum == f && g.channel == pick.facts.channel;
        };
        auto it = std::find_if(groups->begin(), groups->end(), same);
        if (it == groups->end()) {
          groups->push_back({pick.facts.channel, pick.facts.start, f});
        } else {
          it->first = std::min(it->first, pick.facts.start);
        }
        return true;
      });
}

// The second pass over one data file: its chosen segments of `channel`, in
// time order, into runs; the others, not chosen or of other channels, left.
bool exportGroup(ExportSession* session, const tr_IndexFileHead& head,
                 const Group& group, RegionReader* reader, Run* run) {
  CardSession& card = session->card();
  reader->start(card.fd(),
                segmentInfoOffset(card.base(recordFile()), kRecordKind,
                                  head.maxSegmentNum, group.fileNum, 1),
                uint64_t{head.maxSegmentNum} * kRecSegmentInfoSize);
  std::vector<Pick> picks;
  for (uint32_t s = 1; s <= head.maxSegmentNum; ++s) {
    const unsigned char* bytes = reader->take(kRecSegmentInfoSize);
    if (bytes == nullptr) return false;
    if (!segmentInUse(bytes)) continue;
    Pick pick;
    std::string why;
    const Choice choice = choose(session, group.fileNum, s, bytes, &pick, &why);
    // A segment of another channel waits for its own group.
    if (choice == Choice::kLeft || pick.facts.channel != group.channel) {
      continue;
    }
    const RecordPlace where = {RecordKind::kSegmentInfo, &recordFile(),
                               group.fileNum, s};
    if (choice == Choice::kSkipped) {
      session->skip(where, 0, why);
      continue;
    }
    if (pick.backup) session->noteBackup(where, why);
    picks.push_back(pick);
  }
  std::stable_sort(picks.begin(), picks.end(),
                   [](const Pick& a, const Pick& b) {
                     return a.facts.start < b.facts.start;
                   });
  for (const Pick& pick : picks) {
    if (session->stopped()) break;
    run->add(group.fileNum, pick);
  }
  return true;
}

}  // namespace

void exportRecordings(ExportSession* session) {
  tr_IndexFileHead head;
  if (!readHead(session, &head)) {
    if (session->card().fd() != -1) {
      session->skip({RecordKind::kIndexFileHead, &recordFile(), 0, 0}, 0,
                    "its data files do not fit before its auxiliary region "
                    "(see --check)");
    }
    return;
  }
  RegionReader reader;
  std::vector<Group> groups;
  if (!survey(session, head, &reader, &groups)) {
    session->cardLost(reader.failed());
    return;
  }
  std::sort(groups.begin(), groups.end(), [](const Group& a, const Group& b) {
    return a.channel != b.channel ? a.channel < b.channel
           : a.first != b.first   ? a.first < b.first
                                  : a.fileNum < b.fileNum;
  });
  Run run(session);
  for (size_t i = 0; i < groups.size() && !session->stopped(); ++i) {
    if (i > 0 && groups[i].channel != groups[i - 1].channel) run.finish();
    if (!exportGroup(session, head, groups[i], &reader, &run)) {
      session->cardLost(reader.failed());
      return;
    }
  }
  if (!session->stopped()) run.finish();
}

}  // namespace tr
