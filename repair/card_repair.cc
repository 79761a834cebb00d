#include "repair/card_repair.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "check/follow.h"
#include "check/record_fields.h"
#include "check/report.h"
#include "format/card.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/trellis_head.h"
#include "repair/journal.h"
#include "repair/record_writer.h"

namespace tr {
namespace {

// One fix as it is offered: what it does, whether it is safe, and the
// records it writes whole.
struct Fix {
  struct Write {
    uint64_t offset;
    std::string after;
  };
  std::string what;
  std::string changes;  // "field old -> new, ..."
  bool safe = true;
  std::string unsafe;  // why not, when it is not
  Write writes[2];
  int count = 0;
  Kept kept = Kept::kAsRead;
};

std::string bytesOf(const void* bytes, size_t size) {
  return std::string(static_cast<const char*>(bytes), size);
}

// Why damage found the same in both copies cannot be undone.
std::string damageReason(const std::vector<ReportedProblem>& problems) {
  for (const ReportedProblem& p : problems) {
    if (p.field == "infoEx.isIncomplete") {
      return "a segment cut short: the recorder stopped writing it before "
             "its end, and no copy holds more";
    }
    if (p.field == "validity") {
      return "a data file the recorder marked invalid: no copy says what it "
             "held";
    }
    if (p.field == "currentCount") {
      return "a context count past its bound: no copy says how many "
             "contexts are in use";
    }
  }
  return "the same damage is in both copies";
}

class Mender : public CheckFollower {
 public:
  Mender(const RepairSettings& settings, CardSession* card, Report* report,
         RecordWriter* writer)
      : mode_(settings.mode), card_(card), report_(report), writer_(writer) {}

  Kept follow(const Finding& finding) override {
    Fix fix;
    const std::string reason = plan(finding, &fix);
    if (stopped_) return Kept::kAsRead;
    if (!reason.empty()) {
      ++notFixable_;
      report_->emitText("  not fixable: " + reason);
      return Kept::kAsRead;
    }
    std::string why;
    if (!approve(fix, &why)) {
      ++declined_;
      report_->emitText("  declined: " + fix.what + " (" + why + ")");
      // -n says what the others would do, and goes on as they would.
      return mode_ == RepairMode::kNothing ? fix.kept : Kept::kAsRead;
    }
    for (int i = 0; i < fix.count; ++i) {
      if (writer_->write(fix.writes[i].offset, fix.writes[i].after) == -1) {
        stopped_ = true;
        return Kept::kAsRead;
      }
    }
    ++fixed_;
    report_->emitText("  fixed: " + fix.what + ": " + fix.changes);
    return fix.kept;
  }
  // A failed write, or Ctrl-C or SIGTERM, stops the walk.
  bool stopped() const override {
    return stopped_ || InterruptScope::caught() != 0;
  }
  bool writeFailed() const { return stopped_; }

  uint64_t fixed() const { return fixed_; }
  uint64_t notFixable() const { return notFixable_; }
  uint64_t declined() const { return declined_; }

 private:
  // The fix for `finding` in `*fix`, or why there is none.
  std::string plan(const Finding& finding, Fix* fix);
  std::string planPair(const Finding& finding, Fix* fix);
  std::string planMark(const Finding& finding, Fix* fix);
  std::string planStorageHead(const Finding& finding, Fix* fix);
  std::string planCount(const Finding& finding, Fix* fix);
  // Whether the fix is made; `*why` says why not.
  bool approve(const Fix& fix, std::string* why);
  bool readCard(uint64_t offset, void* dest, size_t size) {
    if (card_->read(offset, dest, size) == 0) return true;
    stopped_ = true;
    return false;
  }

