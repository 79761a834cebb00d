// Which fields of a backup record differ from its primary's, named by the
// record field tables of format/.
#ifndef TRELLIS_CHECK_RECORD_FIELDS_H_
#define TRELLIS_CHECK_RECORD_FIELDS_H_

#include <string>

#include "format/record_fields.h"

namespace tr {

struct Difference {
  std::string fields;  // "dataOffset, timeInfo.endTime"
  std::string values;  // "dataOffset 0x1 (recordIndexFile 0x2), ..."
};

// The fields in which `found` differs from `other`, a record of the same
// kind read from the index file named `otherName`. At most a few are shown
// with their values; the rest are counted.
Difference difference(const RecordFields& record, const unsigned char* found,
                      const unsigned char* other, const char* otherName);

// The fields a write of `after` over `before` (records of the same kind)
// changes, with both values: "dataOffset 0x1a9000 -> 0xa9000, ...". At
// most a few are shown; the rest are counted.
std::string changes(const RecordFields& record, const unsigned char* before,
                    const unsigned char* after);

}  // namespace tr

#endif  // TRELLIS_CHECK_RECORD_FIELDS_H_
