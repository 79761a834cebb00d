// The sample card's data files: the record data files with each segment's
// media followed by its I-frame table, and the picture data files with each
// segment's pictures back to back, at the offsets the segment infos name.
#ifndef TRELLIS_MKCARD_SAMPLE_MEDIA_H_
#define TRELLIS_MKCARD_SAMPLE_MEDIA_H_

#include <string>

#include "mkcard/sample_plan.h"

namespace tr {

// Checks, before anything is written, that the sample's data files may be
// written to `dir`: none exists with content unless `force`, and nothing
// else stands in the way. 0, or -1 after a message.
int checkMediaDir(const std::string& dir, const SamplePlan& plan, bool force);

// Creates `dir` (and missing parents) and writes every data file of the
// plan. 0, or -1 after a message.
int writeSampleMedia(const std::string& dir, const SamplePlan& plan);

}  // namespace tr

#endif  // TRELLIS_MKCARD_SAMPLE_MEDIA_H_
