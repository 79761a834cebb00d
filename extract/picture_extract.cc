#include "extract/picture_extract.h"

#include <cerrno>
#include <cstdint>
#include <string>

#include "base/output.h"
#include "base/platform.h"
#include "base/stream.h"
#include "extract/output_file.h"
#include "format/data_files.h"

namespace tr {
namespace {

// Seeks the source to the picture's first byte. A start past the 64-bit
// range cannot be reached by any file and fails like a bad position.
bool seekPicture(const Stream& source, uint64_t fragmentOffset,
                 uint64_t before) {
  const uint64_t offset = fragmentOffset + before;
  if (offset >= before && sys.fseek(source.get(), offset) == 0) return true;
  const bool overflow = offset < before;
  const int error = overflow ? EOVERFLOW : errno;
  err("[ERROR] Seek failed @ 0x%016llx (errno %d)\n",
      static_cast<unsigned long long>(overflow ? UINT64_MAX : offset), error);
  return false;
}

void reportCreateFailure(const std::string& path, int error) {
  err("[ERROR] Failed to create %s (errno %d)\n", path.c_str(), error);
}

// Reads the picture whole, and only then creates the output, so a damaged
// data file leaves no file behind that looks like a picture.
int savePicture(const std::string& sourcePath, const std::string& outputPath,
                uint64_t fragmentOffset, uint64_t before, uint32_t size) {
  Stream source;
  if (!openDataFile(sourcePath, &source)) return -1;
  if (!seekPicture(source, fragmentOffset, before)) return -1;
  HeapBuffer picture(size);
  if (!picture.valid()) {
    err("[ERROR] Alloc %u bytes failed\n", size);
    return -1;
  }
  // An empty picture moves no bytes; the streams are still opened and
  // closed, so an empty output file is made as for any other picture.
  const size_t got =
      size == 0 ? 0 : sys.fread(picture.data(), 1, size, source.get());
  if (got != size) {
    err("[ERROR] Read incomplete (%zu/%u bytes)\n", got, size);
    return -1;
  }
  OutputFile output(outputPath);
  if (output.open(source, reportCreateFailure) == -1) return -1;
  const size_t written =
      size == 0 ? 0 : sys.fwrite(picture.data(), 1, size, output.get());
  if (written != size) {
    err("[ERROR] Write incomplete (%zu/%u bytes)\n", written, size);
    return -1;
  }
  picture.release();
  source.close();
  // A close that fails may have lost what the writes handed over.
  if (output.close() != 0) {
    err("[ERROR] Write incomplete (%zu/%u bytes)\n", written, size);
    return -1;
  }
  out("[SUCCESS] Saved %s (Size: %.2fMB)\n", outputPath.c_str(),
      static_cast<double>(size) / 1048576.0);
  return 0;
}

}  // namespace

int _tr_maintainGetOneJpgToFile(const tr_JPGDataFileInfo* info, int fileNum,
                                int segmentNum, uint32_t picNum) {
  if (info == nullptr || info->inUse == 0) {
    out("[ERROR] _tr_maintainGetOneJpgToFile This segment has no data\n");
    return -1;
  }
  // validNum is an 8-bit count but the info has room for 60 sizes only:
  // pictures past the 60th cannot be located.
  const uint32_t last = info->validNum < kMaxImageDetails
                            ? info->validNum
                            : static_cast<uint32_t>(kMaxImageDetails);
  if (picNum == 0 || picNum > last) {
    err("[ERROR] Invalid picNum %u (valid range: 1-%u)\n", picNum, last);
    return -1;
  }
  const std::string sourcePath = dataFilePath(fileNum, kPictureDataSuffix);
  const std::string outputPath = mediaPath(
      formatString("%05d_%04d_%02u.jpg", fileNum, segmentNum, picNum));

  uint64_t before = 0;
  for (uint32_t i = 0; i + 1 < picNum; ++i) {
    before += info->imageDetails[i].jpgSize;
  }
  const uint32_t size = info->imageDetails[picNum - 1].jpgSize;
  if (before + size > info->fragmentSize) {
    err("[ERROR] Image %u exceeds fragment boundary\n", picNum);
    return -1;
  }
  return savePicture(sourcePath, outputPath, info->fragmentOffset, before,
                     size);
}

}  // namespace tr
