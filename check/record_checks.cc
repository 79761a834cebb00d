#include "check/record_checks.h"

#include <cinttypes>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "format/iframe_index.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// The stored magic word against `expected`, compared over all `size`
// bytes: the text and the NUL after it where the field has room for one.
void checkMagic(const Place& where, const char* stored, size_t size,
                const char* expected, Report* report) {
  char want[8] = {};
  std::memcpy(want, expected, std::strlen(expected));
  if (std::memcmp(stored, want, size) == 0) return;
  report->problem(where, "magicWord",
                  escapedText(stored, size, kQuotedText) + " (expected \"" + expected + "\")");
}

void checkFlag(const Place& where, const char* name, uint64_t value,
               Report* report) {
  if (value > 1) {
    report->problem(where, name,
                    formatString("%" PRIu64 " (expected 0 or 1)", value));
  }
}

void checkOrder(const Place& where, const char* startName, int64_t start,
                const char* endName, int64_t end, Report* report) {
  if (start <= end) return;
  report->problem(where, startName,
                  utcText(start) + " after " + endName + " " + utcText(end));
}

// `offset` + `length` inside the record or picture data file of `where`.
void checkExtent(const Place& where, const char* offsetName, uint64_t offset,
                 const char* lengthName, uint64_t length, DataFileSizes* sizes,
                 Report* report) {
  uint64_t end = 0;
  const bool wraps = __builtin_add_overflow(offset, length, &end);
  uint64_t size = 0;
  if (!wraps &&
      !(sizes->size(where.file->kind, where.first, &size) && end > size)) {
    return;
  }
  std::string what = formatString("%s + %s %" PRIu64 " end",
                                  hexText(offset).c_str(), lengthName, length);
  if (wraps) {
    what += " past 2^64 bytes";
  } else {
    what += formatString(
        " at byte %" PRIu64 ", past the end of %s (%" PRIu64 " bytes)", end,
        DataFileSizes::name(where.file->kind, where.first).c_str(), size);
  }
  report->problem(where, offsetName, what);
}

}  // namespace

void checkStorageHead(const tr_TrellisHead& found, const CardSession& card,
                      Report* report) {
  const Place where = {RecordKind::kStorageHead, nullptr, 0, 0};
  checkMagic(where, found.magicWord, sizeof found.magicWord, kTrellisMagic,
             report);
  const tr_TrellisHead& want = card.layout();
  const struct {
    const char* name;
    uint64_t found;
    uint64_t expected;
  } fields[] = {
      {"idxFileOffsetAV", found.idxFileOffsetAV, want.idxFileOffsetAV},
      {"idxFileBackupOffsetAV", found.idxFileBackupOffsetAV,
       want.idxFileBackupOffsetAV},
      {"idxFileOffsetPic", found.idxFileOffsetPic, want.idxFileOffsetPic},
      {"idxFileBackupOffsetPic", found.idxFileBackupOffsetPic,
       want.idxFileBackupOffsetPic},
      {"idxFileSize", found.idxFileSize, want.idxFileSize},
  };
  for (const auto& field : fields) {
    if (field.found == field.expected) continue;
    report->problem(where, field.name,
                    formatString("%" PRIu64 " (expected %" PRIu64
                                 " for a device of %" PRIu64 " bytes)",
                                 field.found, field.expected, card.capacity()));
  }
}

void checkIndexFileMark(const Place& where, const tr_IndexFileHead& head,
                        Report* report) {
  checkMagic(where, head.magicWord, sizeof head.magicWord, kIndexFileMagic,
             report);
  if (head.exceptionFlag != 0) {
    report->problem(where, "exceptionFlag",
                    formatString("%u: marked abnormal", head.exceptionFlag));
  }
}

void checkIndexFileHead(const Place& where, const tr_IndexFileHead& head,
                        uint64_t idxFileSize, Report* report) {
  const uint32_t kind = where.file->kind;
  if (head.fileType != kind) {
    report->problem(
        where, "fileType",
        formatString("%u (expected %u in a %s index file)", head.fileType, kind,
                     kind == kRecordKind ? "record" : "picture"));
  }
  if (!dataFileAreaFits(head, kind, idxFileSize)) {
    const uint64_t end =
        dataFileAreaEnd(kind, head.maxFileNum, head.maxSegmentNum);
    report->problem(
        where, "maxFileNum",
        formatString("%u x maxSegmentNum %u: the data files end %s byte "
                     "%" PRIu64 ", past the auxiliary region at byte %" PRIu64
                     " (data files not read)",
                     head.maxFileNum, head.maxSegmentNum,
                     end == UINT64_MAX ? "beyond" : "at", end,
                     auxRegionStart(0, idxFileSize)));
  }
  if (head.maxAuxNumber == 0 || head.maxAuxNumber > kAuxiliaryCount) {
    report->problem(where, "maxAuxNumber",
                    formatString("%u (expected 1 to %u)", head.maxAuxNumber,
                                 kAuxiliaryCount));
  } else if (head.auxNum == 0 || head.auxNum > head.maxAuxNumber) {
    report->problem(where, "auxNum",
                    formatString("%u (expected 1 to maxAuxNumber %u)",
                                 head.auxNum, head.maxAuxNumber));
  }
  for (uint32_t c = 0; c < 32; ++c) {
    if (head.writeFileIndex[c] <= head.maxFileNum) continue;
    report->problem(
        where, formatString("writeFileIndex[%u]", c),
        formatString("%u: channel %u writes past maxFileNum %u",
                     head.writeFileIndex[c], c + 1, head.maxFileNum));
  }
}

