#include "repair/change_lines.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/output.h"
#include "base/platform.h"
#include "format/aux_head.h"
#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/trellis_head.h"

namespace tr {
namespace {

enum class Kind : uint8_t { kText, kUnsigned, kSigned, kBytes };

struct Field {
  const char* name;
  size_t offset;
  size_t size;
  Kind kind;
};

using H = tr_TrellisHead;
constexpr Field kTrellisHeadFields[] = {
    {"magicWord", offsetof(H, magicWord), sizeof(H::magicWord), Kind::kText},
    {"idxFileOffsetAV", offsetof(H, idxFileOffsetAV), 8, Kind::kUnsigned},
    {"idxFileBackupOffsetAV", offsetof(H, idxFileBackupOffsetAV), 8,
     Kind::kUnsigned},
    {"idxFileOffsetPic", offsetof(H, idxFileOffsetPic), 8, Kind::kUnsigned},
    {"idxFileBackupOffsetPic", offsetof(H, idxFileBackupOffsetPic), 8,
     Kind::kUnsigned},
    {"idxFileSize", offsetof(H, idxFileSize), 8, Kind::kUnsigned},
    {"idxCheckFlagAV", offsetof(H, idxCheckFlagAV), 4, Kind::kUnsigned},
    {"idxCheckFlagPic", offsetof(H, idxCheckFlagPic), 4, Kind::kUnsigned},
    {"AVSectorSize", offsetof(H, AVSectorSize), 8, Kind::kUnsigned},
    {"PicSectorSize", offsetof(H, PicSectorSize), 8, Kind::kUnsigned},
    {"reserved", offsetof(H, reserved), sizeof(H::reserved), Kind::kBytes},
};

using I = tr_IndexFileHead;
constexpr Field kIndexFileHeadFields[] = {
    {"magicWord", offsetof(I, magicWord), sizeof(I::magicWord), Kind::kText},
    {"fileType", offsetof(I, fileType), 1, Kind::kUnsigned},
    {"reserved1", offsetof(I, reserved1), sizeof(I::reserved1), Kind::kBytes},
    {"writeFileIndex", offsetof(I, writeFileIndex), sizeof(I::writeFileIndex),
     Kind::kBytes},
    {"maxFileNum", offsetof(I, maxFileNum), 4, Kind::kUnsigned},
    {"maxSegmentNum", offsetof(I, maxSegmentNum), 4, Kind::kUnsigned},
    {"maxAuxNumber", offsetof(I, maxAuxNumber), 4, Kind::kUnsigned},
    {"auxNum", offsetof(I, auxNum), 4, Kind::kUnsigned},
    {"fileSize", offsetof(I, fileSize), 8, Kind::kUnsigned},
    {"exceptionFlag", offsetof(I, exceptionFlag), 1, Kind::kUnsigned},
    {"gap1", offsetof(I, gap1), sizeof(I::gap1), Kind::kBytes},
    {"startTime", offsetof(I, startTime), 8, Kind::kSigned},
    {"reserved2", offsetof(I, reserved2), sizeof(I::reserved2), Kind::kBytes},
    {"gap2", offsetof(I, gap2), sizeof(I::gap2), Kind::kBytes},
};

using A = IndexFileAuxiliaryHead;
constexpr Field kAuxHeadFields[] = {
    {"isUsed", offsetof(A, isUsed), 1, Kind::kUnsigned},
    {"isFull", offsetof(A, isFull), 1, Kind::kUnsigned},
    {"currentCount", offsetof(A, currentCount), 2, Kind::kUnsigned},
    {"reserved", offsetof(A, reserved), sizeof(A::reserved), Kind::kBytes},
};

// One record the change lines know: its name and its fields.
struct Known {
  std::string name;
  const Field* fields = nullptr;
  size_t count = 0;
};

template <size_t N>
Known known(const std::string& name, const Field (&fields)[N]) {
  return Known{name, fields, N};
}

// The record a write of `size` bytes at `offset` rewrote, by the layout.
Known identify(uint64_t offset, size_t size) {
  if (offset == kTrellisHeadOffset && size == sizeof(H)) {
    return known("TrellisHead", kTrellisHeadFields);
  }
  const uint64_t bases[] = {
      trellisHead.idxFileOffsetAV, trellisHead.idxFileBackupOffsetAV,
      trellisHead.idxFileOffsetPic, trellisHead.idxFileBackupOffsetPic};
  const char* const names[] = {"recordIndexFile", "backup recordIndexFile",
                               "pictureIndexFile", "backup pictureIndexFile"};
  for (int i = 0; i < 4; ++i) {
    if (offset == bases[i] && size == sizeof(I)) {
      return known(names[i], kIndexFileHeadFields);
    }
    if (trellisHead.idxFileSize < kAuxRegionSize || size != sizeof(A)) continue;
    const uint64_t region = auxRegionStart(bases[i], trellisHead.idxFileSize);
    if (offset < region || offset >= region + kAuxRegionSize ||
        (offset - region) % kAuxiliarySize != 0) {
      continue;
    }
    const uint64_t auxNum = (offset - region) / kAuxiliarySize + 1;
    return known(formatString("%s auxiliary %llu", names[i],
                              static_cast<unsigned long long>(auxNum)),
                 kAuxHeadFields);
  }
  return Known();
}

std::string hexValue(const std::string& bytes) {
  std::string text = "0x";
  for (unsigned char c : bytes) text += formatString("%02x", c);
  return text;
}

// Text up to its first NUL, quoted; quotes, backslashes and bytes outside
// printable ASCII as "\xHH".
std::string textValue(const std::string& bytes) {
  std::string text = "\"";
  for (unsigned char c : bytes.substr(0, bytes.find('\0'))) {
    if (c < 0x20 || c >= 0x7f || c == '"' || c == '\\') {
      text += formatString("\\x%02x", c);
    } else {
      text += static_cast<char>(c);
    }
  }
  return text + "\"";
}

std::string value(const std::string& bytes, Kind kind) {
  uint64_t number = 0;
  for (size_t i = bytes.size(); i-- > 0;) {
    number = number << 8 | static_cast<unsigned char>(bytes[i]);
  }
  switch (kind) {
    case Kind::kText:
      return textValue(bytes);
    case Kind::kUnsigned:
      return formatString("%llu", static_cast<unsigned long long>(number));
    case Kind::kSigned:
      return formatString("%lld", static_cast<long long>(number));
    case Kind::kBytes:
      break;
  }
  return hexValue(bytes);
}

}  // namespace

void printChangeLines(const std::vector<DeviceWrite>& writes) {
  for (const DeviceWrite& write : writes) {
    const Known record = identify(write.offset, write.after.size());
    if (record.fields == nullptr) {
      if (write.before != write.after) {
        out("device bytes at %llu: %s -> %s\n",
            static_cast<unsigned long long>(write.offset),
            hexValue(write.before).c_str(), hexValue(write.after).c_str());
      }
      continue;
    }
    for (size_t i = 0; i < record.count; ++i) {
      const Field& field = record.fields[i];
      const std::string before = write.before.substr(field.offset, field.size);
      const std::string after = write.after.substr(field.offset, field.size);
      if (before == after) continue;
      out("%s %s: %s -> %s\n", record.name.c_str(), field.name,
          value(before, field.kind).c_str(), value(after, field.kind).c_str());
    }
  }
}

}  // namespace tr
