#include "check/check.h"

#include <cinttypes>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "base/region_reader.h"
#include "check/follow.h"
#include "check/record_checks.h"
#include "check/record_fields.h"
#include "check/report.h"
#include "format/card.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// One of the two index files of a kind, as the walk goes through it.
struct Side {
  const IndexFileDef* def;
  uint64_t base;
  tr_IndexFileHead head;
  bool areaFits;  // its data-file area can be read
  RegionReader* reader;
  uint32_t inUse;  // segment infos in use in the current data file
  std::vector<ReportedProblem> mark;  // the problems of its abnormal mark
};

template <typename Record>
Record copyOut(const unsigned char* bytes) {
  Record record;
  std::memcpy(&record, bytes, sizeof record);
  return record;
}

bool markedNormal(const tr_IndexFileHead& head) {
  return std::memcmp(head.magicWord, kIndexFileMagic, sizeof head.magicWord) ==
             0 &&
         head.exceptionFlag == 0;
}

class CardCheck {
 public:
  CardCheck(CardSession* card, Report* report, CheckFollower* follower,
            WalkCounts* counts)
      : card_(card), report_(report), follower_(follower), counts_(counts) {
    if (follower_ != nullptr) report_->collect(&collected_);
  }
  ~CardCheck() { report_->collect(nullptr); }
  CardCheck(const CardCheck&) = delete;
  CardCheck& operator=(const CardCheck&) = delete;

  // 0, or -1 when a read failed (reported; the device is closed then) or
  // the follower stopped.
  int run();

 private:
  int checkKind(Side* primary, Side* backup);
  void checkHeaders(Side* primary, Side* backup);
  int walkDataFiles(Side* primary, Side* backup);
  int walkAuxiliaries(Side* primary, Side* backup);
  // The next record of each side; false after a failed read.
  bool take(Side* primary, Side* backup, size_t size, const unsigned char** p,
            const unsigned char** b);
  // Checks the primary's record and, when the backup's is not a copy of
  // it, names the fields that differ and checks the backup's on its own.
  // With a follower, hands it what was found; which copy is kept then.
  template <typename Check>
  Kept checkRecord(const RecordFields& fields, const Place& primaryPlace,
                   const Side& primary, const unsigned char* p, Side* backup,
                   const unsigned char* b, Check check);
  // A data file head's validSegments against the segments in use; `twin`
  // when the twin's head is the same and counts the same.
  void checkCount(const Place& where, const Side& side,
                  const tr_DataFileHead& head, const Side* twin);
  // The finding for what was collected since the last one.
  Finding finding(FindingKind kind, const Place& where, const Side& side,
                  const void* bytes) const;
  uint64_t offsetOf(const Side& side, const Place& where) const;
  bool followerStopped() const {
    return follower_ != nullptr && follower_->stopped();
  }

  CardSession* card_;
  Report* report_;
  CheckFollower* follower_;
  WalkCounts* counts_;
  RegionReader readers_[2];
  std::vector<ReportedProblem> collected_;
  uint64_t unequal_ = 0;  // records of the kind the twins still disagree on
};

uint64_t CardCheck::offsetOf(const Side& side, const Place& where) const {
  const uint32_t kind = side.def->kind;
  const uint32_t maxSegmentNum = side.head.maxSegmentNum;
  const uint64_t idxFileSize = card_->layout().idxFileSize;
  switch (where.kind) {
    case RecordKind::kDataFileHead:
      return dataFileHeadOffset(side.base, kind, maxSegmentNum, where.first);
    case RecordKind::kSegmentInfo:
      return segmentInfoOffset(side.base, kind, maxSegmentNum, where.first,
                               where.second);
    case RecordKind::kAuxHead:
      return auxHeadOffset(side.base, idxFileSize, where.first);
    case RecordKind::kAuxContext:
      return auxContextOffset(side.base, idxFileSize, where.first,
                              where.second);
    default:
      return side.base;
  }
}

