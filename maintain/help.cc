// The command overview printed for an unknown or malformed command: one
// 126-column row per command in table order, with a continuation line for
// each number after the first.
#include <string>

#include "base/output.h"
#include "base/platform.h"
#include "maintain/commands.h"

namespace tr {
namespace {

constexpr size_t kWidth = 126;
constexpr size_t kFormatColumn = 5;
constexpr size_t kParamColumn = 49;
constexpr size_t kDescriptionColumn = 77;
constexpr size_t kContinuationIndent = 13;
// The recorder's own overview has two irregular rows, kept as they are:
// row 9's parameter text stands one column to the right, and row 13's
// segmentNum line is one column shorter than the other segmentNum lines.
constexpr int kShiftedParamRow = 9;
constexpr int kShortContinuationRow = 13;

void padTo(std::string& line, size_t column) {
  if (line.size() < column) line.append(column - line.size(), ' ');
}

void printLine(const std::string& line) { out("%s\n", line.c_str()); }

void printRule() { printLine(std::string(kWidth, '=')); }

void printRow(int number, const CommandRow& row) {
  const ArgumentList args = argumentsOf(row.args);
  std::string line = formatString(" %d.", number);
  padTo(line, kFormatColumn);
  line += "maintain ";
  line += row.word;
  if (args.count > 0) line += formatString(" <%s>", args.items[0]->name);
  padTo(line, number == kShiftedParamRow ? kParamColumn + 1 : kParamColumn);
  line += args.count > 0 ? args.items[0]->text : "(none)";
  padTo(line, kDescriptionColumn);
  line += row.description;
  padTo(line, kWidth);
  printLine(line);
  for (int i = 1; i < args.count; ++i) {
    const Argument& arg = *args.items[i];
    std::string more(kContinuationIndent, ' ');
    more += formatString("<%s>", arg.name);
    padTo(more, kParamColumn);
    more += arg.text;
    size_t width = arg.continuationWidth;
    if (number == kShortContinuationRow && i == 1) --width;
    padTo(more, width);
    printLine(more);
  }
}

}  // namespace

void printHelp() {
  printLine("Supported maintenance commands:");
  printRule();
  std::string header(kFormatColumn, ' ');
  header += "Command Format";
  padTo(header, kParamColumn);
  header += "Parameters";
  padTo(header, kDescriptionColumn);
  header += "Description";
  padTo(header, kWidth);
  printLine(header);
  printRule();
  for (size_t i = 0; i < kCommandCount; ++i) {
    printRow(static_cast<int>(i) + 1, kCommands[i]);
  }
  printRule();
  printLine("Examples:");
  printLine(
      "  > maintain recDataFileHead 1           # Print index header of file "
      "1");
  printLine(
      "  > maintain recIndexFileAux 1 2         # Print content 2 of "
      "auxiliary 1");
  printRule();
}

}  // namespace tr
