#include "format/rec_data_file_info.h"

#include <cstring>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// Entry 0 is never shown: type 0 is as undefined as a type past the table.
const char* const kVideoNames[11] = {
    "Unknown", "MPEG-2",  "MPEG-4",     "H.263",   "H.264/AVC", "M-JPEG",
    "AVS",     "SVAC",    "H.265/HEVC", "SVAC2.0", "SVAC3.0"};
const char* const kAudioNames[8] = {"UNKNOW", "PCM", "G711A", "G711Mu",
                                    "G726",   "AAC", "G729",  "G723"};
const char* const kStreamNames[8] = {"Unknown", "Main",     "Extra-1", "Extra-2",
                                     "Extra-3", "Snapshot", "All",     "Max"};
const char* const kPositionNames[5] = {"Unknown", "Head", "Middle", "Tail",
                                       "Max"};

// The record-type letters in the order their masks are printed.
struct RecordType {
  char letter;
  const char* name;
  const char* maskLabel;
  uint64_t tr_FileTypeInfo::*mask;
  RecordTypeBit bit;
};
const RecordType kRecordTypes[4] = {
    {'F', "Manual", "manualMask", &tr_FileTypeInfo::manualMask,
     kManualRecording},
    {'A', "Alarm", "alarmMask", &tr_FileTypeInfo::alarmMask, kAlarmRecording},
    {'M', "Event", "eventMask", &tr_FileTypeInfo::eventMask, kEventRecording},
    {'R', "Scheduled", "TimingMask", &tr_FileTypeInfo::TimingMask,
     kScheduledRecording}};

// Up to 1000 Hz in Hz, from there in kHz with one decimal. The division is
// done in single precision, as the recorder does it.
std::string frequencyText(uint32_t hertz) {
  if (hertz < 1000) return formatString("%u Hz", hertz);
  const float kilohertz = static_cast<float>(hertz) / 1000.0f;
  return formatString("%.1f kHz", static_cast<double>(kilohertz));
}

void printTimeGroup(const tr_TimeInfo& time, uint64_t mask) {
  if (!timeGroupValid(mask)) {
    printInvalidGroup("Time Info");
    return;
  }
  printTimeSpanFields(time.startTime, time.endTime, time.timeZone, time.DST);
}

void printEncodeGroup(const tr_RecDataFileInfo& r) {
  if ((r.effinfoMask & ETR_MEDIAFILEEFFINFO_ENCODE) == 0) {
    printInvalidGroup("Encode Info ETR_MEDIAFILEEFFINFO_ENCODE");
    return;
  }
  printGreenField("aEnable", formatString("%d", r.aEnable));
  printGreenField("aFormat.type", _tr_maintainAudioEncodeTypeToStr(
                                 static_cast<int>(r.aFormat.type)));
  printGreenField("aFormat.frequency", frequencyText(r.aFormat.frequency));
  printGreenField("aFormat.depth", formatString("%u", r.aFormat.depth));
  printGreenField("aFormat.mode", formatString("%u", r.aFormat.mode));
  printGreenField("vEnable", formatString("%d", r.vEnable));
  printGreenField("vFormat.type", _tr_maintainVideoEncodeTypeToStr(r.vFormat.type));
  printGreenField("vFormat.width", formatString("%u", r.vFormat.width));
  printGreenField("vFormat.height", formatString("%u", r.vFormat.height));
  printGreenField("vFormat.fps",
             formatString("%f", static_cast<double>(r.vFormat.fps)));
}

}  // namespace

int _tr_maintainGetDataFileInfo(uint32_t kind, uint32_t fileNum,
                                uint32_t segmentNum, uint64_t offset,
                                void* info) {
  if (info == nullptr) {
    errTimestamped("_tr_maintainGetDataFileInfo info is null");
    return -1;
  }
  tr_IndexFileHead header;
  const int fd = openIndexFile(offset, &header);
  if (fd == -1) return -1;
  if (!checkIndexNumber("fileNum", fileNum, "maxFileNum", header.maxFileNum) ||
      !checkIndexNumber("segmentNum", segmentNum, "maxSegmentNum",
                        header.maxSegmentNum)) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  const uint64_t target = segmentInfoOffset(offset, kind, header.maxSegmentNum,
                                            fileNum, segmentNum);
  return readTargetAndClose(fd, target, info, segmentInfoSize(kind));
}

const char* _tr_maintainVideoEncodeTypeToStr(uint32_t type) {
  if (type == 0 || type > 10) return "Undefined Video";
  return kVideoNames[type];
}

const char* _tr_maintainAudioEncodeTypeToStr(int type) {
  if (type < 1 || type > 7) return kAudioNames[0];
  return kAudioNames[type];
}

