#include "check/check.h"

#include <cinttypes>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "base/region_reader.h"
#include "format/card.h"
#include "check/record_checks.h"
#include "check/record_fields.h"
#include "check/report.h"
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
};

template <typename Record>
Record copyOut(const unsigned char* bytes) {
  Record record;
  std::memcpy(&record, bytes, sizeof record);
  return record;
}

class CardCheck {
 public:
  CardCheck(CardSession* card, Report* report) : card_(card), report_(report) {}

  // 0, or -1 when a read failed (reported; the device is closed then).
  int run();
  uint64_t records() const { return records_; }
  const DataFileSizes& sizes() const { return sizes_; }

 private:
  int checkKind(Side* primary, Side* backup);
  int walkDataFiles(Side* primary, Side* backup);
  int walkAuxiliaries(Side* primary, Side* backup);
  // The next record of each side; false after a failed read.
  bool take(Side* primary, Side* backup, size_t size, const unsigned char** p,
            const unsigned char** b);
  // Checks the primary's record and, when the backup's is not a copy of
  // it, names the fields that differ and checks the backup's on its own.
  template <typename Check>
  void checkRecord(const RecordFields& fields, const Place& primaryPlace,
                   const unsigned char* p, Side* backup, const unsigned char* b,
                   Check check);

  CardSession* card_;
  Report* report_;
  DataFileSizes sizes_;
  RegionReader readers_[2];
  uint64_t records_ = 0;
};

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
  records_ += backup == nullptr ? 1 : 2;
  return true;
}

template <typename Check>
void CardCheck::checkRecord(const RecordFields& fields,
                            const Place& primaryPlace, const unsigned char* p,
                            Side* backup, const unsigned char* b, Check check) {
  check(primaryPlace, p);
  if (b == nullptr || std::memcmp(p, b, fields.recordSize) == 0) return;
  Place backupPlace = primaryPlace;
  backupPlace.file = backup->def;
  const Difference d = difference(fields, b, p, primaryPlace.file->name);
  report_->difference(
      backupPlace, d.fields,
      std::string("differs from ") + primaryPlace.file->name + ": " + d.values);
  check(backupPlace, b);
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
      checkRecSegment(where, copyOut<tr_RecDataFileInfo>(bytes), &sizes_,
                      report_);
    } else {
      checkJpgSegment(where, copyOut<tr_JPGDataFileInfo>(bytes), &sizes_,
                      report_);
    }
  };
  const unsigned char* p = nullptr;
  const unsigned char* b = nullptr;
  for (uint32_t f = 1; f <= primary->head.maxFileNum; ++f) {
    if (!take(primary, backup, kDataFileHeadSize, &p, &b)) return -1;
    const Place head = {RecordKind::kDataFileHead, primary->def, f, 0};
    const tr_DataFileHead primaryHead = copyOut<tr_DataFileHead>(p);
    const tr_DataFileHead backupHead =
        b == nullptr ? primaryHead : copyOut<tr_DataFileHead>(b);
    checkRecord(kDataFileHeadFields, head, p, backup, b, checkHead);
    primary->inUse = 0;
    if (backup != nullptr) backup->inUse = 0;
    for (uint32_t s = 1; s <= primary->head.maxSegmentNum; ++s) {
      if (!take(primary, backup, infoSize, &p, &b)) return -1;
      const Place segment = {RecordKind::kSegmentInfo, primary->def, f, s};
      checkRecord(kind == kRecordKind ? kRecSegmentFields : kJpgSegmentFields,
                  segment, p, backup, b, checkSegment);
      primary->inUse += segmentInUse(p);
      if (b != nullptr) backup->inUse += segmentInUse(b);
    }
    checkValidSegments(head, primaryHead, primary->inUse, report_);
    if (backup != nullptr &&
        (std::memcmp(&primaryHead, &backupHead, sizeof backupHead) != 0 ||
         backup->inUse != primary->inUse)) {
      Place backupPlace = head;
      backupPlace.file = backup->def;
      checkValidSegments(backupPlace, backupHead, backup->inUse, report_);
    }
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
    checkRecord(kAuxHeadFields, {RecordKind::kAuxHead, primary->def, a, 0}, p,
                backup, b, checkHead);
    for (uint32_t c = 1; c <= kContextsPerAuxiliary; ++c) {
      if (!take(primary, backup, kAuxContextSize, &p, &b)) return -1;
      checkRecord(kAuxContextFields, {RecordKind::kAuxContext, primary->def, a, c},
                  p, backup, b, checkContext);
    }
  }
  report_->progress(readers_[0].bytesRead() + readers_[1].bytesRead());
  return 0;
}

