// The inventory: what the record and the picture index file say the card
// holds. Each index file is read twice: its data file heads one by one,
// then its whole data-file area in large blocks for the segment infos, so
// that the data files come first without keeping anything in memory.
#include <cinttypes>
#include <cstring>
#include <vector>

#include "base/output.h"
#include "base/platform.h"
#include "base/region_reader.h"
#include "base/times.h"
#include "format/card.h"
#include "check/check.h"
#include "check/record_checks.h"
#include "check/report.h"
#include "format/index_layout.h"
#include "format/segment_facts.h"
#include "format/segment_filter.h"
#include "format/segment_walk.h"

namespace tr {
namespace {

struct Totals {
  uint64_t dataFilesInUse = 0;
  uint64_t full = 0;
  uint64_t invalid = 0;
  uint64_t segments = 0;
  uint64_t incomplete = 0;
  uint64_t pictures = 0;
  uint64_t bytes = 0;
};

std::string textWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// A data file is listed when it is in use or its validity is not the
// plain read/write of a free data file.
void listDataFile(const IndexFileDef& file, uint32_t fileNum,
                  const tr_DataFileHead& head, Totals* totals, Report* report) {
  if (head.inUse == 0 && head.validity == 1) return;
  std::vector<std::string> states = {head.inUse != 0 ? "in use" : "not in use"};
  if (head.validity == 0) states.push_back("invalid");
  if (head.validity == 2) states.push_back("full");
  if (head.validity > 2) states.push_back("unknown validity");
  totals->dataFilesInUse += head.inUse != 0;
  totals->full += head.validity == 2;
  totals->invalid += head.validity == 0;
  const Place where = {RecordKind::kDataFileHead, &file, fileNum, 0};
  JsonObject object;
  object.add("type", "dataFile");
  addPlace(where, &object);
  object.addRaw("states", jsonArray(states))
      .add("channel", uint64_t{head.channel})
      .add("validity", uint64_t{head.validity})
      .add("validSegments", uint64_t{head.validSegments})
      .add("usedSize", uint64_t{head.usedSize});
  report->emit(
      formatString("%s: %s; channel %u, %s, usedSize %u", where.text().c_str(),
                   textWords(states).c_str(), head.channel,
                   counted(head.validSegments, "valid segment").c_str(),
                   head.usedSize),
      object);
}

// A segment's line: its states, channel, span of time in UTC and on the
// recorder's clock, pictures, and place in the data file.
void listSegment(const Place& where, const SegmentFacts& facts, Totals* totals,
                 Report* report) {
  std::vector<std::string> states = {"in use"};
  if (facts.incomplete) states.push_back("incomplete");
  ++totals->segments;
  totals->incomplete += facts.incomplete;
  totals->bytes += facts.length;
  JsonObject object;
  object.add("type", "segment");
  addPlace(where, &object);
  object.addRaw("states", jsonArray(states));
  std::string text = where.text() + ": " + textWords(states) + ";";
  if (facts.channelValid) {
    object.add("channel", int64_t{facts.channel});
    text += formatString(" channel %d,", facts.channel);
  } else {
    object.addNull("channel");
  }
  if (facts.timeValid) {
    const std::string start = isoUtc(facts.start);
    const std::string end = isoUtc(facts.end);
    const std::string localStart = isoLocal(facts.start, facts.zone);
    const std::string localEnd = isoLocal(facts.end, facts.zone);
    object.add("start", start)
        .add("end", end)
        .add("localStart", localStart)
        .add("localEnd", localEnd);
    text += " " + start + " to " + end + " (" + localStart + " to " +
            localEnd + "),";
  } else {
    object.addNull("start").addNull("end").addNull("localStart").addNull(
        "localEnd");
    text += " time not valid,";
  }
  if (facts.pictures >= 0) {
    totals->pictures += static_cast<uint64_t>(facts.pictures);
    object.add("pictures", int64_t{facts.pictures});
    text +=
        " " + counted(static_cast<uint64_t>(facts.pictures), "picture") + ",";
  }
  object.add("offset", facts.offset).add("length", facts.length);
  text += formatString(" %" PRIu64 " bytes at %s", facts.length,
                       hexText(facts.offset).c_str());
  report->emit(text, object);
}

// Lists one index file. 0, 1 when its dimensions do not fit its region
// (nothing listed), -1 when a read failed.
int listIndexFile(CardSession* card, const IndexFileDef& file,
                  const tr_IndexFileHead& head, const SegmentFilter& filter,
                  RegionReader* reader, Report* report, JsonObject* summary) {
  const uint64_t base = card->base(file);
  Totals totals;
  const bool fits =
      dataFileAreaFits(head, file.kind, card->layout().idxFileSize);
  for (uint32_t f = 1; fits && f <= head.maxFileNum; ++f) {
    tr_DataFileHead dataHead;
    if (card->read(dataFileHeadOffset(base, file.kind, head.maxSegmentNum, f),
                   &dataHead, sizeof dataHead) == -1) {
      return -1;
    }
    if (filter.takesChannel(dataHead.channel)) {
      listDataFile(file, f, dataHead, &totals, report);
    }
  }
  if (fits &&
      !walkSegmentsInUse(
          card, file, head, reader,
          [&](uint32_t f, uint32_t s, const unsigned char* info) {
            const SegmentFacts facts = segmentFacts(file.kind, info);
            if (filter.takes(facts)) {
              listSegment({RecordKind::kSegmentInfo, &file, f, s}, facts,
                          &totals, report);
            }
            return true;
          },
          [&] { report->progress(reader->bytesRead()); })) {
    return -1;
  }

  JsonObject object;
  object.add("dataFilesInUse", totals.dataFilesInUse)
      .add("full", totals.full)
      .add("invalid", totals.invalid)
      .add("segmentsInUse", totals.segments)
      .add("incomplete", totals.incomplete);
  if (file.kind == kPictureKind) object.add("pictures", totals.pictures);
  object.add("bytes", totals.bytes).add("listed", fits);
  summary->addRaw(file.name, object.str());
  if (!fits) {
    report->emitText(
        formatString("%s: not listed: maxFileNum %u x "
                     "maxSegmentNum %u do not fit before the "
                     "auxiliary region (see --check)",
                     file.name, head.maxFileNum, head.maxSegmentNum));
    return 1;
  }
  std::string text = formatString(
      "%s: %s in use, %" PRIu64 " full, %" PRIu64
      " invalid; %s in use (%" PRIu64 " incomplete), ",
      file.name, counted(totals.dataFilesInUse, "data file").c_str(),
      totals.full, totals.invalid, counted(totals.segments, "segment").c_str(),
      totals.incomplete);
  if (file.kind == kPictureKind) {
    text += counted(totals.pictures, "picture") + ", ";
  }
  report->emitText(text + formatString("%" PRIu64 " bytes", totals.bytes));
  return 0;
}

}  // namespace

int runInventory(const CheckSettings& settings) {
  CardSession card;
  if (card.open() == -1) return kCardUnreadable;
  SegmentFilter filter = settings.filter;
  const int zoned = resolveWindowZone(&card, &filter);
  if (zoned != 0) return zoned == 1 ? kCardUsage : kCardUnreadable;
  Report report(settings.json, "listing");
  if (!card.indexFilesHoldTheirRegions()) {
    err("the index files of a device of %" PRIu64
        " bytes cannot hold their "
        "records; nothing listed (see --check)\n",
        card.capacity());
    return kCardProblems;
  }
  RegionReader reader;
  if (!reader.valid()) {
    errTimestamped("the inventory's read buffer could not be allocated");
    return kCardUnreadable;
  }
  // The record and the picture index file; their headers first, for the
  // progress line's total.
  const IndexFileDef* files[2] = {&kIndexFiles[0], &kIndexFiles[2]};
  tr_IndexFileHead heads[2];
  uint64_t total = 0;
  for (int i = 0; i < 2; ++i) {
    if (card.read(card.base(*files[i]), &heads[i], sizeof heads[i]) == -1) {
      return kCardUnreadable;
    }
    if (dataFileAreaFits(heads[i], files[i]->kind, card.layout().idxFileSize)) {
      total += dataFileAreaEnd(files[i]->kind, heads[i].maxFileNum,
                               heads[i].maxSegmentNum);
    }
  }
  report.setTotal(total);
  JsonObject summary;
  summary.add("type", "summary");
  int status = kCardClean;
  for (int i = 0; i < 2; ++i) {
    const int listed = listIndexFile(&card, *files[i], heads[i],
                                     filter, &reader, &report,
                                     &summary);
    if (listed == -1) {
      if (reader.failed()) card.lost();
      return kCardUnreadable;
    }
    if (listed == 1) status = kCardProblems;
  }
  if (card.close() == -1) return kCardUnreadable;
  report.emitJson(summary);
  return status;
}

}  // namespace tr
