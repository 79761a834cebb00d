#include "console/completion.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <algorithm>

#include "base/platform.h"
#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/device_layout.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "maintain/commands.h"

namespace tr {
namespace {

// At most so many records are read for one Tab, and offered.
constexpr uint32_t kMostRead = 65536;

// The device, read without a word on failure.
class QuietCard {
 public:
  QuietCard()
      : fd_(::open(deviceName.c_str(),
                   O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
  ~QuietCard() {
    if (fd_ >= 0) ::close(fd_);
  }
  QuietCard(const QuietCard&) = delete;
  QuietCard& operator=(const QuietCard&) = delete;

  bool read(uint64_t offset, void* dest, size_t size) const {
    return fd_ >= 0 && offset <= static_cast<uint64_t>(INT64_MAX) &&
           ::pread(fd_, dest, size, static_cast<off_t>(offset)) ==
               static_cast<ssize_t>(size);
  }

 private:
  int fd_;
};

// The header of the index file a command works on, when its data files fit
// before its auxiliary region.
bool readHead(const QuietCard& card, const IndexFileDef& file,
              tr_IndexFileHead* head) {
  return card.read(indexFileStart(file, trellisHead), head, sizeof *head) &&
         dataFileAreaFits(*head, file.kind, trellisHead.idxFileSize);
}

uint32_t number(const std::string& word) {
  return static_cast<uint32_t>(commandNumber(word.c_str()));
}

// The numbers the card holds for argument `arg` of `row`, the numbers
// given before it being `given`.
std::vector<uint32_t> numbers(const CommandRow& row, const std::string& arg,
                              const std::vector<std::string>& given) {
  std::vector<uint32_t> found;
  const QuietCard card;
  tr_IndexFileHead head;
  if (row.file == nullptr || !readHead(card, *row.file, &head)) return found;
  const uint64_t base = indexFileStart(*row.file, trellisHead);
  const uint32_t kind = row.file->kind;
  const bool auxFits = trellisHead.idxFileSize >= kAuxRegionSize;
  if (arg == "fileNum") {
    for (uint32_t f = 1; f <= head.maxFileNum && f <= kMostRead; ++f) {
      tr_DataFileHead dataHead;
      if (!card.read(dataFileHeadOffset(base, kind, head.maxSegmentNum, f),
                     &dataHead, sizeof dataHead)) {
        break;
      }
      if (dataHead.inUse != 0) found.push_back(f);
    }
  } else if (arg == "segmentNum") {
    const uint32_t f = number(given[0]);
    if (f < 1 || f > head.maxFileNum) return found;
    unsigned char info[sizeof(tr_JPGDataFileInfo)];
    for (uint32_t s = 1; s <= head.maxSegmentNum && s <= kMostRead; ++s) {
      if (!card.read(segmentInfoOffset(base, kind, head.maxSegmentNum, f, s),
                     info, segmentInfoSize(kind))) {
        break;
      }
      if (segmentInUse(info)) found.push_back(s);
    }
  } else if (arg == "picNum") {
    const uint32_t f = number(given[0]);
    const uint32_t s = number(given[1]);
    tr_JPGDataFileInfo info;
    if (kind == kPictureKind && f >= 1 && f <= head.maxFileNum && s >= 1 &&
        s <= head.maxSegmentNum &&
        card.read(segmentInfoOffset(base, kind, head.maxSegmentNum, f, s),
                  &info, sizeof info)) {
      for (int p = 1; p <= pictureCount(info); ++p) found.push_back(p);
    }
  } else if (arg == "auxNum" && auxFits) {
    for (uint32_t a = 1; a <= auxNumBound(head.maxAuxNumber); ++a) {
      IndexFileAuxiliaryHead aux;
      if (!card.read(auxHeadOffset(base, trellisHead.idxFileSize, a), &aux,
                     sizeof aux)) {
        break;
      }
      if (aux.isUsed != 0) found.push_back(a);
    }
  } else if (arg == "ctxNum" && auxFits) {
    const uint32_t a = number(given[0]);
    for (uint32_t c = 1; a >= 1 && a <= auxNumBound(head.maxAuxNumber) &&
                         c <= kContextsPerAuxiliary;
         ++c) {
      IndexFileAuxiliaryContext context;
      if (!card.read(auxContextOffset(base, trellisHead.idxFileSize, a, c),
                     &context, sizeof context)) {
        break;
      }
      if (context.isUsed != 0) found.push_back(c);
    }
  }
  return found;
}

void offer(const std::string& candidate, const std::string& prefix,
           std::vector<std::string>* candidates) {
  if (candidate.compare(0, prefix.size(), prefix) == 0) {
    candidates->push_back(candidate);
  }
}

}  // namespace

void completeLine(const std::string& before,
                  std::vector<std::string>* candidates, std::string* note) {
  candidates->clear();
  note->clear();
  const size_t space = before.find_last_of(" \t");
  const std::string word =
      space == std::string::npos ? before : before.substr(space + 1);
  // The words before it, split as the console splits a line.
  std::vector<std::string> words;
  const std::string typed = before.substr(0, before.size() - word.size());
  for (size_t at = 0; (at = typed.find_first_not_of(" \t", at)) != std::string::npos;) {
    const size_t end = std::min(typed.find_first_of(" \t", at), typed.size());
    words.push_back(typed.substr(at, end - at));
    at = end;
  }
  if (words.empty()) {
    for (const char* first : {"exit", "maintain"}) offer(first, word, candidates);
    return;
  }
  if (words[0] != "maintain") return;
  if (words.size() == 1) {
    for (const CommandRow& row : kCommands) offer(row.word, word, candidates);
    return;
  }
  const CommandRow* row = commandNamed(words[1].c_str());
  if (row == nullptr) return;
  *note = commandUsage(*row) + ": " + row->description;
  const ArgumentList args = argumentsOf(row->args);
  const size_t at = words.size() - 2;
  if (at >= static_cast<size_t>(args.count)) return;
  const std::vector<std::string> given(words.begin() + 2, words.end());
  for (uint32_t n : numbers(*row, args.items[at]->name, given)) {
    offer(std::to_string(n), word, candidates);
  }
}

}  // namespace tr
