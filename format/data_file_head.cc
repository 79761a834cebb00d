// The data file head of data file `fileNum` in an index file: the reader
// checks the number against the index file header before it reaches into
// the data-file area, so a number the header does not cover never moves the
// device. The printer shows what is stored; a damaged byte changes a word or
// a colour, never the lines.
#include "format/data_file_head.h"

#include <cstdio>
#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"

namespace tr {

int _tr_maintainGetDataFileHeader(uint32_t kind, uint32_t fileNum,
                                  uint64_t offset, tr_DataFileHead* header) {
  if (header == nullptr) {
    errTimestamped("_tr_maintainGetDataFileHeader header is null");
    return -1;
  }
  tr_IndexFileHead indexHead;
  const int fd = openIndexFile(offset, &indexHead);
  if (fd == -1) return -1;
  if (!checkIndexNumber("fileNum", fileNum, "maxFileNum",
                        indexHead.maxFileNum)) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  const uint64_t target =
      dataFileHeadOffset(offset, kind, indexHead.maxSegmentNum, fileNum);
  return readTargetAndClose(fd, target, header, sizeof *header);
}

int _tr_maintainPrintDataFileHeader(const tr_DataFileHead* header,
                                    int fileNum) {
  if (header == nullptr) {
    return out("[ERROR] _tr_maintainPrintDataFileHeader header is null\n");
  }
  tr_DataFileHead h;
  std::memcpy(&h, header, sizeof h);
  printRecordHeading(formatString("fileNum:%d tr_DataFileHead", fileNum));

  printMagicField(h.magicWord, sizeof h.magicWord, kDataFileMagic);
  printNumberField("Channel", h.channel);
  _tr_maintainPrintColoredField(
      "Validity", tableWord(kValidityNames, 3, h.validity).c_str(),
      h.validity < 3 ? kValidityColours[h.validity] : kRed);
  printFlagField("In Use", h.inUse);
  printNumberField("File Number", h.fileNum);
  printNumberField("Write Data Index", h.writeDataIndex);
  printSizeField("Used Size", h.usedSize);
  printNumberField("Valid Segments", h.validSegments);

  printReservedDump(h.reserved, sizeof h.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
