// The change lines: after a writing command has succeeded, one line on
// standard output for each field it changed, with the old and the new value
// ("recordIndexFile auxNum: 9 -> 1"). They are read off the bytes each write
// replaced and wrote, so every writing command reports alike.
#ifndef TRELLIS_REPAIR_CHANGE_LINES_H_
#define TRELLIS_REPAIR_CHANGE_LINES_H_

#include <vector>

#include "repair/journal.h"

namespace tr {

// The record of each write is told by its place in the start-up layout: the
// storage head, an index file header, an auxiliary head. Index files are
// named as the help text names them. A write elsewhere is shown as bytes.
void printChangeLines(const std::vector<DeviceWrite>& writes);

}  // namespace tr

#endif  // TRELLIS_REPAIR_CHANGE_LINES_H_
