// The command words as a user meets them: the numbers each command takes,
// the usage of a command line, and the one-line answer to a line that names
// no command or gives a command the wrong count of numbers. Scripts get that
// line instead of the help table, so a typo is reported where it happened.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/output.h"
#include "maintain/commands.h"

namespace tr {
namespace {

constexpr Argument kFileArg = {"fileNum", "fileNum=file number", 0};
constexpr Argument kSegmentArg = {"segmentNum", "segmentNum=segment num", 94};
constexpr Argument kAuxArg = {"auxNum", "auxNum=auxiliary num", 0};
constexpr Argument kContextArg = {"ctxNum", "ctxNum=content num", 96};
constexpr Argument kPictureArg = {"picNum", "picNum=picture num", 94};

}  // namespace

ArgumentList argumentsOf(ArgList args) {
  switch (args) {
    case ArgList::kNone:
      return {{}, 0};
    case ArgList::kFile:
      return {{&kFileArg}, 1};
    case ArgList::kAux:
      return {{&kAuxArg}, 1};
    case ArgList::kFileSegment:
      return {{&kFileArg, &kSegmentArg}, 2};
    case ArgList::kAuxContext:
      return {{&kAuxArg, &kContextArg}, 2};
    case ArgList::kFileSegmentPicture:
      return {{&kFileArg, &kSegmentArg, &kPictureArg}, 3};
  }
  return {{}, 0};
}

std::string argumentNames(ArgList args) {
  const ArgumentList list = argumentsOf(args);
  std::string names;
  for (int i = 0; i < list.count; ++i) {
    names += (i == 0 ? "" : " ") + std::string(list.items[i]->name);
  }
  return names;
}

const CommandRow* commandNamed(const char* word) {
  for (const CommandRow& row : kCommands) {
    if (std::strcmp(row.word, word) == 0) return &row;
  }
  return nullptr;
}

size_t editDistance(const std::string& a, const std::string& b) {
  // One row of the distance table at a time: row[j] is the distance from
  // the first i letters of a to the first j letters of b.
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same =
          std::tolower(static_cast<unsigned char>(a[i - 1])) ==
          std::tolower(static_cast<unsigned char>(b[j - 1]));
      const size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min(replaced, std::min(row[j], row[j - 1]) + 1);
    }
  }
  return row[b.size()];
}

const CommandRow* closestCommand(const char* word) {
  const CommandRow* closest = nullptr;
  size_t best = SIZE_MAX;
  for (const CommandRow& row : kCommands) {
    const size_t distance = editDistance(word, row.word);
    if (distance < best) {
      best = distance;
      closest = &row;
    }
  }
  return closest;
}

std::string commandUsage(const CommandRow& row) {
  const std::string names = argumentNames(row.args);
  return names.empty() ? row.word : row.word + (" " + names);
}

int checkCommandWords(int count, char** words) {
  if (count < 1) return 0;
  const CommandRow* row = commandNamed(words[0]);
  if (row == nullptr) {
    err("maintain: %s: no such command; closest: %s\n", words[0],
        commandUsage(*closestCommand(words[0])).c_str());
    return -1;
  }
  if (wordCount(row->args) == count) return 0;
  const std::string names = argumentNames(row->args);
  const int numbers = count - 1;
  err("maintain: %s takes %s (got %d number%s)\n", row->word,
      names.empty() ? "no number" : names.c_str(), numbers,
      numbers == 1 ? "" : "s");
  return -1;
}

}  // namespace tr
