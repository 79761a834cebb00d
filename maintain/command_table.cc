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
using S = Selector;

}  // namespace

extern constexpr CommandRow kCommands[kCommandCount] = {
    {"recIndexFileHead", A::kNone, S::kRec, sizeof(tr_IndexFileHead), readIndexFileHead,
     printIndexFileHead, "Print global file header(recordIndexFile)"},
    {"recBackUpIndexFileHead", A::kNone, S::kRecBackUp, sizeof(tr_IndexFileHead),
     readIndexFileHead, printIndexFileHead,
     "Print global file header(backup recordIndexFile)"},
    {"picIndexFileHead", A::kNone, S::kPic, sizeof(tr_IndexFileHead), readIndexFileHead,
     printIndexFileHead, "Print global file header(pictureIndexFile)"},
    {"picBackUpIndexFileHead", A::kNone, S::kPicBackUp, sizeof(tr_IndexFileHead),
     readIndexFileHead, printIndexFileHead,
     "Print global file header(backup pictureIndexFile)"},
    {"recDataFileHead", A::kFile, S::kRec, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(recordIndexFile)"},
    {"recBackUpDataFileHead", A::kFile, S::kRecBackUp, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(backup recordIndexFile)"},
    {"picDataFileHead", A::kFile, S::kPic, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(pictureIndexFile)"},
    {"picBackUpDataFileHead", A::kFile, S::kPicBackUp, sizeof(tr_DataFileHead), readDataFileHead,
     printDataFileHead,
     "Print file index header(backup pictureIndexFile)"},
    {"recIndexAuxHead", A::kAux, S::kRec, sizeof(IndexFileAuxiliaryHead), readAuxHead, printAuxHead,
     "Print auxiliary header(recordIndexFile)"},
    {"recBackUpIndexAuxHead", A::kAux, S::kRecBackUp, sizeof(IndexFileAuxiliaryHead), readAuxHead,
     printAuxHead,
     "Print auxiliary header(backup recordIndexFile)"},
    {"picIndexAuxHead", A::kAux, S::kPic, sizeof(IndexFileAuxiliaryHead), readAuxHead, printAuxHead,
     "Print auxiliary header(pictureIndexFile)"},
    {"picBackUpIndexAuxHead", A::kAux, S::kPicBackUp, sizeof(IndexFileAuxiliaryHead), readAuxHead,
     printAuxHead,
     "Print auxiliary header(backup pictureIndexFile)"},
    {"recDataFileInfo", A::kFileSegment, S::kRec, sizeof(tr_RecDataFileInfo), readSegmentInfo,
     printRecSegmentInfo, "Print data segment index(recordIndexFile)"},
    {"recBackUpDataFileInfo", A::kFileSegment, S::kRecBackUp, sizeof(tr_RecDataFileInfo),
     readSegmentInfo, printRecSegmentInfo,
     "Print data segment index(backup recordIndexFile)"},
    {"picDataFileInfo", A::kFileSegment, S::kPic, sizeof(tr_JPGDataFileInfo), readSegmentInfo,
     printJpgSegmentInfo, "Print data segment index(pictureIndexFile)"},
    {"picBackUpDataFileInfo", A::kFileSegment, S::kPicBackUp, sizeof(tr_JPGDataFileInfo),
     readSegmentInfo, printJpgSegmentInfo,
     "Print data segment index(backup pictureIndexFile)"},
    {"recIndexFileAux", A::kAuxContext, S::kRec, sizeof(IndexFileAuxiliaryContext), readAuxContext,
     printAuxContext, "Print auxiliary content(recordIndexFile)"},
    {"recBackUpIndexFileAux", A::kAuxContext, S::kRecBackUp, sizeof(IndexFileAuxiliaryContext),
     readAuxContext, printAuxContext,
     "Print auxiliary content(backup recordIndexFile)"},
    {"picIndexFileAux", A::kAuxContext, S::kPic, sizeof(IndexFileAuxiliaryContext), readAuxContext,
     printAuxContext, "Print auxiliary content(pictureIndexFile)"},
    {"picBackUpIndexFileAux", A::kAuxContext, S::kPicBackUp, sizeof(IndexFileAuxiliaryContext),
     readAuxContext, printAuxContext,
     "Print auxiliary content(backup pictureIndexFile)"},
    {"recChangeAuxCtxNum", A::kAuxContext, S::kRec, 0, nullptr, changeAuxCtxNum,
     "Change current auxiliary(recordIndexFile)"},
    {"recBackUpChangeAuxCtxNum", A::kAuxContext, S::kRecBackUp, 0, nullptr,
     changeAuxCtxNum, "Change current auxiliary(backup recordIndexFile)"},
    {"picChangeAuxCtxNum", A::kAuxContext, S::kPic, 0, nullptr, changeAuxCtxNum,
     "Change current auxiliary(pictureIndexFile)"},
    {"picBackUpChangeAuxCtxNum", A::kAuxContext, S::kPicBackUp, 0, nullptr,
     changeAuxCtxNum, "Change current auxiliary(backup pictureIndexFile)"},
    {"recIFrameInfo", A::kFileSegment, S::kRec, sizeof(tr_RecDataFileInfo), readSegmentInfo,
     listIFrames, "Print I frame information"},
    {"recData", A::kFileSegment, S::kRec, sizeof(tr_RecDataFileInfo), readSegmentInfo,
     extractRecData, "Output the record file"},
    {"picData", A::kFileSegment, S::kPic, sizeof(tr_JPGDataFileInfo), readSegmentInfo,
     extractJpgData, "Output the picture file"},
    {"onePic", A::kFileSegmentPicture, S::kPic, sizeof(tr_JPGDataFileInfo), readSegmentInfo,
     extractOnePicture, "Output a picture"},
    {"recException", A::kNone, S::kRec, 0, nullptr, markException,
     "Marker file exception(recordIndexFile)"},
    {"recBackUpException", A::kNone, S::kRecBackUp, 0, nullptr, markException,
     "Marker file exception(backup recordIndexFile)"},
    {"picException", A::kNone, S::kPic, 0, nullptr, markException,
     "Marker file exception(pictureIndexFile)"},
    {"picBackUpException", A::kNone, S::kPicBackUp, 0, nullptr, markException,
     "Marker file exception(backup pictureIndexFile)"},
    {"recNormal", A::kNone, S::kRec, 0, nullptr, markNormal,
     "Marker file normal(recordIndexFile)"},
    {"recBackUpNormal", A::kNone, S::kRecBackUp, 0, nullptr, markNormal,
     "Marker file normal(backup recordIndexFile)"},
    {"picNormal", A::kNone, S::kPic, 0, nullptr, markNormal,
     "Marker file normal(pictureIndexFile)"},
    {"picBackUpNormal", A::kNone, S::kPicBackUp, 0, nullptr, markNormal,
     "Marker file normal(backup pictureIndexFile)"},
    {"TrellisHead", A::kNone, S::kNone, sizeof(tr_TrellisHead), readTrellisHead,
     printTrellisHead,
     "Print Trellis Head"},
    {"memsetTrellisHead", A::kNone, S::kNone, 0, nullptr, resetTrellisHead,
     "Memset Trellis Head"},
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