// The two index files of one kind: their headers, their data-file areas
// side by side when both can be read with the same dimensions (else each on
// its own), then their auxiliary regions side by side.
int CardCheck::checkKind(Side* primary, Side* backup) {
  const uint64_t idxFileSize = card_->layout().idxFileSize;
  const Place primaryPlace = {RecordKind::kIndexFileHead, primary->def, 0, 0};
  const Place backupPlace = {RecordKind::kIndexFileHead, backup->def, 0, 0};
  checkIndexFileMark(primaryPlace, primary->head, report_);
  checkIndexFileMark(backupPlace, backup->head, report_);
  checkIndexFileHead(primaryPlace, primary->head, idxFileSize, report_);
  // The abnormal mark is each file's own; the rest should be the same.
  tr_IndexFileHead unmarked = backup->head;
  std::memcpy(unmarked.magicWord, primary->head.magicWord,
              sizeof unmarked.magicWord);
  unmarked.exceptionFlag = primary->head.exceptionFlag;
  unsigned char bytes[2][sizeof(tr_IndexFileHead)];
  std::memcpy(bytes[0], &primary->head, sizeof bytes[0]);
  std::memcpy(bytes[1], &unmarked, sizeof bytes[1]);
  if (std::memcmp(bytes[0], bytes[1], sizeof bytes[0]) != 0) {
    const Difference d = difference(kIndexFileHeadFields, bytes[1], bytes[0],
                                    primary->def->name);
    report_->difference(
        backupPlace, d.fields,
        std::string("differs from ") + primary->def->name + ": " + d.values);
    checkIndexFileHead(backupPlace, backup->head, idxFileSize, report_);
  }

  const bool sameShape =
      primary->head.maxFileNum == backup->head.maxFileNum &&
      primary->head.maxSegmentNum == backup->head.maxSegmentNum;
  if (primary->areaFits && backup->areaFits && sameShape) {
    if (walkDataFiles(primary, backup) == -1) return -1;
  } else {
    for (Side* side : {primary, backup}) {
      if (side->areaFits && walkDataFiles(side, nullptr) == -1) return -1;
    }
  }
  return walkAuxiliaries(primary, backup);
}

int CardCheck::run() {
  tr_TrellisHead found;
  if (card_->read(kTrellisHeadOffset, &found, sizeof found) == -1) return -1;
  checkStorageHead(found, *card_, report_);
  const tr_TrellisHead& layout = card_->layout();
  if (!card_->indexFilesHoldTheirRegions()) {
    report_->problem(
        {RecordKind::kDevice, nullptr, 0, 0}, "idxFileSize",
        formatString("%" PRIu64 " (for a device of %" PRIu64
                     " bytes) cannot hold an index file's header and "
                     "auxiliary region (%" PRIu64
                     " bytes; index files not read)",
                     layout.idxFileSize, card_->capacity(),
                     kIndexFileHeadSize + kAuxRegionSize));
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

void printSummary(const CardCheck& check, Report* report) {
  const uint64_t problems = report->problems();
  const std::string found =
      problems == 0 ? "no problem" : counted(problems, "problem");
  const DataFileSizes& sizes = check.sizes();
  JsonObject object;
  object.add("type", "summary")
      .add("problems", problems)
      .add("records", check.records())
      .add("dataFilesFound", uint64_t{sizes.found()})
      .add("dataFilesMissing", uint64_t{sizes.missing()});
  report->emit(formatString("summary: %s; %" PRIu64 " records read; extents "
                            "checked against %s of the media directory, %u "
                            "not found there",
                            found.c_str(), check.records(),
                            counted(sizes.found(), "data file").c_str(),
                            sizes.missing()),
               object);
}

}  // namespace

int runCheck(const CheckSettings& settings) {
  CardSession card;
  if (card.open() == -1) return kCardUnreadable;
  Report report(settings.json, "checking", settings.commandFor);
  CardCheck check(&card, &report);
  if (check.run() == -1 || card.close() == -1) return kCardUnreadable;
  printSummary(check, &report);
  return report.problems() == 0 ? kCardClean : kCardProblems;
}

}  // namespace tr