Finding CardCheck::finding(FindingKind kind, const Place& where,
                           const Side& side, const void* bytes) const {
  Finding f;
  f.kind = kind;
  f.place = where;
  f.offset = offsetOf(side, where);
  f.bytes = static_cast<const unsigned char*>(bytes);
  f.problems = collected_;
  return f;
}

bool CardCheck::take(Side* primary, Side* backup, size_t size,
                     const unsigned char** p, const unsigned char** b) {
  *p = primary->reader->take(size);
  *b =
      backup == nullptr || *p == nullptr ? nullptr : backup->reader->take(size);
  if (*p == nullptr || (backup != nullptr && *b == nullptr)) {
    // A failed read closed the device.
    if (primary->reader->failed() ||
        (backup != nullptr && backup->reader->failed())) {
      card_->lost();
    }
    return false;
  }
  counts_->records += backup == nullptr ? 1 : 2;
  return true;
}

template <typename Check>
Kept CardCheck::checkRecord(const RecordFields& fields,
                            const Place& primaryPlace, const Side& primary,
                            const unsigned char* p, Side* backup,
                            const unsigned char* b, Check check) {
  collected_.clear();
  const uint64_t before = report_->problems();
  check(primaryPlace, p);
  const bool passes = report_->problems() == before;
  const bool same = b == nullptr || std::memcmp(p, b, fields.recordSize) == 0;
  Place backupPlace = primaryPlace;
  bool twinPasses = passes;
  if (!same) {
    backupPlace.file = backup->def;
    const Difference d = difference(fields, b, p, primaryPlace.file->name);
    report_->difference(
        backupPlace, d.fields,
        std::string("differs from ") + primaryPlace.file->name + ": " + d.values);
    const uint64_t found = report_->problems();
    check(backupPlace, b);
    twinPasses = report_->problems() == found;
  }
  if (follower_ == nullptr || (passes && same)) return Kept::kAsRead;
  Finding f = finding(FindingKind::kRecordPair, primaryPlace, primary, p);
  f.fields = &fields;
  f.passes = passes;
  if (backup != nullptr) {
    f.twinFile = backup->def;
    f.twinOffset = offsetOf(*backup, backupPlace);
    f.twinBytes = b;
    f.twinPasses = twinPasses;
  }
  f.differs = !same;
  const Kept kept = follower_->follow(f);
  if (!same && kept == Kept::kAsRead) ++unequal_;
  return kept;
}

void CardCheck::checkCount(const Place& where, const Side& side,
                           const tr_DataFileHead& head, const Side* twin) {
  collected_.clear();
  const uint64_t before = report_->problems();
  checkValidSegments(where, head, side.inUse, report_);
  if (follower_ == nullptr || report_->problems() == before) return;
  Finding f = finding(FindingKind::kValidSegments, where, side, &head);
  f.fields = &kDataFileHeadFields;
  f.count = side.inUse;
  if (twin != nullptr) {
    Place twinPlace = where;
    twinPlace.file = twin->def;
    f.twinFile = twin->def;
    f.twinOffset = offsetOf(*twin, twinPlace);
    f.twinBytes = f.bytes;
  }
  follower_->follow(f);
}

