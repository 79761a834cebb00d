#include "check/record_fields.h"

#include <cinttypes>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "check/report.h"

namespace tr {
namespace {

// Differences shown with their values; any more are only counted.
constexpr int kShownDifferences = 4;

// The value of a field as a difference shows it; "" for a field that is
// only named (bytes, and magic words, which have checks of their own).
std::string valueText(const FieldSpan& field, const unsigned char* bytes) {
  switch (field.show) {
    case FieldShow::kBytes:
    case FieldShow::kText:
      return "";
    case FieldShow::kUnsigned:
      return formatString("%" PRIu64, fieldNumber(field, bytes));
    case FieldShow::kSigned:
      return formatString("%" PRId64, fieldSigned(field, bytes));
    case FieldShow::kHex:
      return hexText(fieldNumber(field, bytes));
    case FieldShow::kTime:
      return utcText(fieldSigned(field, bytes));
    case FieldShow::kFloat: {
      float value;
      std::memcpy(&value, bytes, sizeof value);
      return formatString("%g", static_cast<double>(value));
    }
  }
  return "";
}

// A value as a change shows it: magic words as quoted text, the rest as
// differences show them.
std::string changeValue(const FieldSpan& field, const unsigned char* bytes) {
  if (field.show == FieldShow::kText) {
    return escapedText(reinterpret_cast<const char*>(bytes), field.size,
                       kQuotedText);
  }
  return valueText(field, bytes);
}

}  // namespace

std::string changes(const RecordFields& record, const unsigned char* before,
                    const unsigned char* after) {
  std::string text;
  int changed = 0;
  for (size_t i = 0; i < record.count; ++i) {
    const FieldSpan& field = record.fields[i];
    for (size_t e = 0; e < field.count; ++e) {
      const size_t at = field.offset + e * field.size;
      if (std::memcmp(before + at, after + at, field.size) == 0) continue;
      if (++changed > kShownDifferences) continue;
      if (changed > 1) text += ", ";
      text += field.name;
      if (field.count > 1) text += formatString("[%zu]", e);
      const std::string old = changeValue(field, before + at);
      if (!old.empty()) text += " " + old + " -> " + changeValue(field, after + at);
    }
  }
  if (changed > kShownDifferences) {
    text += formatString(" and %d more", changed - kShownDifferences);
  }
  return text;
}

Difference difference(const RecordFields& record, const unsigned char* found,
                      const unsigned char* other, const char* otherName) {
  Difference result;
  int differing = 0;
  for (size_t i = 0; i < record.count; ++i) {
    const FieldSpan& field = record.fields[i];
    bool named = false;  // in result.fields
    for (size_t e = 0; e < field.count; ++e) {
      const size_t at = field.offset + e * field.size;
      if (std::memcmp(found + at, other + at, field.size) == 0) continue;
      if (!named) {
        if (!result.fields.empty()) result.fields += ", ";
        result.fields += field.name;
        named = true;
      }
      if (++differing > kShownDifferences) continue;
      if (differing > 1) result.values += ", ";
      result.values += field.name;
      if (field.count > 1) result.values += formatString("[%zu]", e);
      const std::string value = valueText(field, found + at);
      if (!value.empty()) {
        result.values += " " + value + " (" + otherName + " " +
                         valueText(field, other + at) + ")";
      }
    }
  }
  if (differing > kShownDifferences) {
    result.values +=
        formatString(" and %d more", differing - kShownDifferences);
  }
  return result;
}

}  // namespace tr