void checkDataFileHead(const Place& where, const tr_DataFileHead& head,
                       Report* report) {
  checkMagic(where, head.magicWord, sizeof head.magicWord, kDataFileMagic,
             report);
  if (head.validity == 0) {
    report->problem(where, "validity", "0: marked invalid");
  } else if (head.validity > 2) {
    report->problem(where, "validity",
                    formatString("%u (expected 0 to 2)", head.validity));
  }
  checkFlag(where, "inUse", head.inUse, report);
  if (head.inUse != 0 && head.fileNum != where.first) {
    report->problem(
        where, "fileNum",
        formatString("%u (expected %u)", head.fileNum, where.first));
  }
}

void checkValidSegments(const Place& where, const tr_DataFileHead& head,
                        uint32_t inUse, Report* report) {
  if (head.validSegments == inUse) return;
  report->problem(
      where, "validSegments",
      formatString("%u (%u segment infos in use)", head.validSegments, inUse));
}

void checkRecSegment(const Place& where, const tr_RecDataFileInfo& info,
                     DataFileSizes* sizes, Report* report) {
  checkFlag(where, "inUse", info.inUse, report);
  checkMagic(where, info.magicWord, sizeof info.magicWord, kSegmentInfoMagic,
             report);
  if (timeGroupValid(info.effinfoMask)) {
    checkOrder(where, "timeInfo.startTime", info.timeInfo.startTime,
               "timeInfo.endTime", info.timeInfo.endTime, report);
  }
  if (info.infoEx.isIncomplete != 0) {
    report->problem(where, "infoEx.isIncomplete",
                    formatString("%u: cut short", info.infoEx.isIncomplete));
  }
  checkExtent(where, "dataOffset", info.dataOffset, "datalen", info.datalen,
              sizes, report);
  if (info.iFrameInfoSize % sizeof(tr_IFrameIndex) != 0) {
    report->problem(where, "iFrameInfoSize",
                    formatString("%" PRIu64 " is not a whole number of "
                                 "32-byte entries",
                                 info.iFrameInfoSize));
  }
  checkExtent(where, "iFrameInfoOffset", info.iFrameInfoOffset,
              "iFrameInfoSize", info.iFrameInfoSize, sizes, report);
}

void checkJpgSegment(const Place& where, const tr_JPGDataFileInfo& info,
                     DataFileSizes* sizes, Report* report) {
  checkFlag(where, "inUse", info.inUse, report);
  checkMagic(where, info.magicWord, sizeof info.magicWord, kSegmentInfoMagic,
             report);
  if (info.validNum > kMaxImageDetails) {
    report->problem(
        where, "validNum",
        formatString("%u (at most %d)", info.validNum, kMaxImageDetails));
  }
  const int pictures = pictureCount(info);
  const uint64_t total = pictureStart(info, pictures);
  if (total > info.fragmentSize) {
    report->problem(where, "fragmentSize",
                    formatString("%" PRIu64 ": the jpgSize of its %d pictures "
                                 "add up to %" PRIu64 " bytes",
                                 info.fragmentSize, pictures, total));
  }
  checkExtent(where, "fragmentOffset", info.fragmentOffset, "fragmentSize",
              info.fragmentSize, sizes, report);
  const int64_t first = info.imageDetails[0].utcTime;
  const int64_t last =
      info.imageDetails[pictures > 0 ? pictures - 1 : 0].utcTime;
  if (timeGroupValid(info.effinfoMask) && first > last) {
    checkOrder(where, "imageDetails[0].utcTime", first,
               formatString("imageDetails[%d].utcTime", pictures - 1).c_str(),
               last, report);
  }
}

void checkAuxHead(const Place& where, const IndexFileAuxiliaryHead& head,
                  Report* report) {
  if (head.currentCount > kContextsPerAuxiliary) {
    report->problem(where, "currentCount",
                    formatString("%u (at most %u contexts)", head.currentCount,
                                 kContextsPerAuxiliary));
  }
}

void checkAuxContext(const Place& where, const IndexFileAuxiliaryContext& ctx,
                     const tr_IndexFileHead& head, Report* report) {
  if (ctx.isUsed != 0) {
    checkOrder(where, "startTime", ctx.startTime, "endTime", ctx.endTime,
               report);
  }
  int bad = 0;
  int first = 0;
  for (int i = 0; i < kPositionsPerContext; ++i) {
    const uint32_t entry = ctx.positionArray[i];
    if (entry == 0 || positionWithin(decodePosition(entry), head)) continue;
    if (bad++ == 0) first = i;
  }
  if (bad == 0) return;
  const uint32_t entry = ctx.positionArray[first];
  const SegmentPosition position = decodePosition(entry);
  std::string what = formatString(
      "0x%08x: file %u segment %u, outside maxFileNum %u and "
      "maxSegmentNum %u",
      entry, position.fileNum, position.segmentNum, head.maxFileNum,
      head.maxSegmentNum);
  if (bad > 1) what += formatString(" (%d such positions)", bad);
  report->problem(where, formatString("positionArray[%d]", first), what);
}

}  // namespace tr
