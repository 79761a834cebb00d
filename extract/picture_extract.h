// Saves one picture of a picture segment as a file of its own in the output
// directory, "<fileNum>_<segmentNum>_<picNum>.jpg". A segment's fragment
// holds up to 60 pictures back to back in "TR<fileNum>.picture"; picture n
// starts after the sizes of the pictures before it, as the segment info's
// imageDetails give them.
#ifndef TRELLIS_EXTRACT_PICTURE_EXTRACT_H_
#define TRELLIS_EXTRACT_PICTURE_EXTRACT_H_

#include <cstdint>

#include "format/jpg_data_file_info.h"

namespace tr {

// picNum counts from 1 and is taken unsigned, so a negative number is a
// large one and refused. Returns 0 when the whole picture reached the
// output file, else -1 after one "[ERROR]" line. A data file too short for
// the picture leaves no output file; Ctrl-C or SIGTERM remove it too.
int _tr_maintainGetOneJpgToFile(const tr_JPGDataFileInfo* info, int fileNum,
                                int segmentNum, uint32_t picNum);

}  // namespace tr

#endif  // TRELLIS_EXTRACT_PICTURE_EXTRACT_H_
