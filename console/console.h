// The console: greets, runs start-up, then reads one command line at a time
// from standard input, splits it into words and hands `maintain` lines to
// the dispatcher. `exit`, or the end of standard input, says goodbye.
#ifndef TRELLIS_CONSOLE_CONSOLE_H_
#define TRELLIS_CONSOLE_CONSOLE_H_

#include <cstdint>

namespace tr {

// The words of one line. argv points into argBuf, where the words stand back
// to back, each followed by its NUL. argc is at least 1.
struct tr_LineParser {
  int32_t argc;
  char** argv;
  char* argBuf;
  int32_t argBufLen;
};

// Waits for standard input, reads one line of at most size - 1 characters
// and removes its last character (the newline of a whole line). Returns the
// length left, or 0 when nothing was read.
int32_t _tr_getLine(char* buf, uint32_t size);
// True once standard input has ended, failed or does not exist.
bool consoleInputEnded();
// Splits positions 0..len of `line` into words. Returns null for a missing
// line, a line without words, or when memory runs out.
tr_LineParser* _tr_lineParser(const char* line, int32_t len);
// Releases a record from _tr_lineParser. 0, or -1 for null.
int _tr_freeLineParser(tr_LineParser* record);
// 1 for the separators NUL, space and tab; 0 for every other byte.
int _tr_argvFieldSeperator(char c);
// Hands `command` to the system's command interpreter. No console command
// reaches it.
int invoke_rpc(const char* command, int32_t unused1, int32_t unused2);

// The program: parses the command line (console/options.h), then runs the
// console on standard input, the -f script or the -c lines. Returns the
// exit status.
int consoleMain(int argc, char** argv);

}  // namespace tr

#endif  // TRELLIS_CONSOLE_CONSOLE_H_
