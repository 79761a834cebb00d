// The 38 rows, in the order of the help text. Each step below adapts one
// record routine to the common step signature; the rows share them.
#include "maintain/commands.h"

#include "extract/picture_extract.h"
#include "extract/segment_extract.h"
#include "format/iframe_index.h"
#include "repair/aux_switch.h"
#include "repair/markers.h"

namespace tr {
namespace {

int readIndexFileHead(const CommandCall& c) {
  return _tr_maintainGetIndexFileHeader(c.base, &c.record->indexFileHead);
}
int printIndexFileHead(const CommandCall& c) {
  return _tr_maintainPrintIndexFileHeader(&c.record->indexFileHead);
}

// Storage head, data file heads and auxiliary heads.
int readTrellisHead(const CommandCall& c) {
  return _tr_maintainGetTrellisHead(&c.record->trellisHead);
}
int printTrellisHead(const CommandCall& c) {
  return _tr_maintainPrintTrellisHead(&c.record->trellisHead);
}
int readDataFileHead(const CommandCall& c) {
  return _tr_maintainGetDataFileHeader(c.kind, static_cast<uint32_t>(c.arg[0]),
                                       c.base, &c.record->dataFileHead);
}
int printDataFileHead(const CommandCall& c) {
  return _tr_maintainPrintDataFileHeader(&c.record->dataFileHead, c.arg[0]);
}
int readAuxHead(const CommandCall& c) {
  return _tr_maintainGetIndexAuxHeader(c.kind, static_cast<uint32_t>(c.arg[0]),
                                       c.base, &c.record->auxHead);
}
int printAuxHead(const CommandCall& c) {
  return _tr_maintainPrintIndexAuxHeader(&c.record->auxHead, c.arg[0]);
}

// Segment infos and auxiliary contexts.
int readSegmentInfo(const CommandCall& c) {
  return _tr_maintainGetDataFileInfo(c.kind, static_cast<uint32_t>(c.arg[0]),
                                     static_cast<uint32_t>(c.arg[1]), c.base,
                                     c.record->bytes);
}
int printRecSegmentInfo(const CommandCall& c) {
  return _tr_maintainPrintRecDataInfo(&c.record->recInfo, c.arg[0], c.arg[1]);
}
int printJpgSegmentInfo(const CommandCall& c) {
  return _tr_maintainPrintJpgDataInfo(&c.record->jpgInfo, c.arg[0], c.arg[1]);
}
int readAuxContext(const CommandCall& c) {
  return _tr_maintainGetIndexFileAux(c.kind, static_cast<uint32_t>(c.arg[0]),
                                     static_cast<uint32_t>(c.arg[1]), c.base,
                                     &c.record->auxContext);
}
int printAuxContext(const CommandCall& c) {
  return _tr_maintainPrintIndexAuxContext(&c.record->auxContext, c.arg[0],
                                          c.arg[1]);
}

// Media: the I-frame listing and the extractions, each after its segment
// info was read from the kind's primary index file.
int listIFrames(const CommandCall& c) {
  return _tr_maintainPrintIFrameIndex(&c.record->recInfo, c.arg[0], c.arg[1]);
}
int extractRecData(const CommandCall& c) {
  return _tr_maintainGetRecDataToFile(&c.record->recInfo, c.arg[0], c.arg[1]);
}
int extractJpgData(const CommandCall& c) {
  return _tr_maintainGetJpgDataToFile(&c.record->jpgInfo, c.arg[0], c.arg[1]);
}
int extractOnePicture(const CommandCall& c) {
  return _tr_maintainGetOneJpgToFile(&c.record->jpgInfo, c.arg[0], c.arg[1],
                                     static_cast<uint32_t>(c.arg[2]));
}

// The writing commands: markers, storage head reset, auxiliary switch.
int markException(const CommandCall& c) {
  return _tr_maintainIndexFileException(c.base);
}
int markNormal(const CommandCall& c) {
  return _tr_maintainIndexFileNormal(c.base);
}
int resetTrellisHead(const CommandCall&) {
  return _tr_maintainMemsetTrellisHead();
}
int changeAuxCtxNum(const CommandCall& c) {
  return _tr_maintainChangeAuxCtxNum(c.base, static_cast<uint32_t>(c.arg[0]),
                                     static_cast<uint32_t>(c.arg[1]));
}

using A = ArgList;

// The index file column: the prefix of the command word.
constexpr const IndexFileDef* kStorage = nullptr;
constexpr const IndexFileDef* kRec = &kIndexFiles[0];
constexpr const IndexFileDef* kRecBackUp = &kIndexFiles[1];
constexpr const IndexFileDef* kPic = &kIndexFiles[2];
constexpr const IndexFileDef* kPicBackUp = &kIndexFiles[3];

// The record column: what a row prints.
constexpr std::optional<RecordKind> kNoRecord = std::nullopt;
constexpr std::optional<RecordKind> kHead = RecordKind::kIndexFileHead;
constexpr std::optional<RecordKind> kFileHead = RecordKind::kDataFileHead;
constexpr std::optional<RecordKind> kAuxHead = RecordKind::kAuxHead;
constexpr std::optional<RecordKind> kSegment = RecordKind::kSegmentInfo;
constexpr std::optional<RecordKind> kContext = RecordKind::kAuxContext;
constexpr std::optional<RecordKind> kStorageHead = RecordKind::kStorageHead;

}  // namespace

extern constexpr CommandRow kCommands[kCommandCount] = {
    {"recIndexFileHead", A::kNone, kRec, sizeof(tr_IndexFileHead), readIndexFileHead,
     printIndexFileHead, "Print global file header(recordIndexFile)", kHead},
    {"recBackUpIndexFileHead", A::kNone, kRecBackUp, sizeof(tr_IndexFileHead),
     readIndexFileHead, printIndexFileHead,
     "Print global file header(backup recordIndexFile)", kHead},
    {"picIndexFileHead", A::kNone, kPic, sizeof(tr_IndexFileHead), readIndexFileHead,
     printIndexFileHead, "Print global file header(pictureIndexFile)", kHead},
    {"picBackUpIndexFileHead", A::kNone, kPicBackUp, sizeof(tr_IndexFileHead),
     readIndexFileHead, printIndexFileHead,
     "Print global file header(backup pictureIndexFile)", kHead},
    {"recDataFileHead", A::kFile, kRec, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(recordIndexFile)", kFileHead},
    {"recBackUpDataFileHead", A::kFile, kRecBackUp, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(backup recordIndexFile)", kFileHead},
    {"picDataFileHead", A::kFile, kPic, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(pictureIndexFile)", kFileHead},
    {"picBackUpDataFileHead", A::kFile, kPicBackUp, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(backup pictureIndexFile)", kFileHead},
    {"recIndexAuxHead", A::kAux, kRec, sizeof(IndexFileAuxiliaryHead), readAuxHead, printAuxHead,
     "Print auxiliary header(recordIndexFile)", kAuxHead},
    {"recBackUpIndexAuxHead", A::kAux, kRecBackUp, sizeof(IndexFileAuxiliaryHead), readAuxHead,
     printAuxHead,
     "Print auxiliary header(backup recordIndexFile)", kAuxHead},
    {"picIndexAuxHead", A::kAux, kPic, sizeof(IndexFileAuxiliaryHead), readAuxHead, printAuxHead,
     "Print auxiliary header(pictureIndexFile)", kAuxHead},
    {"picBackUpIndexAuxHead", A::kAux, kPicBackUp, sizeof(IndexFileAuxiliaryHead), readAuxHead,
     printAuxHead,
     "Print auxiliary header(backup pictureIndexFile)", kAuxHead},
    {"recDataFileInfo", A::kFileSegment, kRec, sizeof(tr_RecDataFileInfo), readSegmentInfo,
     printRecSegmentInfo, "Print data segment index(recordIndexFile)", kSegment},
    {"recBackUpDataFileInfo", A::kFileSegment, kRecBackUp, sizeof(tr_RecDataFileInfo),
     readSegmentInfo, printRecSegmentInfo,
     "Print data segment index(backup recordIndexFile)", kSegment},
    {"picDataFileInfo", A::kFileSegment, kPic, sizeof(tr_JPGDataFileInfo), readSegmentInfo,
     printJpgSegmentInfo, "Print data segment index(pictureIndexFile)", kSegment},
    {"picBackUpDataFileInfo", A::kFileSegment, kPicBackUp, sizeof(tr_JPGDataFileInfo),
     readSegmentInfo, printJpgSegmentInfo,
     "Print data segment index(backup pictureIndexFile)", kSegment},
    {"recIndexFileAux", A::kAuxContext, kRec, sizeof(IndexFileAuxiliaryContext), readAuxContext,
     printAuxContext, "Print auxiliary content(recordIndexFile)", kContext},
    {"recBackUpIndexFileAux", A::kAuxContext, kRecBackUp, sizeof(IndexFileAuxiliaryContext),
     readAuxContext, printAuxContext,
     "Print auxiliary content(backup recordIndexFile)", kContext},
    {"picIndexFileAux", A::kAuxContext, kPic, sizeof(IndexFileAuxiliaryContext), readAuxContext,
     printAuxContext, "Print auxiliary content(pictureIndexFile)", kContext},
    {"picBackUpIndexFileAux", A::kAuxContext, kPicBackUp, sizeof(IndexFileAuxiliaryContext),
     readAuxContext, printAuxContext,
     "Print auxiliary content(backup pictureIndexFile)", kContext},
    {"recChangeAuxCtxNum", A::kAuxContext, kRec, 0, nullptr, changeAuxCtxNum,
     "Change current auxiliary(recordIndexFile)", kNoRecord},
    {"recBackUpChangeAuxCtxNum", A::kAuxContext, kRecBackUp, 0, nullptr,
     changeAuxCtxNum, "Change current auxiliary(backup recordIndexFile)", kNoRecord},
    {"picChangeAuxCtxNum", A::kAuxContext, kPic, 0, nullptr, changeAuxCtxNum,
     "Change current auxiliary(pictureIndexFile)", kNoRecord},
    {"picBackUpChangeAuxCtxNum", A::kAuxContext, kPicBackUp, 0, nullptr,
     changeAuxCtxNum, "Change current auxiliary(backup pictureIndexFile)", kNoRecord},
    {"recIFrameInfo", A::kFileSegment, kRec, sizeof(tr_RecDataFileInfo), readSegmentInfo,
     listIFrames, "Print I frame information", kNoRecord},
    {"recData", A::kFileSegment, kRec, sizeof(tr_RecDataFileInfo), readSegmentInfo,
     extractRecData, "Output the record file", kNoRecord},
    {"picData", A::kFileSegment, kPic, sizeof(tr_JPGDataFileInfo), readSegmentInfo,
     extractJpgData, "Output the picture file", kNoRecord},
    {"onePic", A::kFileSegmentPicture, kPic, sizeof(tr_JPGDataFileInfo), readSegmentInfo,
     extractOnePicture, "Output a picture", kNoRecord},
    {"recException", A::kNone, kRec, 0, nullptr, markException,
     "Marker file exception(recordIndexFile)", kNoRecord},
    {"recBackUpException", A::kNone, kRecBackUp, 0, nullptr, markException,
     "Marker file exception(backup recordIndexFile)", kNoRecord},
    {"picException", A::kNone, kPic, 0, nullptr, markException,
     "Marker file exception(pictureIndexFile)", kNoRecord},
    {"picBackUpException", A::kNone, kPicBackUp, 0, nullptr, markException,
     "Marker file exception(backup pictureIndexFile)", kNoRecord},
    {"recNormal", A::kNone, kRec, 0, nullptr, markNormal,
     "Marker file normal(recordIndexFile)", kNoRecord},
    {"recBackUpNormal", A::kNone, kRecBackUp, 0, nullptr, markNormal,
     "Marker file normal(backup recordIndexFile)", kNoRecord},
    {"picNormal", A::kNone, kPic, 0, nullptr, markNormal,
     "Marker file normal(pictureIndexFile)", kNoRecord},
    {"picBackUpNormal", A::kNone, kPicBackUp, 0, nullptr, markNormal,
     "Marker file normal(backup pictureIndexFile)", kNoRecord},
    {"TrellisHead", A::kNone, kStorage, sizeof(tr_TrellisHead), readTrellisHead,
     printTrellisHead,
     "Print Trellis Head", kStorageHead},
    {"memsetTrellisHead", A::kNone, kStorage, 0, nullptr, resetTrellisHead,
     "Memset Trellis Head", kNoRecord},
};

namespace {

// Every row acts, and a row that reads names the record it clears.
constexpr bool rowsComplete() {
  for (const CommandRow& row : kCommands) {
    if (row.action == nullptr) return false;
    if ((row.reader != nullptr) != (row.recordSize != 0)) return false;
    if (row.recordSize > sizeof(RecordBuffer)) return false;
  }
  return true;
}
static_assert(rowsComplete(), "a command row lacks its steps");

}  // namespace

}  // namespace tr
