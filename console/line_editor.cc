#include "console/line_editor.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/platform.h"

namespace tr {
namespace {

constexpr size_t kHistoryKept = 1000;
// The tail of a history file that is read: the last lines only.
constexpr off_t kHistoryTail = 256 * 1024;
// How long the rest of an escape sequence may take to arrive.
constexpr int kSequenceWaitMs = 50;

constexpr char kCtrlA = 1, kCtrlB = 2, kCtrlC = 3, kCtrlD = 4, kCtrlE = 5,
               kCtrlF = 6, kCtrlG = 7, kBackspace = 8, kTab = 9,
               kLineFeed = 10, kCtrlK = 11, kCtrlL = 12, kEnter = 13,
               kCtrlN = 14, kCtrlP = 16, kCtrlR = 18, kCtrlU = 21,
               kCtrlW = 23, kEscape = 27, kDelete = 127;

// The keys an escape sequence may stand for.
enum Key { kNoKey = 256, kUp, kDown, kLeft, kRight, kHome, kEnd, kDeleteKey };

volatile sig_atomic_t gResized = 0;
void noteResize(int) { gResized = 1; }

void put(const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t n = ::write(STDOUT_FILENO, text.data() + done,
                              text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    done += static_cast<size_t>(n);
  }
}

size_t terminalWidth() {
  struct winsize size;
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1) {
    return size.ws_col;
  }
  return 80;
}

// The terminal in raw mode, and the resize handler, while a line is read.
class RawTerminal {
 public:
  RawTerminal() {
    raw_ = ::tcgetattr(STDIN_FILENO, &saved_) == 0;
    if (raw_) {
      struct termios raw = saved_;
      raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | INPCK | ISTRIP |
                                            IXON);
      raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
      raw.c_cflag |= CS8;
      raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN | ISIG);
      raw.c_cc[VMIN] = 1;
      raw.c_cc[VTIME] = 0;
      ::tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
    }
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = noteResize;  // no SA_RESTART: a read returns
    sigemptyset(&action.sa_mask);
    sigaction(SIGWINCH, &action, &savedResize_);
  }
  ~RawTerminal() {
    if (raw_) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &saved_);
    sigaction(SIGWINCH, &savedResize_, nullptr);
  }
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

 private:
  bool raw_;
  struct termios saved_;
  struct sigaction savedResize_;
};

// One byte of input; -1 at the end, or when none came within `waitMs`
// (when given); -2 when a resize came in between.
int readByte(int waitMs = -1) {
  if (waitMs >= 0) {
    struct pollfd ready = {STDIN_FILENO, POLLIN, 0};
    if (::poll(&ready, 1, waitMs) <= 0) return -1;
  }
  unsigned char byte;
  for (;;) {
    const ssize_t n = ::read(STDIN_FILENO, &byte, 1);
    if (n == 1) return byte;
    if (n < 0 && errno == EINTR) {
      if (gResized != 0) return -2;
      continue;
    }
    return -1;
  }
}

// The key an escape sequence names, read after its escape byte; kNoKey
// for one the editor does not know (read to its end and dropped).
int readSequence() {
  const int first = readByte(kSequenceWaitMs);
  if (first != '[' && first != 'O') return kNoKey;
  std::string parameters;
  for (int c; (c = readByte(kSequenceWaitMs)) >= 0;) {
    if (c >= 0x40 && c <= 0x7e) {
      if (parameters.empty() || first == 'O') {
        switch (c) {
          case 'A': return kUp;
          case 'B': return kDown;
          case 'C': return kRight;
          case 'D': return kLeft;
          case 'H': return kHome;
          case 'F': return kEnd;
          default: return kNoKey;
        }
      }
      if (c != '~') return kNoKey;
      if (parameters == "1" || parameters == "7") return kHome;
      if (parameters == "4" || parameters == "8") return kEnd;
      return parameters == "3" ? kDeleteKey : kNoKey;
    }
    parameters += static_cast<char>(c);
    if (parameters.size() > 16) return kNoKey;
  }
  return kNoKey;
}

// True when more input waits: a pasted line is drawn once, at its end.
bool inputWaiting() {
  struct pollfd ready = {STDIN_FILENO, POLLIN, 0};
  return ::poll(&ready, 1, 0) > 0;
}

int readKey() {
  const int c = readByte();
  return c == kEscape ? readSequence() : c;
}

// The longest start the words share.
std::string commonStart(const std::vector<std::string>& words) {
  std::string start = words.front();
  for (const std::string& word : words) {
    size_t n = 0;
    while (n < start.size() && n < word.size() && start[n] == word[n]) ++n;
    start.resize(n);
  }
  return start;
}

}  // namespace

