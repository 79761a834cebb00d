#include "mkcard/layout.h"

#include <limits>

#include "base/output.h"
#include "format/device_layout.h"
#include "format/index_layout.h"

namespace tr {
namespace {

constexpr uint64_t kNoFit = std::numeric_limits<uint64_t>::max();

unsigned long long ull(uint64_t value) {
  return static_cast<unsigned long long>(value);
}

// The index file size a card of `capacity` bytes gets, 0 when its reserve
// does not even reach the first index file (where start-up's sums wrap).
uint64_t indexFileSize(uint64_t capacity) {
  if (_tr_maintainGetReserveSpaceSzie(capacity) < kFirstIndexFileOffset) {
    return 0;
  }
  return computeTrellisHead(capacity).idxFileSize;
}

// Bytes an index file needs for these dimensions, kNoFit past 64 bits.
uint64_t neededIndexFileSize(const CardDimensions& dims) {
  const uint64_t area = dataAreaEnd(kPictureKind, dims);
  if (area > kNoFit - kAuxRegionSize) return kNoFit;
  return area + kAuxRegionSize;
}

const char* kindName(uint32_t kind) {
  return kind == kRecordKind ? "record" : "picture";
}

void reportTooSmall(uint64_t capacity, uint64_t fileSize,
                    const CardDimensions& dims) {
  err("trellis-mkcard: a card of %llu bytes is too small for the Trellis "
      "layout: its index files would be %llu bytes each (2 percent of the "
      "card, less the first %llu bytes, split in four), but each needs "
      "%llu bytes for its header and auxiliary region alone\n",
      ull(capacity), ull(fileSize), ull(kFirstIndexFileOffset),
      ull(kIndexFileHeadSize + kAuxRegionSize));
  const uint64_t minimum = minimumCapacity(dims);
  if (minimum != 0) {
    err("trellis-mkcard: %u data files of %u segments need a card of at "
        "least %llu bytes\n",
        dims.files, dims.segments, ull(minimum));
  }
}

// The most segments per data file that fit before `auxStart`.
uint64_t segmentsThatFit(uint32_t kind, uint32_t files, uint64_t auxStart) {
  if (auxStart < kIndexFileHeadSize) return 0;
  const uint64_t perFile = (auxStart - kIndexFileHeadSize) / files;
  if (perFile < kDataFileHeadSize) return 0;
  return (perFile - kDataFileHeadSize) / segmentInfoSize(kind);
}

void reportOverlap(uint32_t kind, const CardLayout& layout, uint64_t end,
                   uint64_t auxStart) {
  const CardDimensions& dims = layout.dims;
  err("trellis-mkcard: %u data files of %u segments do not fit: in each "
      "index file the %s data-file area (264 + %u x (32 + %u x %llu) bytes) "
      "would end %s byte %llu, past the start of the auxiliary region at "
      "byte %llu (index files of %llu bytes on a card of %llu bytes)\n",
      dims.files, dims.segments, kindName(kind), dims.files, dims.segments,
      ull(segmentInfoSize(kind)), end == kNoFit ? "beyond" : "at", ull(end),
      ull(auxStart), ull(layout.head.idxFileSize), ull(layout.capacity));
}

// What would fit instead. The picture segment infos are the larger, so
// their area decides.
void reportRemedy(const CardLayout& layout, uint64_t auxStart) {
  const CardDimensions& dims = layout.dims;
  const uint64_t fit = segmentsThatFit(kPictureKind, dims.files, auxStart);
  if (fit == 0) {
    err("trellis-mkcard: with %u data files not one segment per file fits "
        "on this card",
        dims.files);
  } else {
    err("trellis-mkcard: with %u data files at most %llu segments per file "
        "fit on this card",
        dims.files, ull(fit));
  }
  const uint64_t minimum = minimumCapacity(dims);
  if (minimum != 0) {
    err("; %u segments need a card of at least %llu bytes", dims.segments,
        ull(minimum));
  }
  err("\n");
}

}  // namespace

uint64_t dataAreaEnd(uint32_t kind, const CardDimensions& dims) {
  return dataFileAreaEnd(kind, dims.files, dims.segments);
}

uint64_t minimumCapacity(const CardDimensions& dims) {
  const uint64_t needed = neededIndexFileSize(dims);
  // The reserve is 2 percent of the card: 51328 bytes and four index files.
  if (needed > (kNoFit / 50 - kFirstIndexFileOffset) / 4) return 0;
  uint64_t capacity = (kFirstIndexFileOffset + 4 * needed) * 50;
  // Start-up computes in double precision; step over its rounding.
  for (int i = 0; i < 1000 && indexFileSize(capacity) < needed; ++i) {
    ++capacity;
  }
  for (int i = 0; i < 1000 && indexFileSize(capacity - 1) >= needed; ++i) {
    --capacity;
  }
  return indexFileSize(capacity) >= needed ? capacity : 0;
}

int planCard(uint64_t capacity, const CardDimensions& dims,
             CardLayout* layout) {
  layout->capacity = capacity;
  layout->dims = dims;
  const uint64_t fileSize = indexFileSize(capacity);
  if (fileSize < kIndexFileHeadSize + kAuxRegionSize) {
    reportTooSmall(capacity, fileSize, dims);
    return -1;
  }
  layout->head = computeTrellisHead(capacity);
  const tr_TrellisHead& head = layout->head;
  for (int i = 0; i < kIndexFileCount; ++i) {
    layout->files[i] = {&kIndexFiles[i], indexFileStart(kIndexFiles[i], head)};
  }

  // Relative to the index file's start; the same for all four.
  const uint64_t auxStart = auxRegionStart(0, head.idxFileSize);
  bool fits = true;
  for (const uint32_t kind : {kRecordKind, kPictureKind}) {
    const uint64_t end = dataAreaEnd(kind, dims);
    if (end > auxStart) {
      reportOverlap(kind, *layout, end, auxStart);
      fits = false;
    }
  }
  if (fits) return 0;
  reportRemedy(*layout, auxStart);
  return -1;
}

}  // namespace tr
