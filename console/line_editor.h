// The line editor the console reads through when an engineer sits at a
// terminal: the line is edited where the cursor stands, earlier lines come
// back with Up and Down or a search (Ctrl-R), and Tab completes the words
// and numbers a command takes. The terminal is put in raw mode only while
// a line is read, so a command prints, and Ctrl-C stops a copy, as they
// always have. What the editor gives back is the line as typed; the
// console handles it as it handles a line from a pipe.
//
// Keys: Left, Right, Home, End, Ctrl-A, Ctrl-E, Ctrl-B, Ctrl-F move;
// Backspace and Delete erase a character, Ctrl-K to the end, Ctrl-U to the
// start, Ctrl-W the word before; Ctrl-L clears the screen; Up, Down,
// Ctrl-P, Ctrl-N walk the history; Ctrl-R searches it (Enter takes the line
// found, Ctrl-G or Ctrl-C leaves it); Tab completes, Tab again lists what
// could follow; Ctrl-C drops the line; Ctrl-D on an empty line ends. Any
// other key, and any byte that is no printable character, is ignored.
#ifndef TRELLIS_CONSOLE_LINE_EDITOR_H_
#define TRELLIS_CONSOLE_LINE_EDITOR_H_

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace tr {

// What may stand where the cursor is: `*candidates` gets the completions
// of the word being typed (whole words), `*note` a line to show instead
// (the usage of a complete command word), for the line up to the cursor.
using Completer = void (*)(const std::string& before,
                           std::vector<std::string>* candidates,
                           std::string* note);

class LineEditor {
 public:
  // `maxLength`: the longest line the console takes.
  LineEditor(Completer completer, size_t maxLength);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  enum class Result { kLine, kCancelled, kEnd };
  // Reads one line; kCancelled after Ctrl-C, kEnd after Ctrl-D on an empty
  // line or when the terminal is gone. `above`, the text shown above the
  // line (the prompt, each of its lines ended by "\r\n"), is shown again
  // when Ctrl-L clears the screen.
  Result read(std::string* line, const std::string& above);

  // The history kept across sessions in the file at `path` (its last 1000
  // lines read now, each new line appended as it is entered, the file cut
  // back to those lines when it passes 1 MiB); empty keeps none.
  void useHistory(const std::string& path);

 private:
  struct State;
  void remember(const std::string& line);
  // The history file cut down to the lines kept, once it has grown long.
  void compactHistory() const;
  // Up (older) or Down through the history.
  void walkHistory(bool older);
  // Ctrl-R: the history searched backwards for what is typed. True when
  // Enter takes the line found; false when another key leaves the search
  // with it, or Ctrl-G or Ctrl-C gives up, the line as it was.
  bool search();
  // Tab at the end of the line; true when it completed a word.
  bool complete();
  State* state_;
  Completer completer_;
  size_t maxLength_;
  std::deque<std::string> history_;
  std::string historyPath_;
};

}  // namespace tr

#endif  // TRELLIS_CONSOLE_LINE_EDITOR_H_
