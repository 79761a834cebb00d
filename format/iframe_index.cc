#include "format/iframe_index.h"

#include <cerrno>
#include <cstdio>

#include "base/output.h"
#include "base/platform.h"
#include "base/stream.h"
#include "format/data_files.h"

namespace tr {
namespace {

void printIFrame(const tr_IFrameIndex& entry, uint32_t number,
                 uint32_t count) {
  out("Frame [%zu/%zu]:\n", static_cast<size_t>(number),
      static_cast<size_t>(count));
  char text[32];
  _tr_maintainFormatUnixTime(entry.utcTime, text, sizeof text);
  _tr_maintainPrintColoredField("utcTime", text, kGreen);
  std::snprintf(text, sizeof text, "%u", entry.offset);
  _tr_maintainPrintColoredField("offset", text, kGreen);
  printReservedDump(entry.reserved, sizeof entry.reserved);
}

}  // namespace

// Lists the table entry by entry straight from the data file, so a table of
// any length needs one entry of memory. A file that ends inside the table
// lists what it holds: the entries before the damage are still worth seeing.
int _tr_maintainPrintIFrameIndex(const tr_RecDataFileInfo* info, int fileNum,
                                 int segmentNum) {
  if (info == nullptr || info->inUse == 0) {
    out("[ERROR] _tr_maintainPrintIFrameIndex This segment has no data\n");
    return -1;
  }
  printRecordHeading(formatString("fileNum:%d, segmentNum:%d tr_IFrameIndex",
                                  fileNum, segmentNum));

  const std::string path = dataFilePath(fileNum, kRecordDataSuffix);
  // A trailing part entry is ignored; the count is kept in 32 bits, as the
  // recorder keeps it.
  const uint32_t count =
      static_cast<uint32_t>(info->iFrameInfoSize / sizeof(tr_IFrameIndex));
  if (count == 0) {
    out("_tr_maintainPrintIFrameIndex iFrameCount = %d\n", 0);
    return 0;
  }

  Stream source;
  if (!openDataFile(path, &source)) return -1;
  if (sys.fseek(source.get(), info->iFrameInfoOffset) != 0) {
    err("[ERROR] Seek failed at offset %llu\n",
        static_cast<unsigned long long>(info->iFrameInfoOffset));
    return -1;
  }
  bool whole = true;
  for (uint32_t i = 0; i < count && whole; ++i) {
    tr_IFrameIndex entry;
    // At the end of the file fread sets no errno: clear it so the reason
    // shown is this read's, not a stale one.
    errno = 0;
    whole = sys.fread(&entry, sizeof entry, 1, source.get()) == 1;
    if (whole) {
      printIFrame(entry, i + 1, count);
    } else {
      errPerror("[ERROR]  fread failed");
    }
  }
  printRecordEnd();
  source.close();
  // A table cut short was listed as far as it goes, and still failed.
  return whole ? 0 : -1;
}

}  // namespace tr
