#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/device.h"
#include "base/platform.h"
#include "format/device_layout.h"
#include "format/index_layout.h"
#include "maintain/commands.h"
#include "repair/change_lines.h"
#include "repair/journal.h"

namespace tr {
namespace {

const CommandRow* findCommand(const char* word, int count) {
  for (const CommandRow& row : kCommands) {
    if (wordCount(row.args) == count && std::strcmp(row.word, word) == 0) {
      return &row;
    }
  }
  return nullptr;
}

// A writing command: refused before anything is opened while the console
// is read-only; after success, the change lines of its writes (when kept).
int runWriter(const CommandRow& row, const CommandCall& call) {
  if (readOnly()) {
    reportReadOnly(std::string("maintain ") + row.word);
    return -1;
  }
  // A writer's read-modify-write is never cut in half by Ctrl-C.
  const SignalsHeld held;
  if (row.action(call) == -1) return -1;
  printChangeLines(deviceWrites());
  return 0;
}

}  // namespace

int32_t commandNumber(const char* word) {
  const long long value = std::strtoll(word, nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int32_t>(value);
}

int wordCount(ArgList args) { return 1 + argumentsOf(args).count; }

std::string commandShowing(const RecordPlace& place) {
  for (const CommandRow& row : kCommands) {
    if (row.shows != place.kind || row.file != place.file) continue;
    std::string line = std::string("maintain ") + row.word;
    const uint32_t numbers[2] = {place.first, place.second};
    for (int i = 0; i < argumentsOf(row.args).count && i < 2; ++i) {
      line += formatString(" %u", numbers[i]);
    }
    return line;
  }
  return "";
}

int tr_maintain(int count, char** words) {
  if (count < 1 || count > 4 || words == nullptr) {
    printHelp();
    return -1;
  }
  const CommandRow* row = findCommand(words[0], count);
  if (row == nullptr) {
    if (count == 1) {
      printHelp();
      return -1;
    }
    return 0;
  }
  RecordBuffer record;
  CommandCall call = {row->file == nullptr
                          ? 0
                          : indexFileStart(*row->file, trellisHead),
                      row->file == nullptr ? kRecordKind : row->file->kind,
                      {0, 0, 0},
                      &record};
  for (int i = 1; i < count; ++i) call.arg[i - 1] = commandNumber(words[i]);
  if (row->reader == nullptr) return runWriter(*row, call);
  std::memset(record.bytes, 0, row->recordSize);
  if (row->reader(call) == -1) return -1;
  return row->action(call) == -1 ? -1 : 0;
}

}  // namespace tr
