// One line on standard error that shows a long piece of work moving, for the
// person at the terminal. When standard error is not a terminal, or the work
// is not worth a line, it prints nothing, so scripted output stays exactly
// as it would be without it. The line is wiped (blanks, not an escape
// sequence, which colourless output would drop) before anything else is
// printed.
#ifndef TRELLIS_BASE_PROGRESS_H_
#define TRELLIS_BASE_PROGRESS_H_

#include <string>

namespace tr {

class ProgressLine {
 public:
  // `wanted`: the work is long enough to show. Nothing is drawn before
  // `delaySeconds` have passed, so work that ends sooner never shows a line.
  explicit ProgressLine(bool wanted, double delaySeconds = 0);
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // True when the line should be redrawn now: at most five times a second.
  // Cheap, so callers test it before they put the text together.
  bool due();
  void draw(const std::string& text);
  // Seconds since the work began (0 when no line is ever drawn).
  double elapsed() const;
  // Wipes the line, if one is on screen. Keeps errno, so a perror after it
  // still tells the work's own failure.
  void clear();

 private:
  bool enabled_;
  double start_;
  double nextDraw_;
  size_t width_ = 0;  // of the line on screen; 0 when none is
};

}  // namespace tr

#endif  // TRELLIS_BASE_PROGRESS_H_