void printSegmentInfoHeading(const char* recordName, int fileNum,
                             int segmentNum, const char* magicWord,
                             size_t magicSize, uint64_t inUse) {
  printRecordHeading(formatString("fileNum:%d, segmentNum:%d %s", fileNum,
                                  segmentNum, recordName));
  printMagicField(magicWord, magicSize, kSegmentInfoMagic);
  printFlagField("In Use", inUse);
}

std::string hex64Text(uint64_t value) {
  return formatString("0x%016llX", static_cast<unsigned long long>(value));
}

uint32_t recordTypes(const tr_FileTypeInfo& info, uint64_t effinfoMask) {
  if ((effinfoMask & ETR_MEDIAFILEEFFINFO_FILETYPE) == 0) return 0;
  uint32_t types = 0;
  for (char byte : info.flag) {
    for (const RecordType& type : kRecordTypes) {
      if (byte == type.letter) types |= type.bit;
    }
  }
  return types;
}

void printFileTypeInfo(const tr_FileTypeInfo& info, uint64_t effinfoMask) {
  if ((effinfoMask & ETR_MEDIAFILEEFFINFO_FILETYPE) != 0) {
    // Every flag byte names a type, NULs or not; eight of them may give
    // eight names, so the list is never cut.
    std::string list;
    for (char byte : info.flag) {
      for (const RecordType& type : kRecordTypes) {
        if (byte == type.letter) list += type.name;
      }
    }
    printGreenField("flag", list);
    // The masks, though, belong to the letters before the first NUL only.
    const size_t used = strnlen(info.flag, sizeof info.flag);
    for (const RecordType& type : kRecordTypes) {
      if (std::memchr(info.flag, type.letter, used) != nullptr) {
        printGreenField(type.maskLabel, hex64Text(info.*type.mask));
      }
    }
  } else {
    printInvalidGroup("File Type ETR_MEDIAFILEEFFINFO_FILETYPE");
  }
  if ((effinfoMask & ETR_MEDIAFILEEFFINFO_STREAMTYPE) != 0) {
    printGreenField("streamType", tableWord(kStreamNames, 8, info.streamType));
  } else {
    printInvalidGroup("File Type ETR_MEDIAFILEEFFINFO_STREAMTYPE");
  }
  if ((effinfoMask & ETR_MEDIAFILEEFFINFO_CHANNEL) != 0) {
    printGreenField("channel", formatString("%d", info.channel));
  } else {
    printInvalidGroup("File Type ETR_MEDIAFILEEFFINFO_CHANNEL");
  }
}

int _tr_maintainPrintRecDataInfo(const tr_RecDataFileInfo* info, int fileNum,
                                 int segmentNum) {
  if (info == nullptr) {
    return out("[ERROR] _tr_maintainPrintRecDataInfo info is null\n");
  }
  // A copy, so that no field is read through a pointer of unknown alignment.
  tr_RecDataFileInfo r;
  std::memcpy(&r, info, sizeof r);
  printSegmentInfoHeading("tr_RecDataFileInfo", fileNum, segmentNum,
                          r.magicWord, sizeof r.magicWord, r.inUse);
  printGreenField("dataOffset", hex64Text(r.dataOffset));
  printGreenField("datalen", sizeText(r.datalen));
  printGreenField("iFrameInfoOffset", hex64Text(r.iFrameInfoOffset));
  printGreenField("iFrameInfoSize", hex64Text(r.iFrameInfoSize));

  printSection("\n[Media Info]\n");
  printSection("\n[Time Info]\n");
  printGreenField("effinfoMask", hex64Text(r.effinfoMask));
  printTimeGroup(r.timeInfo, r.effinfoMask);

  out("\n");
  printSection("[File Type]\n");
  printFileTypeInfo(r.fileTypeInfo, r.effinfoMask);

  out("\n");
  printSection("[Encode Info]\n");
  printEncodeGroup(r);
  printGreenField("dataIndex", formatString("%u", r.dataIndex));

  out("\n");
  printSection("[InfoEx]\n");
  printGreenField("Is Incomplete",
             tableWord(kUpperYesNoWords, 2, r.infoEx.isIncomplete));
  printGreenField("infoEx.position",
             tableWord(kPositionNames, 5, r.infoEx.position));
  printGreenField("infoEx.nextFileNum", formatString("%u", r.infoEx.nextFileNum));
  _tr_maintainHexDump(r.infoEx.unused1, sizeof r.infoEx.unused1);
  _tr_maintainHexDump(r.infoEx.unused2, sizeof r.infoEx.unused2);

  printReservedDump(r.reserved, sizeof r.reserved);
  printRecordEnd();
  return 0;
}

}  // namespace tr
