// The four index files of a card and the records inside them, as every part
// of the console names them. The index files lie one after another from the
// end of the storage head: record, record backup, picture, picture backup;
// the storage head says where each starts. A backup is meant to be a byte
// for byte copy of its primary, the abnormal mark of the header aside.
#ifndef TRELLIS_FORMAT_INDEX_FILES_H_
#define TRELLIS_FORMAT_INDEX_FILES_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "format/trellis_head.h"

namespace tr {

struct IndexFileDef {
  const char* name;    // "backup recordIndexFile", as the help text names it
  const char* prefix;  // "recBackUp": the command words' prefix
  uint32_t kind;       // 1 record, 2 picture
  bool backup;
  uint64_t tr_TrellisHead::*start;  // the storage head field of its offset
};

constexpr int kIndexFileCount = 4;
// In the order on the device.
extern const IndexFileDef kIndexFiles[kIndexFileCount];

// Where `file` starts on a device laid out as `layout` says.
uint64_t indexFileStart(const IndexFileDef& file, const tr_TrellisHead& layout);
// The other index file of the same kind: the backup of a primary, the
// primary of a backup.
const IndexFileDef& twinOf(const IndexFileDef& file);

// The kinds of record an index file holds, and the storage head; kDevice
// stands for no record, the layout the device's size gives.
enum class RecordKind : uint8_t {
  kDevice,
  kStorageHead,
  kIndexFileHead,
  kDataFileHead,
  kSegmentInfo,
  kAuxHead,
  kAuxContext,
};

// Where one record lies: its kind, its index file (none for the storage
// head) and the numbers that select it, fileNum and segmentNum or auxNum
// and ctxNum, as far as its kind takes them.
struct RecordPlace {
  RecordKind kind;
  const IndexFileDef* file;
  uint32_t first;
  uint32_t second;

  // "backup recordIndexFile file 3 segment 2", "storage head", "device".
  std::string text() const;
};

}  // namespace tr

#endif  // TRELLIS_FORMAT_INDEX_FILES_H_
