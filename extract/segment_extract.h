// Copies the media of one segment out of its data file into a file of its
// own in the output directory: a record segment's audio/video from
// "TR<fileNum>.mp4" into "<fileNum>_<segmentNum>.mp4", a picture segment's
// fragment (its pictures back to back) from "TR<fileNum>.picture" into
// "<fileNum>_<segmentNum>.jpg". The segment info read from the index file
// gives where the media start in the data file and how long they are.
#ifndef TRELLIS_EXTRACT_SEGMENT_EXTRACT_H_
#define TRELLIS_EXTRACT_SEGMENT_EXTRACT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"

namespace tr {
class OutputFile;
}

namespace tr {

// The copy goes through one buffer of this size, whatever the length.
constexpr size_t kCopyBufferSize = 4194304;
// Copies longer than this show a progress line on a terminal.
constexpr uint64_t kProgressThreshold = 67108864;

// Both return 0 when the whole length reached the output file, else -1
// after one or more "[ERROR]" lines; a partial output file stays behind,
// except after Ctrl-C or SIGTERM, which remove it (after SIGTERM the
// console then ends). An existing output file is replaced.
int _tr_maintainGetRecDataToFile(const tr_RecDataFileInfo* info, int fileNum,
                                 int segmentNum);
int _tr_maintainGetJpgDataToFile(const tr_JPGDataFileInfo* info, int fileNum,
                                 int segmentNum);

// How a block copy ended.
enum class CopyEnd { kDone, kEndOfFile, kReadError, kWriteError, kInterrupted };

struct CopyOutcome {
  uint64_t remaining;  // bytes not written to the output
  uint64_t written;    // bytes written, a short write's part included
  CopyEnd end;
  int error;  // errno of the failed read or write
};

// Streams `length` bytes from the source's position to the output in
// blocks of at most kCopyBufferSize through `buffer`, which holds
// min(length, kCopyBufferSize) bytes. A short read is fine; a read of
// nothing ends the copy, as does a write that falls short (not counted)
// and a signal caught by an InterruptScope, looked at between blocks.
// Prints nothing but the progress line; the caller reports the outcome.
CopyOutcome copyRange(FILE* source, FILE* output, void* buffer,
                      uint64_t length);

// After a copy ended by a signal: removes the output file and says that
// nothing was kept.
void reportInterrupted(OutputFile* output, const std::string& path);

}  // namespace tr

#endif  // TRELLIS_EXTRACT_SEGMENT_EXTRACT_H_
