// The records the builder writes, asked for one at a time in card order.
// The base class describes a freshly formatted card: every index file with
// a valid header, every data file head and segment info with its magic word
// but free and unused, every auxiliary empty. Sample mode overrides it with
// recordings (mkcard/sample_content.h).
#ifndef TRELLIS_MKCARD_CARD_CONTENT_H_
#define TRELLIS_MKCARD_CARD_CONTENT_H_

#include <cstdint>

#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "mkcard/layout.h"

namespace tr {

// Each call fills a record the caller has cleared to zero. Numbers are
// 1-based, as the console's commands take them.
class CardContent {
 public:
  CardContent(const CardLayout& layout, int64_t startTime)
      : layout_(layout), startTime_(startTime) {}
  virtual ~CardContent() = default;

  virtual void indexFileHead(const IndexFilePlace& file,
                             tr_IndexFileHead* head) const;
  virtual void dataFileHead(const IndexFilePlace& file, uint32_t fileNum,
                            tr_DataFileHead* head) const;
  virtual void recSegmentInfo(const IndexFilePlace& file, uint32_t fileNum,
                              uint32_t segmentNum,
                              tr_RecDataFileInfo* info) const;
  virtual void jpgSegmentInfo(const IndexFilePlace& file, uint32_t fileNum,
                              uint32_t segmentNum,
                              tr_JPGDataFileInfo* info) const;
  virtual void auxHead(const IndexFilePlace& file, uint32_t auxNum,
                       IndexFileAuxiliaryHead* head) const;
  virtual void auxContext(const IndexFilePlace& file, uint32_t auxNum,
                          uint32_t ctxNum,
                          IndexFileAuxiliaryContext* context) const;

 protected:
  const CardLayout& layout_;
  int64_t startTime_;
};

}  // namespace tr

#endif  // TRELLIS_MKCARD_CARD_CONTENT_H_
