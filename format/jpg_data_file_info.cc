#include "format/jpg_data_file_info.h"

#include <cstring>

#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

// The four lines of one picture. Entries are listed one after another with
// nothing between them, as the recorder's own tools print them.
void printImageDetail(const tr_ImageDetail& detail) {
  char time[32];
  _tr_maintainFormatUnixTime(detail.utcTime, time, sizeof time);
  printGreenField("utcTime", time);
  printGreenField("timeZone", timeZoneText(detail.timeZone));
  printGreenField("DST", tableWord(kEnableWords, 2, detail.DST));
  printGreenField("jpgSize", sizeText(detail.jpgSize));
}

void printImageDetails(const tr_JPGDataFileInfo& j) {
  if (!timeGroupValid(j.effinfoMask)) {
    printInvalidGroup("Time Info");
    return;
  }
  printSection("\n[Image Details]\n");
  for (int i = 0; i < pictureCount(j); ++i) printImageDetail(j.imageDetails[i]);
}

void printPictureEncode(const tr_JPGDataFileInfo& j) {
  if ((j.effinfoMask & ETR_MEDIAFILEEFFINFO_ENCODE) == 0) {
    printInvalidGroup("PictureEncode Info ETR_MEDIAFILEEFFINFO_ENCODE");
    return;
  }
  printGreenField("type", _tr_maintainVideoEncodeTypeToStr(j.pictureEncode.type));
  printGreenField("width", formatString("%u", j.pictureEncode.width));
  printGreenField("height", formatString("%u", j.pictureEncode.height));
  printGreenField("fps",
             formatString("%f", static_cast<double>(j.pictureEncode.fps)));
}

}  // namespace

uint64_t pictureStart(const tr_JPGDataFileInfo& info, int index) {
  uint64_t start = 0;
  for (int i = 0; i < index && i < kMaxImageDetails; ++i) {
    start += info.imageDetails[i].jpgSize;
  }
  return start;
}

int _tr_maintainPrintJpgDataInfo(const tr_JPGDataFileInfo* info, int fileNum,
                                 int segmentNum) {
  if (info == nullptr) {
    return out("[ERROR] _tr_maintainPrintJpgDataInfo info is null\n");
  }
  // A copy, so that no field is read through a pointer of unknown alignment.
  tr_JPGDataFileInfo j;
  std::memcpy(&j, info, sizeof j);
  printSegmentInfoHeading("tr_JPGDataFileInfo", fileNum, segmentNum,
                          j.magicWord, sizeof j.magicWord, j.inUse);
  printGreenField("dataIndex", formatString("%u", j.dataIndex));
  printGreenField("fragmentOffset", hex64Text(j.fragmentOffset));
  printGreenField("fragmentSize", sizeText(j.fragmentSize));

  printSection("\n[Media Info]\n");
  printSection("\n[JPG Info]\n");
  printGreenField("validNum", formatString("%d", j.validNum));
  printGreenField("effinfoMask", hex64Text(j.effinfoMask));
  printImageDetails(j);

  out("\n");
  printSection("[File Type]\n");
  printFileTypeInfo(j.fileTypeInfo, j.effinfoMask);

  out("\n");
  printSection("[PictureEncode Info]\n");
  printPictureEncode(j);

  printReservedDump(j.reserved, sizeof j.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
