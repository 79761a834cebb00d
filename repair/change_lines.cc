#include "repair/change_lines.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/output.h"
#include "base/platform.h"
#include "format/device_layout.h"
#include "format/index_files.h"
#include "format/index_layout.h"
#include "format/record_fields.h"
#include "format/trellis_head.h"

namespace tr {
namespace {

// One record the change lines know: its name and its fields.
struct Known {
  std::string name;
  const RecordFields* record = nullptr;
};

// The record a write of `size` bytes at `offset` rewrote, by the layout.
Known identify(uint64_t offset, size_t size) {
  if (offset == kTrellisHeadOffset && size == kTrellisHeadFields.recordSize) {
    return {"TrellisHead", &kTrellisHeadFields};
  }
  for (const IndexFileDef& file : kIndexFiles) {
    const uint64_t base = indexFileStart(file, trellisHead);
    if (offset == base && size == kIndexFileHeadFields.recordSize) {
      return {file.name, &kIndexFileHeadFields};
    }
    if (trellisHead.idxFileSize < kAuxRegionSize ||
        size != kAuxHeadFields.recordSize) {
      continue;
    }
    const uint64_t region = auxRegionStart(base, trellisHead.idxFileSize);
    if (offset < region || offset >= region + kAuxRegionSize ||
        (offset - region) % kAuxiliarySize != 0) {
      continue;
    }
    const uint64_t auxNum = (offset - region) / kAuxiliarySize + 1;
    return {formatString("%s auxiliary %llu", file.name,
                         static_cast<unsigned long long>(auxNum)),
            &kAuxHeadFields};
  }
  return Known();
}

std::string hexValue(const std::string& bytes) {
  std::string text = "0x";
  for (unsigned char c : bytes) text += formatString("%02x", c);
  return text;
}

// Numbers as stored (times too); an array, like any other bytes, in hex.
std::string value(const FieldSpan& field, const std::string& bytes) {
  const auto* raw = reinterpret_cast<const unsigned char*>(bytes.data());
  if (field.count > 1) return hexValue(bytes);
  switch (field.show) {
    case FieldShow::kText:
      return escapedText(bytes, kQuotedBytes);
    case FieldShow::kUnsigned:
      return formatString("%llu", static_cast<unsigned long long>(
                                      fieldNumber(field, raw)));
    case FieldShow::kSigned:
    case FieldShow::kTime:
      return formatString("%lld",
                          static_cast<long long>(fieldSigned(field, raw)));
    case FieldShow::kBytes:
    case FieldShow::kHex:
    case FieldShow::kFloat:
      break;
  }
  return hexValue(bytes);
}

}  // namespace

void printChangeLines(const std::vector<DeviceWrite>& writes) {
  for (const DeviceWrite& write : writes) {
    const Known record = identify(write.offset, write.after.size());
    if (record.record == nullptr) {
      if (write.before != write.after) {
        out("device bytes at %llu: %s -> %s\n",
            static_cast<unsigned long long>(write.offset),
            hexValue(write.before).c_str(), hexValue(write.after).c_str());
      }
      continue;
    }
    for (size_t i = 0; i < record.record->count; ++i) {
      const FieldSpan& field = record.record->fields[i];
      const size_t size = field.size * field.count;
      const std::string before = write.before.substr(field.offset, size);
      const std::string after = write.after.substr(field.offset, size);
      if (before == after) continue;
      out("%s %s: %s -> %s\n", record.name.c_str(), field.name,
          value(field, before).c_str(), value(field, after).c_str());
    }
  }
}

}  // namespace tr
