// The export: a customer's footage, chosen by channel and time, copied out
// of the card as the recorder stored it (never re-encoded) into a
// directory of its own, with proof of what was copied from where.
//
// For each chosen channel its record segments go out in time order, across
// data files; segments of one recording (each starting within 2 s of the
// end of the one before, with the same codec and picture size) go into one
// file, cut to the window at I-frames. Each picture of the chosen picture
// segments in the window goes out as a JPEG of its own. A segment info
// whose magic word is wrong or whose media leave the data file is taken
// from the backup index file when the backup's copy passes those checks;
// when neither is usable the segment is skipped, with its reason.
//
// The directory then holds SHA256SUMS (`sha256sum -c SHA256SUMS` checks
// every file) and manifest.json: the tool, the device, its storage head,
// the filters, when the export began and ended, and for each file its
// channel, span, codec, size, SHA-256 and every range of the card it came
// from. Nothing is written anywhere else: the device is opened read-only,
// the media directory and the card's own file system are refused as the
// directory, and every file is made under a temporary name, made durable,
// and named only once whole, never over an existing one.
#ifndef TRELLIS_EXPORT_EXPORT_H_
#define TRELLIS_EXPORT_EXPORT_H_

#include <string>

#include "format/segment_filter.h"

namespace tr {

struct ExportSettings {
  std::string dir;
  SegmentFilter filter;
};

// Exit statuses: everything chosen exported; some segment or picture
// skipped (each said on standard error and in the manifest); a directory
// that cannot be used, a card that cannot be read, a file that cannot be
// written. Ctrl-C and SIGTERM end the export with 130 and 143, the file
// being written removed and the files done so far in the proof.
constexpr int kExportDone = 0;
constexpr int kExportSkipped = 1;
constexpr int kExportFailed = 2;

int runExport(const ExportSettings& settings);

}  // namespace tr

#endif  // TRELLIS_EXPORT_EXPORT_H_
