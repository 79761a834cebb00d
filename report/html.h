// The report's file: written under a temporary name beside it, in large
// buffered writes, and given its name only when whole; never on the card,
// never over anything but a regular file. And the one way text gets into
// it: escaped for HTML, card bytes shown as "\xNN", so that no byte from the
// card reaches the file unescaped and the file stays well-formed XML.
#ifndef TRELLIS_REPORT_HTML_H_
#define TRELLIS_REPORT_HTML_H_

#include <cstdio>
#include <string>

namespace tr {

// `text` for HTML: &, <, >, " and ' as entities; control bytes, and bytes
// past ASCII, as the four characters "\xNN".
std::string htmlText(const std::string& text);

class HtmlFile {
 public:
  explicit HtmlFile(const std::string& path) : path_(path) {}
  ~HtmlFile();  // removes the temporary file unless it was kept
  HtmlFile(const HtmlFile&) = delete;
  HtmlFile& operator=(const HtmlFile&) = delete;

  // Refuses a name on the card or held by anything but a regular file,
  // then creates the temporary file. 0, or -1 after one line saying why.
  int open();
  // Markup as given: only the report's own text, and htmlText()'s.
  void put(const std::string& markup);
  void put(const char* markup);
  // Flushes, closes and renames the file to its name. 0, or -1 after one
  // line saying why (the temporary file then removed).
  int keep();

 private:
  int failure(const std::string& what, int error);

  std::string path_;
  std::string temporary_;
  FILE* stream_ = nullptr;
  bool failed_ = false;
  int error_ = 0;
};

}  // namespace tr

#endif  // TRELLIS_REPORT_HTML_H_
