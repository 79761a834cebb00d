#include "report/html.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

// The bytes a page could not show as themselves: control bytes and every
// byte past ASCII, as "\xNN" (a card's text is not known to be UTF-8).
const TextStyle kPageBytes = {false, false, true, "", false, false};

}  // namespace

std::string htmlText(const std::string& text) {
  const std::string shown = escapedText(text, kPageBytes);
  std::string html;
  html.reserve(shown.size());
  for (const char c : shown) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

HtmlFile::~HtmlFile() {
  if (stream_ != nullptr) std::fclose(stream_);
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

int HtmlFile::failure(const std::string& what, int error) {
  err("trellis-maintain: %s: %s%s%s\n",
      escapedText(path_, kLineEscaped).c_str(), what.c_str(),
      error != 0 ? ": " : "", error != 0 ? std::strerror(error) : "");
  return -1;
}

int HtmlFile::open() {
  const size_t slash = path_.rfind('/');
  const std::string dir =
      slash == std::string::npos ? "." : path_.substr(0, slash + 1);
  if (inMediaDir(dir) || onCardDevice(dir)) {
    return failure("the report would lie on the card; write it elsewhere", 0);
  }
  struct stat st;
  if (::lstat(path_.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    return failure(S_ISDIR(st.st_mode)   ? "is a directory"
                   : S_ISLNK(st.st_mode) ? "is a symbolic link"
                                         : "is not a regular file",
                   0);
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    temporary_ = formatString("%s.%d.%d.part", path_.c_str(),
                              static_cast<int>(::getpid()), attempt);
    const int fd = ::open(temporary_.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          0644);
    if (fd >= 0) {
      stream_ = ::fdopen(fd, "w");
      if (stream_ != nullptr) return 0;
      const int error = errno;
      ::close(fd);
      ::unlink(temporary_.c_str());
      temporary_.clear();
      return failure("cannot be written", error);
    }
    if (errno != EEXIST) {
      const int error = errno;
      temporary_.clear();
      return failure("cannot be written", error);
    }
  }
  temporary_.clear();
  return failure("cannot be written", EEXIST);
}

void HtmlFile::put(const std::string& markup) {
  if (stream_ == nullptr || failed_) return;
  if (std::fwrite(markup.data(), 1, markup.size(), stream_) != markup.size()) {
    failed_ = true;
    error_ = errno;
  }
}

void HtmlFile::put(const char* markup) { put(std::string(markup)); }

int HtmlFile::keep() {
  if (stream_ == nullptr) return -1;
  const bool flushed = std::fflush(stream_) == 0 && ::fsync(fileno(stream_)) == 0;
  if (!failed_ && !flushed) {
    failed_ = true;
    error_ = errno;
  }
  const bool closed = std::fclose(stream_) == 0;
  stream_ = nullptr;
  if (!failed_ && !closed) {
    failed_ = true;
    error_ = errno;
  }
  if (failed_) return failure("cannot be written", error_);
  if (::rename(temporary_.c_str(), path_.c_str()) != 0) {
    return failure("cannot be named", errno);
  }
  temporary_.clear();
  return 0;
}

}  // namespace tr