// The line being edited and how it stands on the screen.
struct LineEditor::State {
  std::string line;
  size_t cursor = 0;
  size_t shown = 0;       // first character on the screen
  size_t recalled = 0;    // history entry shown; history size: the new line
  std::string draft;      // the new line, kept while the history is walked
  bool tabbedBefore = false;

  // Redraws the line, scrolled so the cursor is on the screen.
  void draw(const std::string& lead = "") {
    const size_t room = terminalWidth() - 1 - lead.size();
    if (cursor < shown) shown = cursor;
    if (cursor - shown > room) shown = cursor - room;
    const std::string view = line.substr(shown, room);
    std::string text = "\r" + lead + view + "\x1b[0K\r";
    if (lead.size() + cursor - shown > 0) {
      text += formatString("\x1b[%zuC", lead.size() + cursor - shown);
    }
    put(text);
  }
  void insert(const std::string& text, size_t max) {
    const std::string part = text.substr(0, max - std::min(max, line.size()));
    line.insert(cursor, part);
    cursor += part.size();
  }
  void erase(size_t from, size_t to) {
    line.erase(from, to - from);
    cursor = from;
  }
};

LineEditor::LineEditor(Completer completer, size_t maxLength)
    : state_(new State), completer_(completer), maxLength_(maxLength) {}

LineEditor::~LineEditor() { delete state_; }

void LineEditor::useHistory(const std::string& path) {
  historyPath_ = path;
  history_.clear();
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  const off_t end = ::lseek(fd, 0, SEEK_END);
  const off_t from = end > kHistoryTail ? end - kHistoryTail : 0;
  std::string text(static_cast<size_t>(end - from), '\0');
  const ssize_t got = ::pread(fd, &text[0], text.size(), from);
  ::close(fd);
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  // A tail that starts mid-line drops that line's part.
  size_t at = from > 0 ? text.find('\n') + 1 : 0;
  for (size_t end_; at < text.size(); at = end_ + 1) {
    end_ = text.find('\n', at);
    if (end_ == std::string::npos) break;
    const std::string line = text.substr(at, end_ - at);
    if (!line.empty() && line.size() <= maxLength_) history_.push_back(line);
    if (history_.size() > kHistoryKept) history_.pop_front();
  }
  if (end > 4 * kHistoryTail) compactHistory();
}

void LineEditor::compactHistory() const {
  // Rewritten beside it and renamed over it, so that a failure at any
  // point leaves the old file whole.
  const std::string fresh = historyPath_ + ".new";
  const int fd = ::open(fresh.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        0600);
  if (fd < 0) return;
  std::string text;
  for (const std::string& line : history_) text += line + "\n";
  const bool written =
      ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(fd);
  if (!written || ::rename(fresh.c_str(), historyPath_.c_str()) != 0) {
    ::unlink(fresh.c_str());
  }
}

void LineEditor::remember(const std::string& line) {
  if (line.empty() || (!history_.empty() && history_.back() == line)) return;
  history_.push_back(line);
  if (history_.size() > kHistoryKept) history_.pop_front();
  if (historyPath_.empty()) return;
  const int fd = ::open(historyPath_.c_str(),
                        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                        0600);
  if (fd < 0) return;
  const std::string entry = line + "\n";
  const ssize_t put = ::write(fd, entry.data(), entry.size());
  (void)put;
  ::close(fd);
}

LineEditor::Result LineEditor::read(std::string* out,
                                    const std::string& above) {
  State& s = *state_;
  s = State();
  s.recalled = history_.size();
  const RawTerminal raw;
  gResized = 0;
  s.draw();
  for (;;) {
    const int key = readKey();
    bool tab = key == kTab;
    if (key == -1 || key == kEnter || key == kLineFeed || key == kCtrlC ||
        (key == kCtrlD && s.line.empty())) {
      s.draw();
    }
    if (key == -2) {
      gResized = 0;
    } else if (key == -1) {
      put("\r\n");
      return Result::kEnd;
    } else if (key == kEnter || key == kLineFeed) {
      put("\r\n");
      remember(s.line);
      *out = s.line;
      return Result::kLine;
    } else if (key == kCtrlC) {
      put("^C\r\n");
      return Result::kCancelled;
    } else if (key == kCtrlD && s.line.empty()) {
      put("\r\n");
      return Result::kEnd;
    } else if (key == kCtrlD || key == kDeleteKey) {
      if (s.cursor < s.line.size()) s.erase(s.cursor, s.cursor + 1);
    } else if (key == kBackspace || key == kDelete) {
      if (s.cursor > 0) s.erase(s.cursor - 1, s.cursor);
    } else if (key == kLeft || key == kCtrlB) {
      if (s.cursor > 0) --s.cursor;
    } else if (key == kRight || key == kCtrlF) {
      if (s.cursor < s.line.size()) ++s.cursor;
    } else if (key == kHome || key == kCtrlA) {
      s.cursor = 0;
    } else if (key == kEnd || key == kCtrlE) {
      s.cursor = s.line.size();
    } else if (key == kCtrlK) {
      s.line.erase(s.cursor);
    } else if (key == kCtrlU) {
      s.erase(0, s.cursor);
    } else if (key == kCtrlW) {
      size_t from = s.cursor;
      while (from > 0 && s.line[from - 1] == ' ') --from;
      while (from > 0 && s.line[from - 1] != ' ') --from;
      s.erase(from, s.cursor);
    } else if (key == kCtrlL) {
      put("\x1b[H\x1b[2J" + above);
    } else if (key == kUp || key == kCtrlP || key == kDown || key == kCtrlN) {
      walkHistory(key == kUp || key == kCtrlP);
    } else if (key == kCtrlR) {
      if (search()) {
        put("\r\n");
        remember(s.line);
        *out = s.line;
        return Result::kLine;
      }
    } else if (tab && complete()) {
      tab = false;  // a Tab that completed lists nothing on the next
    } else if (key >= 0x20 && key < 0x7f) {
      s.insert(std::string(1, static_cast<char>(key)), maxLength_);
    }
    s.tabbedBefore = tab;
    if (!inputWaiting()) s.draw();
  }
}

