#include "console/console.h"

#include <dirent.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "base/device.h"
#include "base/output.h"
#include "base/platform.h"
#include "base/version.h"
#include "check/check.h"
#include "export/export.h"
#include "console/completion.h"
#include "console/line_editor.h"
#include "console/options.h"
#include "maintain/commands.h"
#include "maintain/startup.h"
#include "repair/card_repair.h"
#include "report/card_report.h"
#include "repair/journal.h"
#include "repair/restore.h"

namespace tr {
namespace {

constexpr uint32_t kLineBufferSize = 2048;
constexpr char kPrompt[] = "please enter the console command:";

// Set when waiting on descriptor 0 finds no descriptor at all.
bool gNoInput = false;

// Text the input stream has already taken from descriptor 0 but not yet
// handed out: such lines are answered at once, without waiting for the
// descriptor to become readable again.
bool inputBuffered() {
#ifdef __GLIBC__
  return stdin->_IO_read_ptr < stdin->_IO_read_end;
#else
  return false;  // consoleMain() leaves standard input unbuffered
#endif
}

// Waits until standard input can be read; false when it never can.
bool waitForInput() {
  if (inputBuffered()) return true;
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(0, &readable);
    struct timeval timeout = {0, 10000};
    const int ready = select(1, &readable, nullptr, nullptr, &timeout);
    if (ready > 0 && FD_ISSET(0, &readable)) return true;
    if (ready == -1 && errno == EBADF) {
      gNoInput = true;
      return false;
    }
  }
}

// TRELLIS_READ_ONLY=1 makes the console read-only, 0 (or empty, or unset)
// leaves writing allowed; any other value is refused rather than read as
// either, since the engineer meant one of them. TRELLIS_UNDO names the undo
// journal. -1 after one line on standard error.
int loadWriteSafety() {
  const char* readOnlyValue = std::getenv("TRELLIS_READ_ONLY");
  const char* undo = std::getenv("TRELLIS_UNDO");
  const std::string readOnlyText = readOnlyValue == nullptr ? "" : readOnlyValue;
  if (readOnlyText != "" && readOnlyText != "0" && readOnlyText != "1") {
    err("trellis-maintain: TRELLIS_READ_ONLY is '%s': set it to 1 to refuse "
        "writing, or to 0 to allow it\n",
        escapedText(readOnlyText, kLineEscaped).c_str());
    return -1;
  }
  setReadOnly(readOnlyText == "1");
  setJournalPath(undo == nullptr ? "" : undo);
  return 0;
}

// Started with options, the console names a device that cannot be worked
// on in one line and stops before any layout is printed. Started alone it
// is the recorder's console, which goes on with the layout of a size of 0.
bool deviceUsable() {
  uint64_t bytes = 0;
  const std::string why = deviceUnusable(deviceName, &bytes);
  if (why.empty()) return true;
  err("trellis-maintain: %s: %s\n",
      escapedText(deviceName, kLineEscaped).c_str(), why.c_str());
  return false;
}

// The whole-card modes read the data files too; a media directory they
// cannot read leaves the extents unchecked and the footage out of reach,
// which the engineer learns before the report rather than from its gaps.
void warnMediaDir() {
  const std::string dir = mediaPath("");
  DIR* listing = ::opendir(dir.c_str());
  if (listing != nullptr) {
    ::closedir(listing);
    return;
  }
  err("trellis-maintain: the media directory %s: %s; no data file can be "
      "read (name it with -m DIR)\n",
      escapedText(dir, kLineEscaped).c_str(), std::strerror(errno));
}

bool wordIs(const tr_LineParser* words, const char* text) {
  return std::strcmp(words->argv[0], text) == 0;
}

// One line of at most size - 1 characters from `stream`, without its last
// character (the newline of a whole line); its length, 0 when none was read.
int32_t readLine(FILE* stream, char* buf, uint32_t size) {
  if (std::fgets(buf, static_cast<int>(size), stream) == nullptr) {
    buf[0] = '\0';
    return 0;
  }
  const size_t length = std::strlen(buf);
  if (length == 0) return 0;
  buf[length - 1] = '\0';
  return static_cast<int32_t>(length - 1);
}

// The history file of the line editor: TRELLIS_HISTORY, else under
// XDG_STATE_HOME, else under ~/.local/state, its folders made when missing.
// Empty, with nothing kept, when none can be had, or when the file would
// lie on the card.
std::string historyFile() {
  const char* chosen = std::getenv("TRELLIS_HISTORY");
  std::string path = chosen != nullptr ? chosen : "";
  if (path.empty()) {
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    std::string dir;
    if (state != nullptr && state[0] == '/') {
      dir = state;
    } else if (home != nullptr && home[0] == '/') {
      dir = std::string(home) + "/.local/state";
    } else {
      return "";
    }
    dir += "/trellis-maintain";
    for (size_t slash = 1; slash != std::string::npos;) {
      slash = dir.find('/', slash + 1);
      ::mkdir(dir.substr(0, slash).c_str(), 0700);
    }
    path = dir + "/history";
  }
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (inMediaDir(dir) || onCardDevice(dir)) {
    err("trellis-maintain: %s lies on the card; no history is kept\n",
        escapedText(path, kLineEscaped).c_str());
    return "";
  }
  return path;
}

// Where the command lines come from: standard input as the console reads
// it (typed or piped in), or a script: the -c lines, a file given to -f, or
// standard input given as "-f -". The console reads its input as the
// recorder does, dropping the last character of every piece of 2047. A
// script line is taken as written instead: its newline removed, a last line
// without one kept whole, and a line too long for the console refused, so a
// script never runs a command cut short. At a terminal the lines are typed
// through the line editor, and each is then handed out as the terminal
// itself would have handed it to the console.
class LineSource {
 public:
  LineSource() = default;
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;
  ~LineSource() {
    if (stream_ != nullptr && stream_ != stdin) std::fclose(stream_);
  }