int CardCheck::walkDataFiles(Side* primary, Side* backup) {
  const uint32_t kind = primary->def->kind;
  const uint64_t infoSize = segmentInfoSize(kind);
  const uint64_t length = dataFileAreaEnd(kind, primary->head.maxFileNum,
                                          primary->head.maxSegmentNum) -
                          kIndexFileHeadSize;
  for (Side* side : {primary, backup}) {
    if (side != nullptr) {
      side->reader->start(card_->fd(), side->base + kIndexFileHeadSize, length);
    }
  }
  auto checkHead = [this](const Place& where, const unsigned char* bytes) {
    checkDataFileHead(where, copyOut<tr_DataFileHead>(bytes), report_);
  };
  auto checkSegment = [this, kind](const Place& where,
                                   const unsigned char* bytes) {
    if (!segmentInUse(bytes)) return;
    if (kind == kRecordKind) {
      checkRecSegment(where, copyOut<tr_RecDataFileInfo>(bytes),
                      &counts_->sizes, report_);
    } else {
      checkJpgSegment(where, copyOut<tr_JPGDataFileInfo>(bytes),
                      &counts_->sizes, report_);
    }
  };
  const unsigned char* p = nullptr;
  const unsigned char* b = nullptr;
  for (uint32_t f = 1; f <= primary->head.maxFileNum; ++f) {
    if (!take(primary, backup, kDataFileHeadSize, &p, &b)) return -1;
    const Place head = {RecordKind::kDataFileHead, primary->def, f, 0};
    const Kept keptHead =
        checkRecord(kDataFileHeadFields, head, *primary, p, backup, b, checkHead);
    if (keptHead == Kept::kPrimary) b = p;
    if (keptHead == Kept::kTwin) p = b;
    tr_DataFileHead primaryHead = copyOut<tr_DataFileHead>(p);
    const tr_DataFileHead backupHead =
        b == nullptr ? primaryHead : copyOut<tr_DataFileHead>(b);
    if (followerStopped()) return -1;
    primary->inUse = 0;
    if (backup != nullptr) backup->inUse = 0;
    for (uint32_t s = 1; s <= primary->head.maxSegmentNum; ++s) {
      if (!take(primary, backup, infoSize, &p, &b)) return -1;
      const Place segment = {RecordKind::kSegmentInfo, primary->def, f, s};
      const Kept kept = checkRecord(
          kind == kRecordKind ? kRecSegmentFields : kJpgSegmentFields, segment,
          *primary, p, backup, b, checkSegment);
      if (kept == Kept::kPrimary) b = p;
      if (kept == Kept::kTwin) p = b;
      if (followerStopped()) return -1;
      primary->inUse += segmentInUse(p);
      if (b != nullptr) backup->inUse += segmentInUse(b);
    }
    const bool twinSame =
        backup != nullptr &&
        std::memcmp(&primaryHead, &backupHead, sizeof backupHead) == 0 &&
        backup->inUse == primary->inUse;
    checkCount(head, *primary, primaryHead, twinSame ? backup : nullptr);
    if (backup != nullptr && !twinSame) {
      Place backupPlace = head;
      backupPlace.file = backup->def;
      checkCount(backupPlace, *backup, backupHead, nullptr);
    }
    if (followerStopped()) return -1;
    report_->progress(readers_[0].bytesRead() + readers_[1].bytesRead());
  }
  return 0;
}

int CardCheck::walkAuxiliaries(Side* primary, Side* backup) {
  const uint64_t idxFileSize = card_->layout().idxFileSize;
  for (Side* side : {primary, backup}) {
    side->reader->start(card_->fd(), auxRegionStart(side->base, idxFileSize),
                        kAuxRegionSize);
  }
  auto checkHead = [this](const Place& where, const unsigned char* bytes) {
    checkAuxHead(where, copyOut<IndexFileAuxiliaryHead>(bytes), report_);
  };
  auto checkContext = [this, primary, backup](const Place& where,
                                              const unsigned char* bytes) {
    const Side* side = where.file == primary->def ? primary : backup;
    checkAuxContext(where, copyOut<IndexFileAuxiliaryContext>(bytes),
                    side->head, report_);
  };
  const unsigned char* p = nullptr;
  const unsigned char* b = nullptr;
  for (uint32_t a = 1; a <= kAuxiliaryCount; ++a) {
    if (!take(primary, backup, kAuxHeadSize, &p, &b)) return -1;
    checkRecord(kAuxHeadFields, {RecordKind::kAuxHead, primary->def, a, 0},
                *primary, p, backup, b, checkHead);
    for (uint32_t c = 1; c <= kContextsPerAuxiliary; ++c) {
      if (followerStopped()) return -1;
      if (!take(primary, backup, kAuxContextSize, &p, &b)) return -1;
      checkRecord(kAuxContextFields,
                  {RecordKind::kAuxContext, primary->def, a, c}, *primary, p,
                  backup, b, checkContext);
    }
  }
  report_->progress(readers_[0].bytesRead() + readers_[1].bytesRead());
  return followerStopped() ? -1 : 0;
}

