// Writes a laid-out card: the storage head at byte 51200 and, in each of the
// four index files, the header, the data-file area (every data file head
// and segment info) and the whole auxiliary region. Records are asked of a
// CardContent one by one and streamed out in card order through a buffer of
// fixed size, so memory does not grow with the card.
#ifndef TRELLIS_MKCARD_INDEX_WRITER_H_
#define TRELLIS_MKCARD_INDEX_WRITER_H_

#include "mkcard/card_content.h"
#include "mkcard/layout.h"
#include "mkcard/target.h"

namespace tr {

// 0, or -1 after the failed write was reported.
int writeCard(CardTarget* target, const CardLayout& layout,
              const CardContent& content);

}  // namespace tr

#endif  // TRELLIS_MKCARD_INDEX_WRITER_H_
