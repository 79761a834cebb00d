#include "format/index_files.h"

#include "base/platform.h"
#include "format/index_layout.h"

namespace tr {

const IndexFileDef kIndexFiles[kIndexFileCount] = {
    {"recordIndexFile", "rec", kRecordKind, false,
     &tr_TrellisHead::idxFileOffsetAV},
    {"backup recordIndexFile", "recBackUp", kRecordKind, true,
     &tr_TrellisHead::idxFileBackupOffsetAV},
    {"pictureIndexFile", "pic", kPictureKind, false,
     &tr_TrellisHead::idxFileOffsetPic},
    {"backup pictureIndexFile", "picBackUp", kPictureKind, true,
     &tr_TrellisHead::idxFileBackupOffsetPic},
};

uint64_t indexFileStart(const IndexFileDef& file,
                        const tr_TrellisHead& layout) {
  return layout.*file.start;
}

const IndexFileDef& twinOf(const IndexFileDef& file) {
  // Each primary is followed by its backup.
  const ptrdiff_t at = &file - kIndexFiles;
  return kIndexFiles[at ^ 1];
}

std::string RecordPlace::text() const {
  switch (kind) {
    case RecordKind::kDevice:
      return "device";
    case RecordKind::kStorageHead:
      return "storage head";
    case RecordKind::kIndexFileHead:
      return file->name;
    case RecordKind::kDataFileHead:
      return formatString("%s file %u", file->name, first);
    case RecordKind::kSegmentInfo:
      return formatString("%s file %u segment %u", file->name, first, second);
    case RecordKind::kAuxHead:
      return formatString("%s auxiliary %u", file->name, first);
    case RecordKind::kAuxContext:
      return formatString("%s auxiliary %u context %u", file->name, first,
                          second);
  }
  return "";
}

}  // namespace tr