// The headers of the two index files of a kind: each one's abnormal mark,
// kept for the end of the kind, then the rest, which should be the same.
void CardCheck::checkHeaders(Side* primary, Side* backup) {
  const uint64_t idxFileSize = card_->layout().idxFileSize;
  const Place primaryPlace = {RecordKind::kIndexFileHead, primary->def, 0, 0};
  const Place backupPlace = {RecordKind::kIndexFileHead, backup->def, 0, 0};
  for (Side* side : {primary, backup}) {
    collected_.clear();
    checkIndexFileMark(side == primary ? primaryPlace : backupPlace,
                       side->head, report_);
    side->mark = collected_;
  }
  auto check = [this, idxFileSize](const Place& where,
                                   const unsigned char* bytes) {
    checkIndexFileHead(where, copyOut<tr_IndexFileHead>(bytes), idxFileSize,
                       report_);
  };
  // Compared with the primary's mark in place of the backup's own.
  tr_IndexFileHead unmarked = backup->head;
  std::memcpy(unmarked.magicWord, primary->head.magicWord,
              sizeof unmarked.magicWord);
  unmarked.exceptionFlag = primary->head.exceptionFlag;
  unsigned char bytes[2][sizeof(tr_IndexFileHead)];
  std::memcpy(bytes[0], &primary->head, sizeof bytes[0]);
  std::memcpy(bytes[1], &unmarked, sizeof bytes[1]);
  const Kept kept = checkRecord(kIndexFileHeadFields, primaryPlace, *primary,
                                bytes[0], backup, bytes[1], check);
  // The fixed header keeps its own mark.
  const Side* from = kept == Kept::kPrimary ? primary : backup;
  Side* to = kept == Kept::kPrimary ? backup : primary;
  if (kept != Kept::kAsRead) {
    tr_IndexFileHead head = from->head;
    std::memcpy(head.magicWord, to->head.magicWord, sizeof head.magicWord);
    head.exceptionFlag = to->head.exceptionFlag;
    to->head = head;
    to->areaFits = from->areaFits;
  }
}

// The two index files of one kind: their headers, their data-file areas
// side by side when both can be read with the same dimensions (else each on
// its own), then their auxiliary regions side by side, and at the end the
// abnormal marks, once it is known whether the two hold the same records.
int CardCheck::checkKind(Side* primary, Side* backup) {
  unequal_ = 0;
  checkHeaders(primary, backup);
  if (followerStopped()) return -1;
  const bool sameShape =
      primary->head.maxFileNum == backup->head.maxFileNum &&
      primary->head.maxSegmentNum == backup->head.maxSegmentNum;
  if (primary->areaFits && backup->areaFits && sameShape) {
    if (walkDataFiles(primary, backup) == -1) return -1;
  } else {
    unequal_ = kNotCompared;
    for (Side* side : {primary, backup}) {
      if (side->areaFits && walkDataFiles(side, nullptr) == -1) return -1;
    }
  }
  if (walkAuxiliaries(primary, backup) == -1) return -1;
  if (follower_ == nullptr) return 0;
  for (Side* side : {primary, backup}) {
    if (side->mark.empty()) continue;
    const Side& twin = side == primary ? *backup : *primary;
    const Place where = {RecordKind::kIndexFileHead, side->def, 0, 0};
    collected_ = side->mark;
    Finding f = finding(FindingKind::kIndexFileMark, where, *side, &side->head);
    f.fields = &kIndexFileHeadFields;
    f.unequal = unequal_;
    f.twinNormal = markedNormal(twin.head);
    follower_->follow(f);
    if (followerStopped()) return -1;
  }
  return 0;
}

