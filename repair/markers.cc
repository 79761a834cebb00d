#include "repair/markers.h"

#include <cstring>

#include "base/device.h"
#include "format/trellis_head.h"

namespace tr {
namespace {

using MagicWord = char[sizeof(tr_IndexFileHead::magicWord)];

static_assert(sizeof(kIndexFileMagic) == sizeof(MagicWord),
              "the magic word is stored with its NUL");

constexpr MagicWord kClearedMagic = {};

// One read-modify-write of a header: only the magic word is replaced.
int rewriteMagicWord(uint64_t offset, const MagicWord& magic) {
  tr_IndexFileHead header;
  const int fd = openHeaderForRewrite(offset, &header);
  if (fd == -1) return -1;
  std::memcpy(header.magicWord, magic, sizeof header.magicWord);
  if (_tr_maintainWriteDevice(fd, offset, &header, sizeof header, true) ==
      -1) {
    return -1;
  }
  return _tr_maintainCloseDevice(fd, true);
}

}  // namespace

int openHeaderForRewrite(uint64_t base, tr_IndexFileHead* header) {
  std::memset(header, 0, sizeof *header);
  const int fd = _tr_maintainOpenDevice(DeviceMode::kReadWrite);
  if (fd == -1) return -1;
  if (_tr_maintainReadDevice(fd, base, header, sizeof *header,
                             "tr_IndexFileHead targetOffset", kReadSeekTitle,
                             true) == -1) {
    return -1;
  }
  return fd;
}

int _tr_maintainIndexFileException(uint64_t offset) {
  return rewriteMagicWord(offset, kClearedMagic);
}

int _tr_maintainIndexFileNormal(uint64_t offset) {
  return rewriteMagicWord(offset, kIndexFileMagic);
}

int _tr_maintainMemsetTrellisHead() {
  tr_TrellisHead head;
  std::memset(&head, 0, sizeof head);
  const int fd = _tr_maintainOpenDevice(DeviceMode::kReadWrite);
  if (fd == -1) return -1;
  // The storage head's place is fixed, so its failures carry no offset.
  if (_tr_maintainWriteDevice(fd, kTrellisHeadOffset, &head, sizeof head,
                              false) == -1) {
    return -1;
  }
  return _tr_maintainCloseDevice(fd, true);
}

}  // namespace tr
