#include <cstring>

#include "base/platform.h"
#include "console/console.h"

namespace tr {
namespace {

void* zeroed(size_t bytes) {
  void* block = sys.malloc(bytes);
  if (block != nullptr) std::memset(block, 0, bytes);
  return block;
}

}  // namespace

int _tr_argvFieldSeperator(char c) {
  return c == '\0' || c == ' ' || c == '\t' ? 1 : 0;
}

tr_LineParser* _tr_lineParser(const char* line, int32_t len) {
  if (line == nullptr || len < 0) return nullptr;
  auto* record = static_cast<tr_LineParser*>(zeroed(sizeof(tr_LineParser)));
  if (record == nullptr) return nullptr;

  // First pass: count the words and the bytes they need with their NULs.
  bool inWord = false;
  for (int32_t i = 0; i <= len; ++i) {
    if (!_tr_argvFieldSeperator(line[i])) {
      ++record->argBufLen;
      if (!inWord) ++record->argc;
      inWord = true;
    } else if (inWord) {
      ++record->argBufLen;
      inWord = false;
    }
  }
  // A caller whose text does not end in NUL at `len` still gets its last
  // word terminated.
  if (inWord) ++record->argBufLen;
  if (record->argc == 0) {
    sys.free(record);
    return nullptr;
  }

  record->argv = static_cast<char**>(
      zeroed(sizeof(char*) * static_cast<size_t>(record->argc)));
  record->argBuf =
      static_cast<char*>(zeroed(static_cast<size_t>(record->argBufLen)));
  if (record->argv == nullptr || record->argBuf == nullptr) {
    _tr_freeLineParser(record);
    return nullptr;
  }

  // Second pass: copy the words back to back.
  int32_t word = 0;
  int32_t used = 0;
  inWord = false;
  for (int32_t i = 0; i <= len; ++i) {
    if (!_tr_argvFieldSeperator(line[i])) {
      if (!inWord) record->argv[word++] = record->argBuf + used;
      record->argBuf[used++] = line[i];
      inWord = true;
    } else if (inWord) {
      record->argBuf[used++] = '\0';
      inWord = false;
    }
  }
  if (inWord) record->argBuf[used] = '\0';
  return record;
}

int _tr_freeLineParser(tr_LineParser* record) {
  if (record == nullptr) return -1;
  sys.free(record->argBuf);
  sys.free(record->argv);
  sys.free(record);
  return 0;
}

}  // namespace tr