  // 0, or -1 after a message when the script cannot be opened.
  int open(const Options& options) {
    if (!options.scripted()) {
      if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
        editor_.reset(new LineEditor(completeLine, kTypedLineMax));
        editor_->useHistory(historyFile());
        if (!options.quiet) {
          above_ = colourEnabled() ? "\033[32m" + std::string(kPrompt) + "\033[0m\r\n"
                                   : std::string(kPrompt) + "\r\n";
        }
      }
      return 0;
    }
    if (!options.commands.empty()) {
      for (const std::string& command : options.commands) {
        text_ += command + "\n";
      }
      stream_ = fmemopen(&text_[0], text_.size(), "r");
      name_ = "-c";
    } else if (options.script == "-") {
      stream_ = stdin;
      name_ = "standard input";
    } else {
      stream_ = std::fopen(options.script.c_str(), "r");
      name_ = options.script;
    }
    if (stream_ != nullptr) return 0;
    err("trellis-maintain: %s: %s\n", name_.c_str(), std::strerror(errno));
    return -1;
  }

  // The next line in `buf` and its length; 0 for an empty line, the end, or
  // a refused line (refused() then tells).
  int32_t next(char* buf, uint32_t size) {
    refused_ = false;
    if (editor_ != nullptr) return nextTyped(buf, size);
    if (stream_ == nullptr) return _tr_getLine(buf, size);
    if (std::fgets(buf, static_cast<int>(size), stream_) == nullptr) {
      if (std::ferror(stream_) && readError_ == 0) readError_ = errno;
      buf[0] = '\0';
      return 0;
    }
    ++lineNumber_;
    size_t length = std::strlen(buf);
    if (length > 0 && buf[length - 1] == '\n') {
      buf[--length] = '\0';
    } else if (!std::feof(stream_)) {
      refuseLongLine(buf);
      return 0;
    }
    return static_cast<int32_t>(length);
  }

  bool refused() const { return refused_; }
  bool atTerminal() const { return editor_ != nullptr; }

  bool ended() const {
    if (editor_ != nullptr) return typingEnded_;
    if (stream_ == nullptr) return consoleInputEnded();
    return std::feof(stream_) || std::ferror(stream_);
  }

