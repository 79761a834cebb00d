// Every field of each index record by name, place and kind of value, for
// telling which fields of a backup record differ from its primary's. The
// tables are built from the format/ structs (offsetof, sizeof) and cover
// every byte of their record, gaps and reserved bytes included, so no
// difference goes unnamed.
#ifndef TRELLIS_CHECK_RECORD_FIELDS_H_
#define TRELLIS_CHECK_RECORD_FIELDS_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace tr {

enum class FieldShow : uint8_t {
  kBytes,     // no value shown, only the name
  kUnsigned,  // little-endian unsigned, decimal
  kSigned,    // little-endian signed, decimal
  kHex,       // little-endian unsigned, 0x...
  kTime,      // UTC seconds, as a calendar time
  kFloat,     // IEEE 754 single
};

struct FieldSpan {
  const char* name;
  size_t offset;
  size_t size;   // of one element
  size_t count;  // elements: more than 1 for an array, named name[i]
  FieldShow show;
};

struct RecordFields {
  const FieldSpan* fields;
  size_t count;
  size_t recordSize;
};

extern const RecordFields kIndexFileHeadFields;
extern const RecordFields kDataFileHeadFields;
extern const RecordFields kRecSegmentFields;
extern const RecordFields kJpgSegmentFields;
extern const RecordFields kAuxHeadFields;
extern const RecordFields kAuxContextFields;

struct Difference {
  std::string fields;  // "dataOffset, timeInfo.endTime"
  std::string values;  // "dataOffset 0x1 (recordIndexFile 0x2), ..."
};

// The fields in which `found` differs from `other`, a record of the same
// kind read from the index file named `otherName`. At most a few are shown
// with their values; the rest are counted.
Difference difference(const RecordFields& record, const unsigned char* found,
                      const unsigned char* other, const char* otherName);

}  // namespace tr

#endif  // TRELLIS_CHECK_RECORD_FIELDS_H_
