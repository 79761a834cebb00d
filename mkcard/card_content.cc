#include "mkcard/card_content.h"

#include <cstring>

namespace tr {

void CardContent::indexFileHead(const IndexFilePlace& file,
                                tr_IndexFileHead* head) const {
  std::memcpy(head->magicWord, kIndexFileMagic, sizeof head->magicWord);
  head->fileType = static_cast<uint8_t>(file.def->kind);
  head->maxFileNum = layout_.dims.files;
  head->maxSegmentNum = layout_.dims.segments;
  head->maxAuxNumber = layout_.dims.aux;
  head->auxNum = 1;
  head->fileSize = layout_.head.idxFileSize;
  head->startTime = startTime_;
}

void CardContent::dataFileHead(const IndexFilePlace&, uint32_t fileNum,
                               tr_DataFileHead* head) const {
  std::memcpy(head->magicWord, kDataFileMagic, sizeof head->magicWord);
  head->validity = 1;  // free for writing
  head->fileNum = fileNum;
}

void CardContent::recSegmentInfo(const IndexFilePlace&, uint32_t, uint32_t,
                                 tr_RecDataFileInfo* info) const {
  std::memcpy(info->magicWord, kSegmentInfoMagic, sizeof info->magicWord);
}

void CardContent::jpgSegmentInfo(const IndexFilePlace&, uint32_t, uint32_t,
                                 tr_JPGDataFileInfo* info) const {
  std::memcpy(info->magicWord, kSegmentInfoMagic, sizeof info->magicWord);
}

void CardContent::auxHead(const IndexFilePlace&, uint32_t,
                          IndexFileAuxiliaryHead*) const {}

void CardContent::auxContext(const IndexFilePlace&, uint32_t, uint32_t,
                             IndexFileAuxiliaryContext*) const {}

}  // namespace tr
