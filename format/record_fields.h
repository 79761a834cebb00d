// Every field of each index record by name, place and kind of value, for
// naming what differs between two copies of a record or what a write
// changed. The tables are built from the record structs (offsetof, sizeof)
// and cover every byte of their record, gaps and reserved bytes included,
// so no difference goes unnamed.
#ifndef TRELLIS_FORMAT_RECORD_FIELDS_H_
#define TRELLIS_FORMAT_RECORD_FIELDS_H_

#include <cstddef>
#include <cstdint>

namespace tr {

enum class FieldShow : uint8_t {
  kBytes,     // raw bytes
  kText,      // text up to its first NUL (the magic words)
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

extern const RecordFields kTrellisHeadFields;
extern const RecordFields kIndexFileHeadFields;
extern const RecordFields kDataFileHeadFields;
extern const RecordFields kRecSegmentFields;
extern const RecordFields kJpgSegmentFields;
extern const RecordFields kAuxHeadFields;
extern const RecordFields kAuxContextFields;

// The number one element of `field` holds at `bytes` (its first 8 bytes at
// most), unsigned or with its sign extended.
uint64_t fieldNumber(const FieldSpan& field, const unsigned char* bytes);
int64_t fieldSigned(const FieldSpan& field, const unsigned char* bytes);

}  // namespace tr

#endif  // TRELLIS_FORMAT_RECORD_FIELDS_H_
