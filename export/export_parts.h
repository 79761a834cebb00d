// The two halves of an export, each through the whole card: the record
// segments (export/recordings.cc) and the pictures (export/pictures.cc).
#ifndef TRELLIS_EXPORT_EXPORT_PARTS_H_
#define TRELLIS_EXPORT_EXPORT_PARTS_H_

#include "export/session.h"

namespace tr {

void exportRecordings(ExportSession* session);
void exportPictures(ExportSession* session);

}  // namespace tr

#endif  // TRELLIS_EXPORT_EXPORT_PARTS_H_