void LineEditor::walkHistory(bool older) {
  State& s = *state_;
  if (older ? s.recalled == 0 : s.recalled >= history_.size()) return;
  if (s.recalled == history_.size()) s.draft = s.line;
  s.recalled = older ? s.recalled - 1 : s.recalled + 1;
  s.line = s.recalled == history_.size() ? s.draft : history_[s.recalled];
  s.cursor = s.line.size();
}

bool LineEditor::search() {
  State& s = *state_;
  const std::string before = s.line;
  const size_t beforeCursor = s.cursor;
  std::string query;
  size_t found = history_.size();  // none yet
  // The newest entry up to `from` that holds the query.
  auto find = [&](size_t from) {
    for (size_t i = std::min(from + 1, history_.size()); i-- > 0;) {
      if (history_[i].find(query) != std::string::npos) return i;
    }
    return history_.size();
  };
  for (;;) {
    s.line = found < history_.size() ? history_[found] : "";
    s.cursor = s.line.size();
    s.draw("(search '" + query + "'): ");
    const int key = readKey();
    if (key == -2) {
      gResized = 0;
    } else if (key >= 0x20 && key < 0x7f) {
      query += static_cast<char>(key);
      found = find(found < history_.size() ? found : history_.size());
    } else if (key == kBackspace || key == kDelete) {
      if (!query.empty()) query.pop_back();
      found = find(history_.size());
    } else if (key == kCtrlR) {
      if (found > 0 && found < history_.size()) {
        const size_t older = find(found - 1);
        if (older < history_.size()) found = older;
      }
    } else if (key == kCtrlG || key == kCtrlC || key == -1) {
      s.line = before;
      s.cursor = beforeCursor;
      return false;
    } else {
      if (found == history_.size()) s.line = before;
      s.cursor = s.line.size();
      return (key == kEnter || key == kLineFeed) && found < history_.size();
    }
  }
}

bool LineEditor::complete() {
  State& s = *state_;
  if (s.cursor != s.line.size() || completer_ == nullptr) return false;
  std::vector<std::string> candidates;
  std::string note;
  completer_(s.line, &candidates, &note);
  const size_t space = s.line.find_last_of(' ');
  const size_t wordStart = space == std::string::npos ? 0 : space + 1;
  const std::string word = s.line.substr(wordStart);
  if (!candidates.empty()) {
    const std::string whole = candidates.size() == 1
                                  ? candidates.front() + " "
                                  : commonStart(candidates);
    if (whole.size() > word.size() &&
        wordStart + whole.size() <= maxLength_) {
      s.line.replace(wordStart, std::string::npos, whole);
      s.cursor = s.line.size();
      return true;
    }
  }
  if (!s.tabbedBefore) return false;
  // The second Tab: the usage of the command, and what could follow.
  std::string list = note.empty() ? "" : note + "\r\n";
  const size_t width = terminalWidth();
  size_t column = 0;
  for (const std::string& candidate : candidates) {
    if (column > 0 && column + candidate.size() + 2 > width) {
      list += "\r\n";
      column = 0;
    }
    list += (column > 0 ? "  " : "") + candidate;
    column += candidate.size() + (column > 0 ? 2 : 0);
  }
  if (column > 0) list += "\r\n";
  if (!list.empty()) put("\r\n" + list);
  return false;
}

}  // namespace tr
