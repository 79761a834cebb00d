// Sessions from text files: every tests/cases/*.case sets up a card image
// and data files in a directory of its own, runs the console (or the card
// builder) on them, and says what must come out. A case is a list of
// sections, each opened by a line "--- <kind>"; lines starting "# " are
// comments.
//
//   setup             size <file> <bytes>     sparse, made or cut (a size
//                                             the file system cannot hold
//                                             skips the case)
//                     poke <file> <offset>[,<offset>...] <bytes>
//                     copy <file> <from> <length> <to>[,<to>...]
//                     save <file> | restore <file>   (the whole file back
//                                             as it was when saved)
//                     mkdir <dir> | symlink <target> <path> | env NAME=value
//   console           a console run: its standard output, where "> <line>"
//                     is a line it reads (a trailing "\" sends it without a
//                     newline) and stands in the place of the prompt that
//                     asked for it; "> ^D" is a prompt that met the end of
//                     the input
//   mkcard <args>     a card builder run: its standard output
//   only <regex>      after a console section: only the lines of its output
//                     that the ECMAScript regex finds something in, and the
//                     lines it reads, are compared (a colour reset opening
//                     a line left out)
//   stderr, status N  the run's standard error (none) and exit status (0)
//   changes           after a console run: each run of bytes of card.img it
//                     changed, "<offset>: <hex before> -> <hex after>"
//                     (none), read over the whole image
//   check             after the run: bytes <file> <offset> <bytes>,
//                     file <file> <bytes> (the whole file), same <file>
//                     <source> <offset> <length> (the whole file, or from
//                     <file>:<offset>), missing <file>, jpeg <file> <w>x<h>,
//                     dir <dir> <name>... (all it holds, hidden names too)
//                     (a picture djpeg reads; without djpeg the case ends
//                     skipped)
//
// <bytes> is a list of "text" (C escapes, \e the escape byte) and W:N (N as
// W little-endian bytes). In expected text "\e" is the escape byte, a line
// "@golden <name>" the contents of tests/golden/<name>, "@session <name>"
// its lines read as if they stood in the case (a transcript of the lines a
// run reads and what it prints), a line ending in
// "\" runs on into the next without a newline, and "...\n" stands for any
// run of characters. Timestamps read "<TS>", the case's directory "@DIR";
// card.img is TRELLIS_DEVICE and media/ TRELLIS_MEDIA_DIR.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>

#include "tests/support/test_support.h"

