// What Tab completes at the console's line editor: `maintain` and `exit`,
// the command words, and the numbers the card itself holds for a command:
// the data files in use for fileNum, the segments in use of the data file
// named for segmentNum, the auxiliaries in use for auxNum, the contexts in
// use of the auxiliary named for ctxNum, the pictures of the segment named
// for picNum. Once the line names a command, its usage is the note. The
// card is read afresh at each Tab and quietly: a read that fails, or a
// header whose dimensions do not fit, offers nothing.
#ifndef TRELLIS_CONSOLE_COMPLETION_H_
#define TRELLIS_CONSOLE_COMPLETION_H_

#include <string>
#include <vector>

namespace tr {

// A Completer (console/line_editor.h) for console lines.
void completeLine(const std::string& before,
                  std::vector<std::string>* candidates, std::string* note);

}  // namespace tr

#endif  // TRELLIS_CONSOLE_COMPLETION_H_
