// The console's 38 maintenance commands as data: one row each, selected by
// the command word and the number of words. A row names the index file it
// works on (the rec/recBackUp/pic/picBackUp prefix of its word), the record
// it reads, the reader, the action that prints, extracts or repairs, and
// the record it shows. The variants of one command are rows sharing the
// same steps.
#ifndef TRELLIS_MAINTAIN_COMMANDS_H_
#define TRELLIS_MAINTAIN_COMMANDS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/index_files.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "format/trellis_head.h"

namespace tr {

// The numbers a command takes after its word, in order.
enum class ArgList : uint8_t {
  kNone,
  kFile,              // fileNum
  kAux,               // auxNum
  kFileSegment,       // fileNum segmentNum
  kAuxContext,        // auxNum ctxNum
  kFileSegmentPicture  // fileNum segmentNum picNum
};

// One number a command takes: its name (in the help text and in the usage
// of a command line), the help text's parameter text, and the width the
// help pads its continuation line to when it is not the first number.
struct Argument {
  const char* name;
  const char* text;
  size_t continuationWidth;
};

struct ArgumentList {
  const Argument* items[3];
  int count;
};

ArgumentList argumentsOf(ArgList args);
// The names of the numbers, as a command line's usage shows them:
// "fileNum segmentNum"; "" for none.
std::string argumentNames(ArgList args);

// The dispatcher's record buffer: room for the largest record, cleared to
// the command's record size before each read.
union RecordBuffer {
  tr_TrellisHead trellisHead;
  tr_IndexFileHead indexFileHead;
  tr_DataFileHead dataFileHead;
  IndexFileAuxiliaryHead auxHead;
  tr_RecDataFileInfo recInfo;
  tr_JPGDataFileInfo jpgInfo;
  IndexFileAuxiliaryContext auxContext;
  unsigned char bytes[sizeof(tr_JPGDataFileInfo)];
};

// What one command's steps get: the selected index file's offset and kind,
// the numbers after the word (commandNumber(), in order) and the record
// buffer.
struct CommandCall {
  uint64_t base;
  uint32_t kind;
  int32_t arg[3];
  RecordBuffer* record;
};

// 0 or -1; a reader's -1 ends the command, and the action's result is the
// command's. Printers do not fail; a listing, an extraction or a writing
// command returns -1 after its own diagnostic.
using CommandStep = int (*)(const CommandCall& call);

struct CommandRow {
  const char* word;
  ArgList args;
  const IndexFileDef* file;  // null: the storage head
  size_t recordSize;   // bytes cleared before the read; 0 for writers
  CommandStep reader;  // null for the writing commands
  CommandStep action;  // never null
  const char* description;  // the help text's last column
  std::optional<RecordKind> shows;  // the record it prints, if it prints one
};

constexpr size_t kCommandCount = 38;
extern const CommandRow kCommands[kCommandCount];

// A command's number as the recorder's 32-bit atoi() reads it: leading
// blanks, an optional sign, the digits up to the first other character (a
// word without digits is 0), values beyond the int range held at INT_MIN
// or INT_MAX. A workstation, whose atoi() would keep only the low 32 bits
// of a long, answers exactly as the recorder does.
int32_t commandNumber(const char* word);

// Words a command takes after `maintain`, its own word included.
int wordCount(ArgList args);
// The console line that prints the record at `place`: "maintain
// recBackUpDataFileInfo 3 2"; "" when no command prints it.
std::string commandShowing(const RecordPlace& place);

// The dispatcher: `words` are the `count` words after `maintain`. -1 when
// the command failed (its diagnostic printed) or the words earned the help.
int tr_maintain(int count, char** words);
void printHelp();

// The row of `word` whatever its word count, or null.
const CommandRow* commandNamed(const char* word);
// The row whose word is nearest `word` by edit distance, letter case aside;
// of rows equally near, the first.
const CommandRow* closestCommand(const char* word);
// The word and the names of its numbers: "recDataFileInfo fileNum segmentNum".
std::string commandUsage(const CommandRow& row);
// Levenshtein distance of two words, letter case aside.
size_t editDistance(const std::string& a, const std::string& b);
// Checks the words after `maintain` against the table without running
// anything: 0 when they are a command with its numbers, or none at all (the
// help); else -1 after one line on standard error naming what is wrong, the
// closest command and its usage.
int checkCommandWords(int count, char** words);

}  // namespace tr

#endif  // TRELLIS_MAINTAIN_COMMANDS_H_
