// The pictures of an export: each picture of the chosen picture segments
// taken in the window, a JPEG of its own, in the order of the picture index
// file.
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "base/region_reader.h"
#include "base/times.h"
#include "export/export_parts.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/segment_facts.h"
#include "format/segment_walk.h"

namespace tr {
namespace {

const IndexFileDef& pictureFile() { return kIndexFiles[2]; }

// Picture `index` (from 0) of a segment whose info is `info`, in `fd`.
void exportPicture(ExportSession* session, const RecordPlace& where, int fd,
                   const tr_JPGDataFileInfo& info, bool backup, int index) {
  const tr_ImageDetail& detail = info.imageDetails[index];
  const int64_t time = storedSeconds(detail.utcTime);
  if (!session->window().takesTime(time)) return;
  const uint64_t before = pictureStart(info, index);
  if (detail.jpgSize == 0 || before + detail.jpgSize > info.fragmentSize) {
    session->skip(where, index + 1,
                  detail.jpgSize == 0 ? "it is empty"
                                      : "it runs past the end of its fragment");
    return;
  }
  ExportFile out(session->dir());
  if (out.open() == -1) {
    session->failWriting();
    return;
  }
  const uint64_t start = info.fragmentOffset + before;
  if (session->copy(fd, start, detail.jpgSize, &out) == -1) return;
  const int32_t channel = info.fileTypeInfo.channel;
  JsonObject source;
  source.add("dataFile", DataFileSizes::name(kPictureKind, where.first))
      .add("indexFile",
           backup ? twinOf(pictureFile()).name : pictureFile().name)
      .add("fileNum", uint64_t{where.first})
      .add("segmentNum", uint64_t{where.second})
      .add("picture", int64_t{index + 1})
      .add("offset", start)
      .add("length", uint64_t{detail.jpgSize});
  JsonObject entry;
  entry.add("type", "picture")
      .add("channel", int64_t{channel})
      .add("time", isoUtc(time))
      .add("localTime", isoLocal(time, detail.timeZone))
      .addRaw("sources", "[" + source.str() + "]");
  session->keep(&out,
                formatString("ch%02d_%s_%d.jpg", channel,
                             compactUtc(time).c_str(), index + 1),
                entry,
                formatString("picture, channel %d, %s", channel,
                             isoLocal(time, detail.timeZone).c_str()));
}

// One picture segment in use: the copy of its info, then its pictures.
void exportSegment(ExportSession* session, uint32_t fileNum,
                   uint32_t segmentNum, const unsigned char* bytes) {
  SegmentCopy copy;
  chooseCopy(session, pictureFile(), fileNum, segmentNum, bytes, &copy);
  tr_JPGDataFileInfo info;
  std::memcpy(&info, copy.usable ? copy.bytes : bytes, sizeof info);
  const SegmentFacts facts = pictureFacts(info);
  if (!session->window().takes(facts)) return;
  const RecordPlace where = {RecordKind::kSegmentInfo, &pictureFile(), fileNum,
                             segmentNum};
  const std::string why = !copy.usable          ? copy.why
                          : !facts.timeValid    ? "its time group is not valid"
                          : !facts.channelValid ? "its channel is not valid"
                                                : "";
  if (!why.empty()) {
    session->skip(where, 0, why);
    return;
  }
  if (copy.backup) session->noteBackup(where, copy.damage);
  for (int k = 0; k < facts.pictures && !session->stopped(); ++k) {
    exportPicture(session, where, copy.dataFd, info, copy.backup, k);
  }
}

}  // namespace

void exportPictures(ExportSession* session) {
  CardSession& card = session->card();
  tr_IndexFileHead head;
  const uint64_t base = card.base(pictureFile());
  if (card.read(base, &head, sizeof head) == -1) {
    session->cardLost(false);
    return;
  }
  if (!dataFileAreaFits(head, kPictureKind, card.layout().idxFileSize)) {
    session->skip({RecordKind::kIndexFileHead, &pictureFile(), 0, 0}, 0,
                  "its data files do not fit before its auxiliary region "
                  "(see --check)");
    return;
  }
  RegionReader reader;
  const auto visit = [&](uint32_t f, uint32_t s, const unsigned char* bytes) {
    if (session->stopped()) return false;
    exportSegment(session, f, s, bytes);
    return true;
  };
  if (!walkSegmentsInUse(&card, pictureFile(), head, &reader, visit)) {
    session->cardLost(true);
  }
}

}  // namespace tr
