// The sample card's index records: the recordings of a SamplePlan on top of
// a freshly formatted card. Segment infos of the segments in use carry every
// validity group with realistic values; data file heads, channel write
// indexes and the current auxiliary with its contexts agree with them.
//
// Records as found on cards in the field: the picture backup index file is
// marked abnormal (magic word cleared, exception flag set), record data file
// 2 ends in an incomplete segment followed by one not in use, record data
// file 4 is marked invalid, and the record index file holds the dataOffset
// of record segment 3/2 with a flipped bit, past the end of its data file,
// where the backup holds the right one. Apart from these two records every
// backup equals its primary.
#ifndef TRELLIS_MKCARD_SAMPLE_CONTENT_H_
#define TRELLIS_MKCARD_SAMPLE_CONTENT_H_

#include "mkcard/card_content.h"
#include "mkcard/sample_plan.h"

namespace tr {

class SampleContent : public CardContent {
 public:
  // `plan` must outlive the content.
  SampleContent(const CardLayout& layout, const SamplePlan& plan)
      : CardContent(layout, plan.startTime), plan_(plan) {}

  void indexFileHead(const IndexFilePlace& file,
                     tr_IndexFileHead* head) const override;
  void dataFileHead(const IndexFilePlace& file, uint32_t fileNum,
                    tr_DataFileHead* head) const override;
  void recSegmentInfo(const IndexFilePlace& file, uint32_t fileNum,
                      uint32_t segmentNum,
                      tr_RecDataFileInfo* info) const override;
  void jpgSegmentInfo(const IndexFilePlace& file, uint32_t fileNum,
                      uint32_t segmentNum,
                      tr_JPGDataFileInfo* info) const override;
  void auxHead(const IndexFilePlace& file, uint32_t auxNum,
               IndexFileAuxiliaryHead* head) const override;
  void auxContext(const IndexFilePlace& file, uint32_t auxNum, uint32_t ctxNum,
                  IndexFileAuxiliaryContext* context) const override;

 private:
  const SamplePlan& plan_;
};

}  // namespace tr

#endif  // TRELLIS_MKCARD_SAMPLE_CONTENT_H_
