#include "extract/picture_extract.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "base/output.h"
#include "base/platform.h"
#include "base/stream.h"
#include "extract/output_file.h"
#include "extract/segment_extract.h"
#include "format/data_files.h"

namespace tr {
namespace {

// Seeks the source to the picture's first byte. A start past the end of
// the 64-bit range lies in no file; it is refused as what it is.
bool seekPicture(const Stream& source, uint32_t picNum,
                 uint64_t fragmentOffset, uint64_t before) {
  const uint64_t offset = fragmentOffset + before;
  if (offset < before) {
    err("[ERROR] Image %u: fragmentOffset 0x%016llx + 0x%llx passes the end "
        "of the 64-bit range\n",
        picNum, static_cast<unsigned long long>(fragmentOffset),
        static_cast<unsigned long long>(before));
    return false;
  }
  if (sys.fseek(source.get(), offset) == 0) return true;
  const int error = errno;
  err("[ERROR] Seek failed @ 0x%016llx (errno %d)\n",
      static_cast<unsigned long long>(offset), error);
  return false;
}

// Bytes the data file holds from `offset` on, as far as `size`.
uint32_t available(const Stream& source, uint64_t offset, uint32_t size) {
  struct stat st;
  if (sys.fstat(fileno(source.get()), &st) != 0) return size;
  const uint64_t end = static_cast<uint64_t>(st.st_size);
  if (end <= offset) return 0;
  return end - offset < size ? static_cast<uint32_t>(end - offset) : size;
}

void reportCreateFailure(const std::string& path, int error) {
  err("[ERROR] Failed to create %s (errno %d)\n", path.c_str(), error);
}

// The picture is copied in blocks, so memory stays small whatever size
// the segment info claims. A damaged data file must still leave no file
// behind that looks like a picture: a data file too short for the picture
// is found from its size before the output is created, and a read that
// falls short during the copy (an I/O error, a file cut meanwhile)
// removes the output again.
int savePicture(const std::string& sourcePath, const std::string& outputPath,
                uint32_t picNum, uint64_t fragmentOffset, uint64_t before,
                uint32_t size) {
  InterruptScope interrupts;
  Stream source;
  if (!openDataFile(sourcePath, &source)) return -1;
  if (!seekPicture(source, picNum, fragmentOffset, before)) return -1;
  const size_t block = size < kCopyBufferSize ? size : kCopyBufferSize;
  HeapBuffer buffer(block);
  if (!buffer.valid()) {
    err("[ERROR] Alloc %zu bytes failed\n", block);
    return -1;
  }
  const uint32_t held = available(source, fragmentOffset + before, size);
  if (held != size) {
    err("[ERROR] Read incomplete (%zu/%u bytes)\n", static_cast<size_t>(held),
        size);
    return -1;
  }
  OutputFile output(outputPath);
  if (output.open(source, reportCreateFailure) == -1) return -1;
  const CopyOutcome copy =
      copyRange(source.get(), output.get(), buffer.data(), size);
  buffer.release();
  source.close();
  const size_t copied = static_cast<size_t>(copy.written);
  if (copy.end == CopyEnd::kInterrupted) {
    reportInterrupted(&output, outputPath);
    return -1;
  }
  if (copy.end == CopyEnd::kEndOfFile || copy.end == CopyEnd::kReadError) {
    output.discard();
    err("[ERROR] Read incomplete (%zu/%u bytes)\n", copied, size);
    return -1;
  }
  // A close that fails may have lost what the writes handed over.
  if (output.close() != 0 || copy.end == CopyEnd::kWriteError) {
    err("[ERROR] Write incomplete (%zu/%u bytes)\n", copied, size);
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
  // Pictures past the 60th cannot be located.
  const uint32_t last = static_cast<uint32_t>(pictureCount(*info));
  if (picNum == 0 || picNum > last) {
    err("[ERROR] Invalid picNum %u (valid range: 1-%u)\n", picNum, last);
    return -1;
  }
  const std::string sourcePath = dataFilePath(fileNum, kPictureDataSuffix);
  const std::string outputPath = tr::outputPath(
      formatString("%05d_%04d_%02u.jpg", fileNum, segmentNum, picNum));

  const uint64_t before = pictureStart(*info, static_cast<int>(picNum - 1));
  const uint32_t size = info->imageDetails[picNum - 1].jpgSize;
  if (before + size > info->fragmentSize) {
    err("[ERROR] Image %u exceeds fragment boundary\n", picNum);
    return -1;
  }
  return savePicture(sourcePath, outputPath, picNum, info->fragmentOffset,
                     before, size);
}

}  // namespace tr
