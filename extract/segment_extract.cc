#include "extract/segment_extract.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/output.h"
#include "base/platform.h"
#include "base/progress.h"
#include "base/stream.h"
#include "extract/output_file.h"
#include "format/data_files.h"

namespace tr {
namespace {

// What differs between a record segment and a picture segment. Both infos
// keep the start and the length as 64-bit fields.
struct SegmentKind {
  const char* function;  // named in the no-data line
  size_t startField;     // offset in the info of the start in the data file
  size_t lengthField;    // offset in the info of the length
  const char* dataSuffix;
  const char* outputSuffix;
};


constexpr SegmentKind kRecordSegment = {
    "_tr_maintainGetRecDataToFile", offsetof(tr_RecDataFileInfo, dataOffset),
    offsetof(tr_RecDataFileInfo, datalen), kRecordDataSuffix, ".mp4"};
constexpr SegmentKind kPictureSegment = {
    "_tr_maintainGetJpgDataToFile",
    offsetof(tr_JPGDataFileInfo, fragmentOffset),
    offsetof(tr_JPGDataFileInfo, fragmentSize), kPictureDataSuffix, ".jpg"};

uint64_t field64(const unsigned char* record, size_t at) {
  uint64_t value;
  std::memcpy(&value, record + at, sizeof value);
  return value;
}

void reportCreateFailure(const std::string& path, int) {
  err("[ERROR] Failed to create output file: %s\n", path.c_str());
}

// The copy's own failures, as the copy left them.
void reportCopyFailure(const CopyOutcome& copy) {
  errno = copy.error;
  if (copy.end == CopyEnd::kEndOfFile) {
    err("[ERROR] Unexpected EOF (remaining: %llu bytes)\n",
        static_cast<unsigned long long>(copy.remaining));
  } else if (copy.end == CopyEnd::kReadError) {
    errPerror("[ERROR] Read operation failed");
  } else if (copy.end == CopyEnd::kWriteError) {
    errPerror("[ERROR] Write operation failed");
  }
}

// Failure paths before the copy leave the streams to their holders; after
// it everything is released and closed explicitly, the output's close
// checked. Ctrl-C or SIGTERM during the extraction removes the output.
int extractSegment(const SegmentKind& kind, const void* info, int fileNum,
                   int segmentNum) {
  const unsigned char* record = static_cast<const unsigned char*>(info);
  if (record == nullptr || !segmentInUse(record)) {
    out("[ERROR] %s This segment has no data\n", kind.function);
    return -1;
  }
  const uint64_t start = field64(record, kind.startField);
  const uint64_t length = field64(record, kind.lengthField);
  const std::string sourcePath = dataFilePath(fileNum, kind.dataSuffix);
  const std::string outputPath = tr::outputPath(
      formatString("%05d_%04d%s", fileNum, segmentNum, kind.outputSuffix));

  InterruptScope interrupts;
  Stream source;
  if (!openDataFile(sourcePath, &source)) return -1;
  if (sys.fseek(source.get(), start) != 0) {
    err("[ERROR] Seek failed at offset %llu\n",
        static_cast<unsigned long long>(start));
    return -1;
  }
  OutputFile output(outputPath);
  if (output.open(source, reportCreateFailure) == -1) return -1;
  HeapBuffer buffer(kCopyBufferSize);
  if (!buffer.valid()) {
    err("[ERROR] Memory allocation failed (%dMB request)\n",
        static_cast<int>(kCopyBufferSize / 1048576));
    return -1;
  }

  const CopyOutcome copy =
      copyRange(source.get(), output.get(), buffer.data(), length);
  buffer.release();
  source.close();
  if (copy.end == CopyEnd::kInterrupted) {
    reportInterrupted(&output, outputPath);
    return -1;
  }
  reportCopyFailure(copy);
  // The file system may report a lost write only when the file is closed.
  const bool closeFailed = output.close() != 0;
  if (closeFailed && copy.end != CopyEnd::kWriteError) {
    errPerror("[ERROR] Write operation failed");
  }
  if (copy.remaining != 0) {
    err("[ERROR] Incomplete extraction (missing: %llu bytes)\n",
        static_cast<unsigned long long>(copy.remaining));
    return -1;
  }
  if (closeFailed) return -1;
  out("[SUCCESS] Extracted %llu bytes to %s\n",
      static_cast<unsigned long long>(length), outputPath.c_str());
  return 0;
}

}  // namespace

CopyOutcome copyRange(FILE* source, FILE* output, void* buffer,
                      uint64_t length) {
  ProgressLine progress(length > kProgressThreshold);
  CopyOutcome outcome = {length, 0, CopyEnd::kDone, 0};
  while (outcome.remaining != 0) {
    if (InterruptScope::caught() != 0) {
      outcome.end = CopyEnd::kInterrupted;
      break;
    }
    const size_t chunk = outcome.remaining < kCopyBufferSize
                             ? static_cast<size_t>(outcome.remaining)
                             : kCopyBufferSize;
    const size_t got = sys.fread(buffer, 1, chunk, source);
    if (got == 0) {
      outcome.error = errno;
      outcome.end = std::feof(source) ? CopyEnd::kEndOfFile
                                      : CopyEnd::kReadError;
      break;
    }
    const size_t put = sys.fwrite(buffer, 1, got, output);
    outcome.written += put;
    if (put != got) {
      outcome.error = errno;
      outcome.end = CopyEnd::kWriteError;
      break;
    }
    outcome.remaining -= got;
    if (progress.due()) {
      const uint64_t copied = length - outcome.remaining;
      progress.draw(formatString(
          "%llu of %llu bytes (%.0f%%), %.1f MB/s",
          static_cast<unsigned long long>(copied),
          static_cast<unsigned long long>(length),
          100.0 * static_cast<double>(copied) / static_cast<double>(length),
          static_cast<double>(copied) / 1048576.0 / progress.elapsed()));
    }
  }
  // A read or write cut short by the signal counts as the interrupt.
  if (outcome.end != CopyEnd::kDone && InterruptScope::caught() != 0) {
    outcome.end = CopyEnd::kInterrupted;
  }
  progress.clear();
  return outcome;
}

void reportInterrupted(OutputFile* output, const std::string& path) {
  output->discard();
  err("[ERROR] Extraction interrupted: nothing was kept of %s\n",
      path.c_str());
}

int _tr_maintainGetRecDataToFile(const tr_RecDataFileInfo* info, int fileNum,
                                 int segmentNum) {
  return extractSegment(kRecordSegment, info, fileNum, segmentNum);
}

int _tr_maintainGetJpgDataToFile(const tr_JPGDataFileInfo* info, int fileNum,
                                 int segmentNum) {
  return extractSegment(kPictureSegment, info, fileNum, segmentNum);
}

}  // namespace tr
