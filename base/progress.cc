#include "base/progress.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "base/output.h"

namespace tr {
namespace {

constexpr double kRedrawSeconds = 0.2;

double monotonicSeconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9;
}

}  // namespace

ProgressLine::ProgressLine(bool wanted, double delaySeconds)
    : enabled_(wanted && ::isatty(STDERR_FILENO) == 1),
      start_(enabled_ ? monotonicSeconds() : 0),
      nextDraw_(start_ + (delaySeconds > kRedrawSeconds ? delaySeconds
                                                        : kRedrawSeconds)) {}

bool ProgressLine::due() {
  if (!enabled_) return false;
  const double now = monotonicSeconds();
  if (now < nextDraw_) return false;
  nextDraw_ = now + kRedrawSeconds;
  return true;
}

double ProgressLine::elapsed() const {
  return enabled_ ? monotonicSeconds() - start_ : 0;
}

void ProgressLine::draw(const std::string& text) {
  std::string line = text;
  if (line.size() < width_) line.append(width_ - line.size(), ' ');
  width_ = line.size();
  err("\r%s", line.c_str());
}

void ProgressLine::clear() {
  if (width_ == 0) return;
  const int saved = errno;
  err("\r%s\r", std::string(width_, ' ').c_str());
  width_ = 0;
  errno = saved;
}

}  // namespace tr
