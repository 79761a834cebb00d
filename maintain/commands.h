// The console's 38 maintenance commands as data: one row each, selected by
// the command word and the number of words. A row names the index file it
// works on (by selector), the record it reads, the reader, and the action
// that prints, extracts or repairs. The rec/recBackUp/pic/picBackUp variants
// are rows sharing the same steps.
#ifndef TRELLIS_MAINTAIN_COMMANDS_H_
#define TRELLIS_MAINTAIN_COMMANDS_H_

#include <cstddef>
#include <cstdint>

#include "format/aux_context.h"
#include "format/aux_head.h"
#include "format/data_file_head.h"
#include "format/index_file_head.h"
#include "format/jpg_data_file_info.h"
#include "format/rec_data_file_info.h"
#include "format/trellis_head.h"

namespace tr {

// Which index file a command works on; the prefix of its word.
enum class Selector : uint8_t { kNone, kRec, kRecBackUp, kPic, kPicBackUp };

// The numbers a command takes after its word, in order.
enum class ArgList : uint8_t {
  kNone,
  kFile,              // fileNum
  kAux,               // auxNum
  kFileSegment,       // fileNum segmentNum
  kAuxContext,        // auxNum ctxNum
  kFileSegmentPicture  // fileNum segmentNum picNum
};

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
// the numbers after the word (atoi, in order) and the record buffer.
struct CommandCall {
  uint64_t base;
  uint32_t kind;
  int32_t arg[3];
  RecordBuffer* record;
};

// 0 or -1; a reader's -1 ends the command, an action's result is the
// command's only for the writing commands.
using CommandStep = int (*)(const CommandCall& call);

struct CommandRow {
  const char* word;
  ArgList args;
  Selector selector;
  size_t recordSize;   // bytes cleared before the read; 0 for writers
  CommandStep reader;  // null for the writing commands
  CommandStep action;  // never null
  const char* description;  // the help text's last column
};

constexpr size_t kCommandCount = 38;
extern const CommandRow kCommands[kCommandCount];

// Words a command takes after `maintain`, its own word included.
int wordCount(ArgList args);
uint64_t selectorOffset(Selector selector);
uint32_t selectorKind(Selector selector);

// The dispatcher: `words` are the `count` words after `maintain`.
int tr_maintain(int count, char** words);
void printHelp();

}  // namespace tr

#endif  // TRELLIS_MAINTAIN_COMMANDS_H_