  // 0, or -1 after a message when the script could not be read to its end.
  int finish() const {
    if (readError_ == 0) return 0;
    err("trellis-maintain: %s: %s\n", name_.c_str(), std::strerror(readError_));
    return -1;
  }

 private:
  // Skips the rest of a line longer than the console's line buffer.
  void refuseLongLine(char* buf) {
    err("trellis-maintain: %s: line %u: longer than %u characters; not "
        "run\n",
        name_.c_str(), lineNumber_, kLineBufferSize - 1);
    int c;
    while ((c = std::fgetc(stream_)) != EOF && c != '\n') {
    }
    buf[0] = '\0';
    refused_ = true;
  }

  // The next piece of what was typed, cut as reading standard input cuts
  // it: at most size - 1 characters up to and including the newline, the
  // last character then dropped.
  int32_t nextTyped(char* buf, uint32_t size) {
    buf[0] = '\0';
    if (typed_.empty()) {
      std::string line;
      switch (editor_->read(&line, above_)) {
        case LineEditor::Result::kLine:
          typed_ = line + "\n";
          break;
        case LineEditor::Result::kCancelled:
          return 0;
        case LineEditor::Result::kEnd:
          typingEnded_ = true;
          return 0;
      }
    }
    const size_t piece =
        std::min<size_t>(typed_.find('\n') + 1, std::max<size_t>(size, 2) - 1);
    std::memcpy(buf, typed_.data(), piece - 1);
    buf[piece - 1] = '\0';
    typed_.erase(0, piece);
    return static_cast<int32_t>(piece - 1);
  }

  // A terminal takes lines of up to 4095 characters before the newline.
  static constexpr size_t kTypedLineMax = 4095;
  std::unique_ptr<LineEditor> editor_;  // at a terminal only
  std::string above_;  // the prompt, as it stands above the line typed
  std::string typed_;  // what is left of the line last typed
  bool typingEnded_ = false;
  FILE* stream_ = nullptr;  // null: standard input, read as the console does
  std::string text_;        // the -c lines, each ended by its newline
  std::string name_;
  unsigned lineNumber_ = 0;
  bool refused_ = false;
  int readError_ = 0;
};

bool colourWanted(const Options& options) {
  const char* noColour = std::getenv("NO_COLOR");
  if (noColour != nullptr && *noColour != '\0') return false;
  ColourWhen when = options.colour;
  if (when == ColourWhen::kDefault) {
    const bool consoleAlone = options.mode == Mode::kConsole &&
                              !options.quiet && !options.scripted();
    when = consoleAlone ? ColourWhen::kAlways : ColourWhen::kAuto;
  }
  if (when == ColourWhen::kAuto) return isatty(STDOUT_FILENO) == 1;
  return when == ColourWhen::kAlways;
}

// A line whose first word is neither `maintain` nor `exit`. A command word
// given without `maintain` is the likely slip in a script.
void reportNoCommand(const char* word) {
  const CommandRow* row = commandNamed(word);
  std::string closest = "maintain COMMAND [NUMBER]...";
  if (row != nullptr) {
    closest = "maintain " + commandUsage(*row);
  } else if (editDistance(word, "exit") < editDistance(word, "maintain")) {
    closest = "exit";
  }
  err("console: %s: no such command; closest: %s\n", word, closest.c_str());
}

// Runs one line other than `exit`. 0, or -1 when its command failed. A
// `checked` line (-c, -f, -q) that names no command, or gives one the wrong
// count of numbers, gets one line on standard error instead of the
// recorder's answer (the help, the hint, or silence). A line typed at a
// `hinted` terminal gets that line as well as the recorder's answer.
int runLine(const tr_LineParser* words, bool checked, bool hinted) {
  if (hinted && !checked) {
    if (!wordIs(words, "maintain")) {
      reportNoCommand(words->argv[0]);
    } else {
      checkCommandWords(words->argc - 1, words->argv + 1);
    }
  }
  if (wordIs(words, "maintain")) {
    const int count = words->argc - 1;
    char** rest = words->argv + 1;
    if (checked) {
      if (checkCommandWords(count, rest) == -1) return -1;
      if (count == 0) {  // the help, asked for
        printHelp();
        return 0;
      }
    }
    return tr_maintain(count, rest);
  }
  if (checked) {
    reportNoCommand(words->argv[0]);
    return -1;
  }
  out("console: command not found\n");
  out("support: \n\tmaintain xxx\n\texit\n");
  return 0;
}

