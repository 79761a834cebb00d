#include "format/rec_data_file_info.h"

#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "maintain/device.h"
#include "maintain/output.h"

namespace tr {

int _tr_maintainGetDataFileInfo(uint32_t kind, uint32_t fileNum,
                                uint32_t segmentNum, uint64_t offset,
                                void* info) {
  if (info == nullptr) {
    char stamp[64];
    _tr_maintainGetColoredTimestamp(stamp, sizeof stamp);
    err("%s \033[31m_tr_maintainGetDataFileInfo info is null\033[0m\n", stamp);
    return -1;
  }
  tr_IndexFileHead header;
  const int fd = openIndexFile(offset, &header);
  if (fd == -1) return -1;
  if (!checkIndexNumber("fileNum", fileNum, "maxFileNum", header.maxFileNum) ||
      !checkIndexNumber("segmentNum", segmentNum, "maxSegmentNum",
                        header.maxSegmentNum)) {
    _tr_maintainCloseDevice(fd, false);
    return -1;
  }
  const uint64_t target = segmentInfoOffset(offset, kind, header.maxSegmentNum,
                                            fileNum, segmentNum);
  return readTargetAndClose(fd, target, info, segmentInfoSize(kind));
}

}  // namespace tr