int CardCheck::run() {
  tr_TrellisHead found;
  if (card_->read(kTrellisHeadOffset, &found, sizeof found) == -1) return -1;
  collected_.clear();
  checkStorageHead(found, *card_, report_);
  if (follower_ != nullptr && !collected_.empty()) {
    Finding f;
    f.kind = FindingKind::kStorageHead;
    f.fields = &kTrellisHeadFields;
    f.place = {RecordKind::kStorageHead, nullptr, 0, 0};
    f.offset = kTrellisHeadOffset;
    f.bytes = reinterpret_cast<const unsigned char*>(&found);
    f.problems = collected_;
    follower_->follow(f);
    if (followerStopped()) return -1;
  }
  const tr_TrellisHead& layout = card_->layout();
  if (!card_->indexFilesHoldTheirRegions()) {
    collected_.clear();
    report_->problem(
        {RecordKind::kDevice, nullptr, 0, 0}, "idxFileSize",
        formatString("%" PRIu64 " (for a device of %" PRIu64
                     " bytes) cannot hold an index file's header and "
                     "auxiliary region (%" PRIu64
                     " bytes; index files not read)",
                     layout.idxFileSize, card_->capacity(),
                     kIndexFileHeadSize + kAuxRegionSize));
    if (follower_ != nullptr) {
      Finding f;
      f.kind = FindingKind::kUnfixable;
      f.problems = collected_;
      follower_->follow(f);
    }
    return 0;
  }
  if (!readers_[0].valid() || !readers_[1].valid()) {
    errTimestamped("the check's read buffers could not be allocated");
    return -1;
  }
  Side sides[4];
  uint64_t total = 0;
  for (int i = 0; i < 4; ++i) {
    Side& side = sides[i];
    side.def = &kIndexFiles[i];
    side.base = card_->base(*side.def);
    side.reader = &readers_[i % 2];
    side.inUse = 0;
    if (card_->read(side.base, &side.head, sizeof side.head) == -1) return -1;
    side.areaFits =
        dataFileAreaFits(side.head, side.def->kind, layout.idxFileSize);
    if (side.areaFits) {
      total += dataFileAreaEnd(side.def->kind, side.head.maxFileNum,
                               side.head.maxSegmentNum);
    }
    total += kAuxRegionSize;
  }
  report_->setTotal(total);
  if (checkKind(&sides[0], &sides[1]) == -1) return -1;
  return checkKind(&sides[2], &sides[3]);
}

}  // namespace

int walkCard(CardSession* card, Report* report, CheckFollower* follower,
             WalkCounts* counts) {
  CardCheck check(card, report, follower, counts);
  return check.run();
}

void printCheckSummary(const WalkCounts& counts, Report* report) {
  const uint64_t problems = report->problems();
  const std::string found =
      problems == 0 ? "no problem" : counted(problems, "problem");
  const DataFileSizes& sizes = counts.sizes;
  JsonObject object;
  object.add("type", "summary")
      .add("problems", problems)
      .add("records", counts.records)
      .add("dataFilesFound", uint64_t{sizes.found()})
      .add("dataFilesMissing", uint64_t{sizes.missing()});
  report->emit(formatString("summary: %s; %" PRIu64 " records read; extents "
                            "checked against %s of the media directory, %u "
                            "not found there",
                            found.c_str(), counts.records,
                            counted(sizes.found(), "data file").c_str(),
                            sizes.missing()),
               object);
}

int runCheck(const CheckSettings& settings) {
  CardSession card;
  if (card.open() == -1) return kCardUnreadable;
  Report report(settings.json, "checking", settings.commandFor);
  WalkCounts counts;
  if (walkCard(&card, &report, nullptr, &counts) == -1 || card.close() == -1) {
    return kCardUnreadable;
  }
  printCheckSummary(counts, &report);
  return report.problems() == 0 ? kCardClean : kCardProblems;
}

}  // namespace tr