int runConsole(const Options& options) {
#ifndef __GLIBC__
  std::setvbuf(stdin, nullptr, _IONBF, 0);
#endif
  LineSource source;
  if (source.open(options) == -1) return kExitUsage;

  const bool quiet = options.quiet;
  if (!quiet) out("\033[31mHello Trellis Maintain\033[0m\n");
  const bool measured =
      quiet ? loadDeviceLayout() != 0 : _tr_maintainInit() != -1;
  if (options.scripted() && !measured) {
    err("trellis-maintain: %s: no size could be measured; no command was "
        "run\n",
        deviceName.c_str());
    return kExitUsage;
  }

  const bool checked = quiet || options.scripted();
  // Where output is read by scripts, writing commands say what they changed.
  setKeepDeviceWrites(checked);
  if (source.atTerminal()) warnBeforeUnjournalledWrite();
  bool failed = false;
  char line[kLineBufferSize];
  for (;;) {
    if (!quiet) out("\033[32m%s\033[0m\n", kPrompt);
    std::fflush(stdout);
    std::memset(line, 0, sizeof line);
    const int32_t length = source.next(line, sizeof line);
    if (source.refused()) failed = true;
    if (length < 1 || line[0] == '\0') {
      if (source.ended()) break;
      continue;
    }
    tr_LineParser* words = _tr_lineParser(line, length);
    if (words == nullptr) continue;
    const bool exit = wordIs(words, "exit");
    if (!exit) {
      const DeviceCommand command(line);
      if (runLine(words, checked, source.atTerminal()) == -1) failed = true;
    }
    _tr_freeLineParser(words);
    if (exit || InterruptScope::terminated()) break;
  }
  if (!quiet) out("\033[31mBye Trellis Maintain\033[0m\n");
  std::fflush(stdout);
  if (source.finish() == -1) return kExitUsage;
  if (InterruptScope::terminated()) return kExitTerminated;
  return options.scripted() && failed ? kExitFailed : kExitOk;
}

// The restore mode. Its writes, when journalled, name the restore's own
// command line.
int runRestore(const Options& options, int argc, char** argv) {
  std::string line = "trellis-maintain";
  for (int i = 1; i < argc; ++i) line += std::string(" ") + argv[i];
  const DeviceCommand command(line);
  RestoreOptions how;
  how.force = options.force;
  how.dryRun = options.dryRun;
  return restoreJournal(options.restore, how) == -1 ? kExitFailed : kExitOk;
}

// The journal a repair keeps when none is named: in the current
// directory, after the device and the time, so that one repair never
// appends to another's.
std::string defaultJournal() {
  const size_t slash = deviceName.rfind('/');
  const std::string device =
      slash == std::string::npos ? deviceName : deviceName.substr(slash + 1);
  char stamp[32] = "";
  const time_t now = std::time(nullptr);
  struct tm parts;
  if (gmtime_r(&now, &parts) != nullptr) {
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &parts);
  }
  return "./" + device + "-" + stamp + ".undo";
}