  RepairMode mode_;
  CardSession* card_;
  Report* report_;
  RecordWriter* writer_;  // null under -n
  bool stopped_ = false;
  bool answersEnded_ = false;
  uint64_t fixed_ = 0;
  uint64_t notFixable_ = 0;
  uint64_t declined_ = 0;
};

std::string Mender::plan(const Finding& finding, Fix* fix) {
  switch (finding.kind) {
    case FindingKind::kRecordPair:
      return planPair(finding, fix);
    case FindingKind::kIndexFileMark:
      return planMark(finding, fix);
    case FindingKind::kStorageHead:
      return planStorageHead(finding, fix);
    case FindingKind::kValidSegments:
      return planCount(finding, fix);
    case FindingKind::kUnfixable:
      break;
  }
  return "the device is too small for index files that hold their records";
}

std::string Mender::planPair(const Finding& finding, Fix* fix) {
  const RecordFields& fields = *finding.fields;
  if (finding.twinBytes == nullptr) {
    return std::string("its copy in ") + twinOf(*finding.place.file).name +
           " was not read beside it (the two headers give different "
           "dimensions)";
  }
  if (!finding.differs) return damageReason(finding.problems);
  if (!finding.passes && !finding.twinPasses) {
    return "both copies fail their checks; " + damageReason(finding.problems);
  }
  // The copy that passes is written over the one that does not; when both
  // pass, nothing shows which is right, and the primary is offered.
  const bool fromTwin = !finding.passes;
  fix->safe = finding.passes != finding.twinPasses;
  fix->unsafe = "both copies pass every check";
  RecordPlace target = finding.place;
  if (!fromTwin) target.file = finding.twinFile;
  const uint64_t offset = fromTwin ? finding.offset : finding.twinOffset;
  std::string before = fromTwin ? bytesOf(finding.bytes, fields.recordSize)
                                : bytesOf(finding.twinBytes, fields.recordSize);
  std::string after = fromTwin ? bytesOf(finding.twinBytes, fields.recordSize)
                               : bytesOf(finding.bytes, fields.recordSize);
  if (target.kind == RecordKind::kIndexFileHead) {
    // An index file header keeps its own abnormal mark: the mark has a fix
    // of its own, once the records are known to agree.
    tr_IndexFileHead own;
    tr_IndexFileHead head;
    if (!readCard(offset, &own, sizeof own)) return "";
    std::memcpy(&head, after.data(), sizeof head);
    std::memcpy(head.magicWord, own.magicWord, sizeof head.magicWord);
    head.exceptionFlag = own.exceptionFlag;
    before = bytesOf(&own, sizeof own);
    after = bytesOf(&head, sizeof head);
  }
  fix->what = target.text() + " written from " +
              (fromTwin ? finding.twinFile : finding.place.file)->name;
  fix->changes =
      changes(fields, reinterpret_cast<const unsigned char*>(before.data()),
              reinterpret_cast<const unsigned char*>(after.data()));
  fix->writes[fix->count++] = {offset, after};
  fix->kept = fromTwin ? Kept::kTwin : Kept::kPrimary;
  return "";
}

std::string Mender::planMark(const Finding& finding, Fix* fix) {
  if (finding.unequal == kNotCompared) {
    return "its records could not be compared with its twin's (the two "
           "headers give different dimensions)";
  }
  if (finding.unequal > 0) {
    return formatString("%" PRIu64 " of its records still differ from its "
                        "twin's",
                        finding.unequal);
  }
  if (!finding.twinNormal) {
    return "its twin is not marked normal either: nothing shows that the "
           "records they share are whole";
  }
  tr_IndexFileHead head;
  std::memcpy(&head, finding.bytes, sizeof head);
  std::memcpy(head.magicWord, kIndexFileMagic, sizeof head.magicWord);
  head.exceptionFlag = 0;
  fix->what = finding.place.text() + " marked normal";
  fix->changes =
      changes(kIndexFileHeadFields, finding.bytes,
              reinterpret_cast<const unsigned char*>(&head));
  fix->writes[fix->count++] = {finding.offset, bytesOf(&head, sizeof head)};
  return "";
}

std::string Mender::planStorageHead(const Finding& finding, Fix* fix) {
  struct stat st;
  if (fstat(card_->fd(), &st) == 0 && S_ISBLK(st.st_mode)) {
    const std::string disk = diskOfPartition(st.st_rdev);
    if (!disk.empty()) {
      return "the device is a partition of " + disk +
             "; the whole device was expected";
    }
  }
  if (!card_->indexFilesHoldTheirRegions()) {
    return "the device is smaller than any card";
  }
  // The layout of the device's size must be the card's: an index file of
  // each kind lies where it says.
  for (int i = 0; i < kIndexFileCount; i += 2) {
    bool found = false;
    for (int j = i; j < i + 2; ++j) {
      char magic[sizeof(tr_IndexFileHead::magicWord)];
      if (!readCard(card_->base(kIndexFiles[j]), magic, sizeof magic)) {
        return "";
      }
      found = found || std::memcmp(magic, kIndexFileMagic, sizeof magic) == 0;
    }
    if (!found) {
      return std::string("no ") + kIndexFiles[i].name +
             " lies where the device's size puts it; the card may be laid "
             "out for another size";
    }
  }
  tr_TrellisHead head;
  std::memcpy(&head, finding.bytes, sizeof head);
  const tr_TrellisHead& layout = card_->layout();
  std::memcpy(head.magicWord, layout.magicWord, sizeof head.magicWord);
  head.idxFileOffsetAV = layout.idxFileOffsetAV;
  head.idxFileBackupOffsetAV = layout.idxFileBackupOffsetAV;
  head.idxFileOffsetPic = layout.idxFileOffsetPic;
  head.idxFileBackupOffsetPic = layout.idxFileBackupOffsetPic;
  head.idxFileSize = layout.idxFileSize;
  fix->what = formatString("storage head written for a device of %" PRIu64
                           " bytes",
                           card_->capacity());
  fix->changes = changes(kTrellisHeadFields, finding.bytes,
                         reinterpret_cast<const unsigned char*>(&head));
  fix->writes[fix->count++] = {finding.offset, bytesOf(&head, sizeof head)};
  return "";
}

std::string Mender::planCount(const Finding& finding, Fix* fix) {
  tr_DataFileHead head;
  std::memcpy(&head, finding.bytes, sizeof head);
  head.validSegments = finding.count;
  const std::string after = bytesOf(&head, sizeof head);
  fix->what = finding.place.text() + " counts its segments in use";
  if (finding.twinBytes != nullptr) {
    fix->what += std::string(", as its copy in ") + finding.twinFile->name;
    fix->writes[fix->count++] = {finding.twinOffset, after};
  }
  fix->changes = changes(kDataFileHeadFields, finding.bytes,
                         reinterpret_cast<const unsigned char*>(&head));
  fix->writes[fix->count++] = {finding.offset, after};
  return "";
}

bool Mender::approve(const Fix& fix, std::string* why) {
  switch (mode_) {
    case RepairMode::kNothing:
      *why = "-n: nothing is written";
      return false;
    case RepairMode::kSafe:
      if (fix.safe) return true;
      *why = "not safe: " + fix.unsafe + "; -y or the prompt takes it";
      return false;
    case RepairMode::kAll:
      return true;
    case RepairMode::kAsk:
      break;
  }
  if (answersEnded_) {
    *why = "no answer: the input ended";
    return false;
  }
  report_->emitText("  fix: " + fix.what + ": " + fix.changes +
                    (fix.safe ? "" : " (not safe: " + fix.unsafe + ")"));
  out("Fix? [y/N] ");
  std::fflush(stdout);
  std::string answer;
  char c = 0;
  ssize_t got = 0;
  while ((got = ::read(STDIN_FILENO, &c, 1)) == 1 && c != '\n') answer += c;
  if (got != 1) {
    answersEnded_ = true;
    out("\n");
  }
  if (answer == "y" || answer == "Y" || answer == "yes") return true;
  *why = "answered no";
  return false;
}

}  // namespace

int runRepair(const RepairSettings& settings) {
  CardSession card;
  if (card.open() == -1) return kRepairFailed;
  const bool writing = settings.mode != RepairMode::kNothing;
  RecordWriter writer;
  if (writing && writer.open() == -1) return kRepairFailed;
  if (writing && !journalPath().empty()) {
    out("undo journal: %s\n", escapedText(journalPath(), kLineEscaped).c_str());
  }
  Report report(false, "repairing", settings.commandFor);
  const DeviceCommand command(settings.commandLine);
  const InterruptScope interrupts;
  Mender mender(settings, &card, &report, writing ? &writer : nullptr);
  WalkCounts counts;
  const bool walked = walkCard(&card, &report, &mender, &counts) == 0;
  // What the fixes gathered is written and made durable, whatever stopped
  // the walk; after a failed write nothing more is.
  const bool durable =
      !writing || (!mender.writeFailed() && writer.finish() == 0);
  if (InterruptScope::caught() != 0 && durable) {
    err("trellis-maintain: repair interrupted: the fixes shown as fixed are "
        "made; the check did not reach the end of the card\n");
    return InterruptScope::terminated() ? 143 : 130;
  }
  if (!walked || !durable) {
    if (writing && writer.writes() + mender.fixed() > 0) {
      const std::string journal = journalPath();
      err("trellis-maintain: the repair stopped: fixes shown since the last "
          "write that reached the card may not be on it; %s\n",
          journal.empty()
              ? "no undo journal was kept"
              : ("--restore " + escapedText(journal, kLineEscaped) +
                 " puts back every write made")
                    .c_str());
    }
    return kRepairFailed;
  }
  printCheckSummary(counts, &report);
  const uint64_t found = report.problems();
  uint64_t left = found;
  if (mender.fixed() > 0) {
    Report again(false, "checking again");
    again.silence();
    WalkCounts recount;
    if (walkCard(&card, &again, nullptr, &recount) == -1) return kRepairFailed;
    left = again.problems();
    report.emitText(formatString(
        "after the repair: %s; %" PRIu64 " records read",
        left == 0 ? "no problem" : counted(left, "problem").c_str(),
        recount.records));
  }
  if (card.close() == -1) return kRepairFailed;
  report.emitText(formatString("repair: %" PRIu64 " fixed, %" PRIu64
                               " not fixable, %" PRIu64 " declined",
                               mender.fixed(), mender.notFixable(),
                               mender.declined()));
  if (found == 0) return kRepairClean;
  if (left == 0) return kRepairAllFixed;
  return mender.fixed() > 0 ? kRepairSomeFixed : kRepairLeft;
}

}  // namespace tr