namespace tr {
namespace test {
namespace {

using Lines = std::vector<std::string>;

std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(sourceFile("cases", ""))) {
    if (entry.path().extension() == ".case") names.push_back(entry.path().stem());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The lines of `text`; a last newline ends the last line.
Lines split(const std::string& text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// <bytes>: "text" with C escapes, or W:N.
std::string bytesOf(std::istream& in) {
  std::string bytes;
  for (char c; in >> std::ws, in.get(c);) {
    if (c != '"') {
      std::string token;
      in >> token;
      token.insert(0, 1, c);
      bytes += le(std::strtoull(token.c_str() + token.find(':') + 1, nullptr, 0),
                  std::stoi(token));
      continue;
    }
    while (in.get(c) && c != '"') {
      if (c == '\\' && in.get(c)) {
        char hex[3] = {};
        if (c == 'x') in.read(hex, 2);
        c = c == 'x' ? static_cast<char>(std::strtoul(hex, nullptr, 16))
            : c == '0' ? '\0' : c == 'e' ? '\x1b' : c == 'n' ? '\n' : c;
      }
      bytes += c;
    }
  }
  return bytes;
}

// Whether `text` is `want`, where each "...\n" of `want` stands for any
// run of characters.
bool matches(const std::string& want, const std::string& text) {
  std::vector<std::string> chunks(1);
  for (size_t at = 0, next; at <= want.size(); at = next + 4) {
    next = std::min(want.find("...\n", at), want.size());
    chunks.back() = want.substr(at, next - at);
    if (next < want.size()) chunks.emplace_back();
  }
  if (text.compare(0, chunks.front().size(), chunks.front()) != 0) return false;
  size_t at = chunks.front().size();
  for (size_t i = 1; i + 1 < chunks.size() && at != std::string::npos; ++i) {
    at = text.find(chunks[i], at);
    if (at != std::string::npos) at += chunks[i].size();
  }
  const std::string& last = chunks.back();
  return at != std::string::npos && text.size() >= at + last.size() &&
         text.compare(text.size() - last.size(), last.size(), last) == 0;
}

void expectText(const char* what, const std::string& want, const std::string& text) {
  if (want.find("...\n") == std::string::npos) {
    EXPECT_EQ(want, text) << what;
  } else if (!matches(want, text)) {
    ADD_FAILURE() << what << ": expected\n" << want << "got\n" << text;
  }
}

class SessionTest : public testing::TestWithParam<std::string> {
 protected:
  std::string path(const std::string& name) { return dir_.file(name); }

  // "<offset>,<offset>,...".
  static std::vector<uint64_t> offsets(std::istream& in) {
    std::string list;
    in >> list;
    std::vector<uint64_t> all;
    std::istringstream items(list);
    for (std::string item; std::getline(items, item, ',');) all.push_back(std::stoull(item));
    return all;
  }

  void setUp(std::istringstream& line) {
    std::string verb, name, more;
    line >> verb >> name;
    uint64_t offset = 0, length = 0;
    if (verb.empty()) return;
    if (verb == "size") {
      line >> offset;
      if (!sizeFile(path(name), offset)) GTEST_SKIP() << "no sparse file of " << offset << " bytes here";
    } else if (verb == "poke" || verb == "copy") {
      std::vector<uint64_t> to = offsets(line);
      std::string bytes;
      if (verb == "copy") {
        line >> length;
        bytes = peek(path(name), to[0], length);
        to = offsets(line);
      } else {
        bytes = bytesOf(line);
      }
      for (uint64_t at : to) ASSERT_TRUE(poke(path(name), at, bytes)) << name << " at " << at;
    } else if (verb == "save") {
      struct stat st;
      ASSERT_EQ(::stat(path(name).c_str(), &st), 0) << name;
      saved_[name] = {extents(path(name)), static_cast<uint64_t>(st.st_size)};
    } else if (verb == "restore") {
      const auto& [data, size] = saved_.at(name);
      ASSERT_TRUE(sizeFile(path(name), 0) && sizeFile(path(name), size));
      for (const auto& [at, bytes] : data) poke(path(name), at, bytes);
    } else if (verb == "mkdir") {
      ::mkdir(path(name).c_str(), 0755);
    } else if (verb == "symlink") {
      line >> more;
      ASSERT_EQ(::symlink(name.c_str(), path(more).c_str()), 0);
    } else if (verb == "env") {  // NAME=value, in place of any earlier value
      const std::string key = name.substr(0, name.find('='));
      env_.erase(std::remove_if(env_.begin(), env_.end(),
                                [&](const auto& e) { return e.first == key; }),
                 env_.end());
      env_.emplace_back(key, name.substr(key.size() + 1));
    } else {
      FAIL() << "unknown setup: " << verb;
    }
  }

  void check(std::istringstream& line) {
    std::string verb, name, source;
    uint64_t offset = 0, length = 0;
    line >> verb >> name;
    if (verb == "bytes") {
      line >> offset;
      const std::string want = bytesOf(line);
      EXPECT_TRUE(peek(path(name), offset, want.size()) == want) << name << " at " << offset;
    } else if (verb == "file") {
      EXPECT_TRUE(readFile(path(name)) == bytesOf(line)) << name;
    } else if (verb == "same") {  // the whole file, or `length` bytes from its offset
      line >> source >> offset >> length;
      const size_t colon = name.find(':');
      const std::string bytes = colon == std::string::npos
                                    ? readFile(path(name))
                                    : peek(path(name.substr(0, colon)), std::stoull(name.substr(colon + 1)), length);
      EXPECT_TRUE(bytes == peek(path(source), offset, length)) << name;
    } else if (verb == "jpeg") {  // a picture a real decoder reads, <w>x<h>
      line >> source;
      const RunResult decoded = runProgram({"djpeg", path(name)}, "", {});
      if (decoded.status == 127) skip_ = "djpeg is not installed (libjpeg-turbo-progs)";
      EXPECT_TRUE(decoded.status == 127 ||
                  decoded.out.rfind("P6\n" + replaced(source, "x", " ") + "\n255\n", 0) == 0)
          << name << ": " << decoded.err;
    } else if (verb == "dir") {
      std::vector<std::string> want{std::istream_iterator<std::string>(line), {}}, held;
      for (const auto& entry : std::filesystem::directory_iterator(path(name))) held.push_back(entry.path().filename());
      std::sort(want.begin(), want.end());
      std::sort(held.begin(), held.end());
      EXPECT_EQ(held, want) << name;
    } else if (verb == "missing") {
      EXPECT_NE(::access(path(name).c_str(), F_OK), 0) << name;
    } else {
      ADD_FAILURE() << "unknown check: " << verb;
    }
  }

  // The run the last program section named, checked against its sections.
  void run() {
    if (program_.empty()) return;
    const Extents before = extents(path("card.img"));
    RunResult r = runProgram(program_, input_, env_);
    r.out = maskTimestamps(replaced(r.out, dir_.path(), "@DIR"));
    // Each prompt, coloured unless NO_COLOR is set, stands for the line read.
    const bool plain = std::any_of(env_.begin(), env_.end(), [](const auto& e) {
      return e.first == "NO_COLOR" && !e.second.empty();
    });
    const std::string prompt = plain ? "please enter the console command:\n"
                                     : "\x1b[32mplease enter the console command:\x1b[0m\n";
    size_t k = 0;
    for (size_t at = 0; (at = r.out.find(prompt, at)) != std::string::npos; ++k) {
      const std::string shown = k < prompts_.size() ? prompts_[k] : "> ^D\n";
      r.out.replace(at, prompt.size(), shown);
      at += shown.size();
    }
    if (!only_.empty()) {
      const std::regex wanted(only_);
      std::string kept;
      for (std::string line : split(r.out)) {
        // A colour left open by the line before does not count.
        if (line.rfind("\x1b[0m", 0) == 0) line.erase(0, 4);
        if (line.rfind("> ", 0) == 0 || line == ">" || std::regex_search(line, wanted)) kept += line + "\n";
      }
      r.out = kept;
    }
    expectText("stdout", want_["stdout"], r.out);
    expectText("stderr", want_["stderr"], maskTimestamps(replaced(r.err, dir_.path(), "@DIR")));
    EXPECT_EQ(r.status, status_);
    if (program_[0] == TRELLIS_MAINTAIN_BIN) {
      expectText("changes of card.img", want_["changes"], changes(before, extents(path("card.img"))));
    }
    for (const std::string& line : split(want_["check"])) {
      std::istringstream words(line);
      check(words);
    }
    program_.clear();
    only_.clear();
    prompts_.clear();
    input_.clear();
    want_.clear();
    status_ = 0;
  }

  TempDir dir_;
  EnvList env_;
  std::vector<std::string> program_;  // of the run being read
  std::string input_;
  Lines prompts_;  // what stands for each prompt
  std::map<std::string, std::string> want_;  // by section
  // One line of a case, or of a transcript it names.
  void read(const std::string& line) {
    if (line.rfind("#", 0) == 0 && (line.size() == 1 || line[1] == ' ')) return;
    std::istringstream words(line);
    if (line.rfind("--- ", 0) == 0) {
      words.ignore(4) >> section_;
      if (section_ == "setup" || section_ == "console" || section_ == "mkcard") run();
      if (section_ == "console" || section_ == "mkcard") {
        program_ = {section_ == "console" ? TRELLIS_MAINTAIN_BIN : TRELLIS_MKCARD_BIN};
        for (std::string word; words >> word;) program_.push_back(replaced(word, "@DIR", dir_.path()));
        section_ = "stdout";
      }
      if (section_ == "status") words >> status_;
      if (section_ == "only") {
        std::getline(words >> std::ws, only_);
        section_ = "stdout";
      }
    } else if (section_ == "setup") {
      setUp(words);
    } else if (line.rfind("@golden ", 0) == 0) {
      want_[section_] += golden(line.substr(8));
    } else if (line.rfind("@session ", 0) == 0) {
      const std::string transcript = readFile(sourceFile("golden", line.substr(9)));
      if (transcript.empty()) ADD_FAILURE() << "no transcript " << line.substr(9);
      for (const std::string& said : split(transcript)) read(said);
    } else if (section_ == "stdout" && line.rfind(">", 0) == 0 && line != "> ^D") {
      const bool open = line.back() == '\\';  // read without a newline
      const std::string text = line.substr(std::min<size_t>(2, line.size()), line.size() - 2 - open);
      input_ += text + (open ? "" : "\n");
      prompts_.push_back(">" + (text.empty() ? "" : " " + text) + "\n");
      want_[section_] += prompts_.back();
    } else if (!line.empty() && line.back() == '\\') {
      want_[section_] += replaced(line.substr(0, line.size() - 1), "\\e", "\x1b");
    } else {
      want_[section_] += replaced(line, "\\e", "\x1b") + "\n";
    }
  }

  std::string section_;
  int status_ = 0;
  std::string skip_;  // why a check could not be made, once all the rest were
  std::map<std::string, std::pair<Extents, uint64_t>> saved_;  // by file
  std::string only_;  // the lines of the output compared, or all
};

TEST_P(SessionTest, PrintsWhatTheCaseSays) {
  ::mkdir(path("media").c_str(), 0755);
  env_ = {{"TRELLIS_DEVICE", path("card.img")}, {"TRELLIS_MEDIA_DIR", path("media")}};
  for (const std::string& line : split(readFile(sourceFile("cases", GetParam() + ".case")))) {
    read(line);
    if (HasFatalFailure() || IsSkipped()) return;
  }
  run();
  if (!skip_.empty()) GTEST_SKIP() << skip_;
}

INSTANTIATE_TEST_SUITE_P(Cases, SessionTest, testing::ValuesIn(caseNames()),
                         [](const testing::TestParamInfo<std::string>& p) {
                           return replaced(p.param, "-", "_");
                         });

}  // namespace
}  // namespace test
}  // namespace tr