// The repair mode: how it answers, and its journal, which never lies on
// the card.
int runRepairMode(const Options& options, int argc, char** argv) {
  RepairSettings settings;
  settings.commandFor = commandShowing;
  settings.commandLine = "trellis-maintain";
  for (int i = 1; i < argc; ++i) settings.commandLine += std::string(" ") + argv[i];
  const bool atTerminal =
      isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
  switch (options.repairAnswer) {
    case 'n':
      settings.mode = RepairMode::kNothing;
      break;
    case 'p':
      settings.mode = RepairMode::kSafe;
      break;
    case 'y':
      settings.mode = RepairMode::kAll;
      break;
    default:
      if (!atTerminal) {
        err("trellis-maintain: --repair asks before each fix, at a terminal "
            "only: give -n (change nothing), -p (the safe fixes) or -y "
            "(every fix)\n");
        return kRepairUsage;
      }
      settings.mode = RepairMode::kAsk;
  }
  if (settings.mode != RepairMode::kNothing && readOnly()) {
    err("trellis-maintain: TRELLIS_READ_ONLY=1 lets --repair write nothing: "
        "add -n\n");
    return kRepairUsage;
  }
  if (settings.mode != RepairMode::kNothing) {
    if (options.noUndo) {
      setJournalPath("");
    } else if (journalPath().empty()) {
      setJournalPath(defaultJournal());
    }
    const std::string journal = journalPath();
    const size_t slash = journal.rfind('/');
    const std::string dir =
        slash == std::string::npos ? "." : journal.substr(0, slash + 1);
    if (!journal.empty() && (inMediaDir(dir) || onCardDevice(dir))) {
      err("trellis-maintain: the undo journal %s would lie on the card: name "
          "one elsewhere with -u FILE\n",
          escapedText(journal, kLineEscaped).c_str());
      return kRepairUsage;
    }
  }
  warnMediaDir();
  return runRepair(settings);
}

}  // namespace

int32_t _tr_getLine(char* buf, uint32_t size) {
  if (buf == nullptr || size == 0) return 0;
  buf[0] = '\0';
  if (!waitForInput()) return 0;
  return readLine(stdin, buf, size);
}

bool consoleInputEnded() {
  return gNoInput || std::feof(stdin) || std::ferror(stdin);
}

int invoke_rpc(const char* command, int32_t, int32_t) {
  if (command != nullptr) {
    const int ignored = std::system(command);
    (void)ignored;
  }
  return 0;
}

int consoleMain(int argc, char** argv) {
  // Before anything is opened: a closed standard descriptor would hand its
  // number to the device, and the console's messages would land on the card.
  if (guardStandardDescriptors() == -1) return kExitFailed;
  Options options;
  const bool repair = asksForRepair(argc, argv);
  const int usage = repair ? kRepairUsage : kExitUsage;
  if (parseOptions(argc, argv, &options) == -1) return usage;
  // Every mode works on the same card, in the same colours.
  setColourEnabled(colourWanted(options));
  loadPlatform();
  if (loadWriteSafety() == -1) return usage;
  if (!options.device.empty()) setDevicePath(options.device);
  if (!options.mediaDir.empty()) setMediaDir(options.mediaDir);
  if (!options.outputDir.empty()) setOutputDir(options.outputDir);
  if (options.readOnly) setReadOnly(true);
  if (!options.undo.empty()) setJournalPath(options.undo);
  const bool byItself = options.mode == Mode::kPrintUsage ||
                        options.mode == Mode::kPrintVersion;
  if (argc > 1 && !byItself && !deviceUsable()) {
    return repair ? kRepairFailed : kExitUsage;
  }
  switch (options.mode) {
    case Mode::kPrintUsage:
      printUsage();
      return kExitOk;
    case Mode::kPrintVersion:
      out("trellis-maintain %s\n", kVersion);
      return kExitOk;
    case Mode::kList:
      warnMediaDir();
      return runInventory(
          CheckSettings{options.json, commandShowing, options.filter});
    case Mode::kExport:
      warnMediaDir();
      return runExport(ExportSettings{options.exportDir, options.filter});
    case Mode::kCheck:
      warnMediaDir();
      return runCheck(CheckSettings{options.json, commandShowing, {}});
    case Mode::kRestore:
      return runRestore(options, argc, argv);
    case Mode::kRepair:
      return runRepairMode(options, argc, argv);
    case Mode::kReport:
      warnMediaDir();
      return runCardReport(
          ReportSettings{options.reportFile, options.filter, commandShowing});
    case Mode::kConsole:
      break;
  }
  return runConsole(options);
}

}  // namespace tr
