#include "console/options.h"

#include <getopt.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/output.h"
#include "base/platform.h"
#include "base/times.h"

namespace tr {
namespace {

// One option: its names, the name of its value in the usage (null when it
// takes none), its usage text ('\n' continues it on the next line) and what
// it does to the options, 0 or -1 after usageError().
struct OptionRow {
  char shortName;  // 0: the long name only
  const char* longName;
  const char* value;
  const char* help;
  int (*apply)(Options* options, const char* value);
};

int usageError(const std::string& message);

// The option that chose a mode other than the console.
const char* modeOption(Mode mode) {
  switch (mode) {
    case Mode::kList:
      return "--list";
    case Mode::kCheck:
      return "--check";
    case Mode::kRestore:
      return "--restore";
    case Mode::kExport:
      return "--export";
    case Mode::kRepair:
      return "--repair";
    case Mode::kReport:
      return "--report";
    default:
      return "";
  }
}

// The whole-card modes and --restore exclude one another.
int setMode(Options* options, Mode mode) {
  if (options->mode != Mode::kConsole && options->mode != mode) {
    return usageError(formatString("%s and %s cannot be used together",
                                   modeOption(options->mode),
                                   modeOption(mode)));
  }
  options->mode = mode;
  return 0;
}

// One line saying what is wrong with an option's value and how to write
// it; no usage text.
int valueError(const char* option, const char* value, const char* what) {
  err("trellis-maintain: %s %s: %s\n", option,
      escapedText(value, kLineEscaped).c_str(), what);
  return -1;
}

// -n, -p and -y: one of them.
int setAnswer(Options* o, char answer) {
  if (o->repairAnswer != 0 && o->repairAnswer != answer) {
    return usageError(formatString("-%c and -%c cannot be used together",
                                   o->repairAnswer, answer));
  }
  o->repairAnswer = answer;
  return 0;
}

int setChannels(Options* o, const char* value) {
  for (const char* at = value;;) {
    char* end = nullptr;
    errno = 0;
    const long channel = std::strtol(at, &end, 10);
    if (end == at || *at < '1' || *at > '9' || errno != 0 || channel > INT32_MAX ||
        (*end != ',' && *end != '\0')) {
      return valueError("--channel", value,
                        "not a list of channel numbers; write them from 1 "
                        "up, separated by commas: --channel 1,3");
    }
    o->filter.channels.push_back(static_cast<int32_t>(channel));
    if (*end == '\0') return 0;
    at = end + 1;
  }
}

int setBound(const char* option, const char* value, TimeWord* time,
             std::string* text, bool* has) {
  if (!parseTimeWord(value, time)) {
    return valueError(option, value,
                      "not a time; write YYYY-MM-DDTHH:MM:SS, then Z, "
                      "+HH:MM or -HH:MM for its zone, or nothing for the "
                      "recorder's clock");
  }
  *text = value;
  *has = true;
  return 0;
}

const OptionRow kOptionRows[] = {
    {'d', "device", "PATH",
     "the raw device or a card image (default:\n"
     "$TRELLIS_DEVICE, else /dev/mmc0)",
     [](Options* o, const char* v) {
       o->device = v;
       return 0;
     }},
    {'m', "media-dir", "DIR",
     "the data files' directory, where extractions\n"
     "are written (default: $TRELLIS_MEDIA_DIR,\n"
     "else /mnt/sd/)",
     [](Options* o, const char* v) {
       o->mediaDir = v;
       return 0;
     }},
    {'c', "command", "LINE",
     "run the console line LINE; repeatable: the\n"
     "lines run in order, then the console ends",
     [](Options* o, const char* v) {
       o->commands.push_back(v);
       return 0;
     }},
    {'f', "file", "FILE",
     "run the console lines of FILE ('-': standard\n"
     "input), then end; not with -c",
     [](Options* o, const char* v) {
       if (!o->script.empty()) return usageError("-f is given once only");
       o->script = v;
       return 0;
     }},
    {'q', "quiet", nullptr,
     "print only what the commands print: no\n"
     "greeting, layout, prompts or farewell",
     [](Options* o, const char*) {
       o->quiet = true;
       return 0;
     }},
    {0, "color", "WHEN",
     "always, never, or auto (only when standard\n"
     "output is a terminal); the default is always\n"
     "for the console alone, auto with -q, -c, -f\n"
     "or a mode (--list, --check, --export,\n"
     "--restore); a set NO_COLOR turns colour off\n"
     "whatever WHEN says",
     [](Options* o, const char* v) {
       const ColourWhen choices[] = {ColourWhen::kAlways, ColourWhen::kNever,
                                     ColourWhen::kAuto};
       const char* const names[] = {"always", "never", "auto"};
       for (size_t i = 0; i < 3; ++i) {
         if (std::strcmp(v, names[i]) == 0) {
           o->colour = choices[i];
           return 0;
         }
       }
       return usageError(
           formatString("--color wants always, never or auto, not '%s'", v));
     }},
    {0, "list", nullptr,
     "print what the card holds: one line per data\n"
     "file and per segment in use, then exit",
     [](Options* o, const char*) { return setMode(o, Mode::kList); }},
    {0, "check", nullptr,
     "check the whole card: one line per problem\n"
     "and a summary, then exit",
     [](Options* o, const char*) { return setMode(o, Mode::kCheck); }},
    {0, "json", nullptr, "with --list or --check: JSON Lines",
     [](Options* o, const char*) {
       o->json = true;
       return 0;
     }},
    {'r', "read-only", nullptr,
     "refuse every writing command; the device is\n"
     "never opened for writing (also\n"
     "TRELLIS_READ_ONLY=1)",
     [](Options* o, const char*) {
       o->readOnly = true;
       return 0;
     }},
    {'u', "undo", "FILE",
     "before each write to the device, append what\n"
     "it replaces to the undo journal FILE and make\n"
     "it durable (default: $TRELLIS_UNDO)",
     [](Options* o, const char* v) {
       o->undo = v;
       return 0;
     }},
    {0, "restore", "FILE",
     "put back what the undo journal FILE recorded,\n"
     "newest first, where the device still holds\n"
     "what was written; then exit",
     [](Options* o, const char* v) {
       o->restore = v;
       return setMode(o, Mode::kRestore);
     }},
    {0, "force", nullptr,
     "with --restore: go on past ranges changed\n"
     "since, reporting each",
     [](Options* o, const char*) {
       o->force = true;
       return 0;
     }},
    {0, "dry-run", nullptr,
     "with --restore: say what would be restored,\n"
     "write nothing",
     [](Options* o, const char*) {
       o->dryRun = true;
       return 0;
     }},
    {0, "export", "DIR",
     "copy the chosen recordings and pictures into\n"
     "DIR as the recorder stored them, with\n"
     "SHA256SUMS and manifest.json; then exit",
     [](Options* o, const char* v) {
       o->exportDir = v;
       return setMode(o, Mode::kExport);
     }},
    {0, "report", "FILE",
     "write an HTML report of the card to FILE: a\n"
     "timeline per channel, the damage marked, the\n"
     "check's problems and the inventory; then exit",
     [](Options* o, const char* v) {
       o->reportFile = v;
       return setMode(o, Mode::kReport);
     }},
    {0, "channel", "N[,N...]",
     "with --list, --export or --report: only these\n"
     "channels",
     setChannels},
    {0, "from", "TIME",
     "with --list, --export or --report: only what\n"
     "overlaps the time from TIME (YYYY-MM-DDTHH:\n"
     "MM:SS, with Z or +HH:MM, or without: the\n"
     "recorder's clock)",
     [](Options* o, const char* v) {
       return setBound("--from", v, &o->filter.from, &o->filter.fromText,
                       &o->filter.hasFrom);
     }},
    {0, "to", "TIME", "with --list, --export or --report: up to TIME",
     [](Options* o, const char* v) {
       return setBound("--to", v, &o->filter.to, &o->filter.toText,
                       &o->filter.hasTo);
     }},
    {0, "repair", nullptr,
     "check the whole card and fix what it can,\n"
     "asking before each fix at a terminal; every\n"
     "write journalled (default: ./DEVICE-TIME.undo)",
     [](Options* o, const char*) { return setMode(o, Mode::kRepair); }},
    {'n', "no-change", nullptr,
     "with --repair: change nothing; say what would\n"
     "be fixed",
     [](Options* o, const char*) { return setAnswer(o, 'n'); }},
    {'p', "safe", nullptr,
     "with --repair: make the safe fixes, without\n"
     "asking",
     [](Options* o, const char*) { return setAnswer(o, 'p'); }},
    {'y', "yes", nullptr, "with --repair: make every fix, without asking",
     [](Options* o, const char*) { return setAnswer(o, 'y'); }},
    {0, "no-undo", nullptr, "with --repair: keep no undo journal",
     [](Options* o, const char*) {
       o->noUndo = true;
       return 0;
     }},
    {'o', "output-dir", "DIR",
     "where recData, picData and onePic write\n"
     "(default: $TRELLIS_OUTPUT_DIR, else the media\n"
     "directory)",
     [](Options* o, const char* v) {
       o->outputDir = v;
       return 0;
     }},
    {'h', "help", nullptr, "print this text and exit",
     [](Options* o, const char*) {
       o->mode = Mode::kPrintUsage;
       return 0;
     }},
    {'V', "version", nullptr, "print the version and exit",
     [](Options* o, const char*) {
       o->mode = Mode::kPrintVersion;
       return 0;
     }},
};

constexpr size_t kRowCount = sizeof kOptionRows / sizeof kOptionRows[0];
// getopt_long's code of a row without a short name.
constexpr int kLongOnly = 256;
constexpr size_t kHelpColumn = 25;

int codeOf(size_t row) {
  const char shortName = kOptionRows[row].shortName;
  return shortName != 0 ? shortName : kLongOnly + static_cast<int>(row);
}

const OptionRow* rowOfCode(int code) {
  for (size_t i = 0; i < kRowCount; ++i) {
    if (codeOf(i) == code) return &kOptionRows[i];
  }
  return nullptr;
}

std::string usageText() {
  std::string text =
      "Usage: trellis-maintain [OPTION]...\n"
      "Reads the index records of a Trellis card from its raw device, prints\n"
      "them, copies media out of its data files and repairs a few index\n"
      "fields. Without -c or -f it reads console lines on standard input:\n"
      "'maintain COMMAND [NUMBER]...' runs a command ('maintain' alone lists\n"
      "all 38), 'exit' ends.\n"
      "\n"
      "Options:\n";
  for (const OptionRow& row : kOptionRows) {
    std::string names =
        row.shortName != 0
            ? formatString("  -%c, --%s", row.shortName, row.longName)
            : formatString("      --%s", row.longName);
    if (row.value != nullptr) {
      names += (row.shortName != 0 ? " " : "=") + std::string(row.value);
    }
    if (names.size() >= kHelpColumn) names += '\n';
    text += names;
    for (const char* line = row.help; *line != '\0';) {
      const char* end = std::strchr(line, '\n');
      const size_t length = end != nullptr ? end - line : std::strlen(line);
      const size_t column = text.size() - text.rfind('\n') - 1;
      text.append(column < kHelpColumn ? kHelpColumn - column : 0, ' ');
      text.append(line, length);
      text += '\n';
      line += end != nullptr ? length + 1 : length;
    }
  }
  text +=
      "\n"
      "With -c or -f every line runs, also after a failed one, and the exit\n"
      "status is 0 when every command succeeded, 1 when any failed or named\n"
      "no command, 2 for a bad command line or a device that cannot be\n"
      "worked on (then no command runs). With --list or --check it is 0 when\n"
      "all was listed or no problem found, 1 when a part could not be listed\n"
      "or problems were found, 2 when the card could not be read. With\n"
      "--restore it is 0 when every record was restored or found restored\n"
      "already, else 1. With --export it is 0 when everything chosen was\n"
      "exported, 1 when a segment or picture was skipped, 2 for a card that\n"
      "cannot be read or a directory that cannot be written. Otherwise it is\n"
      "0, or 2 for a bad command line or a device that cannot be worked on.\n"
      "With --report it is as with --check, and 2 also when the report\n"
      "cannot be written.\n"
      "With --repair it is 0 when nothing was found, 1 when all was fixed,\n"
      "4 when problems are left, 5 when some were fixed and some left, 8\n"
      "when the card or the journal failed, 16 for a bad command line.\n"
      "\n"
      "At a terminal, lines are edited in place, Up and Ctrl-R bring back\n"
      "earlier ones ($TRELLIS_HISTORY, else ~/.local/state/trellis-maintain/\n"
      "history) and Tab completes command words and the card's numbers.\n"
      "\n"
      "Example:\n"
      "  trellis-maintain -d card.img -m media -q -c 'maintain TrellisHead'\n"
      "  trellis-maintain -d card.img -m media --check\n"
      "  trellis-maintain -d card.img -m media --repair -p\n"
      "  trellis-maintain -d card.img -m media --export out --channel 1 \\\n"
      "    --from 2024-03-05T15:10:00 --to 2024-03-05T15:20:00\n";
  return text;
}

int usageError(const std::string& message) {
  err("trellis-maintain: %s\n", message.c_str());
  return -1;
}

int missingValue(const OptionRow& row) {
  return usageError(
      formatString("option --%s needs a value (%s)", row.longName, row.value));
}

// The message for what getopt_long refused: `code` is its answer ('?' or
// ':'), `word` the command-line word it stopped at.
int refused(int code, const char* word) {
  const OptionRow* row = rowOfCode(optopt);
  if (code == ':') return missingValue(*row);
  if (row != nullptr) {
    return usageError(
        formatString("option --%s takes no value", row->longName));
  }
  if (optopt != 0) {
    return usageError(formatString(
        "unknown option '-%c'; trellis-maintain --help lists them", optopt));
  }
  return usageError(formatString(
      "unknown or ambiguous option '%s'; trellis-maintain --help lists them",
      escapedText(word, kLineEscaped).c_str()));
}

}  // namespace

int parseOptions(int argc, char** argv, Options* options) {
  std::string shortNames = ":";  // ':' tells a missing value from the rest
  struct option longNames[kRowCount + 1] = {};
  for (size_t i = 0; i < kRowCount; ++i) {
    const OptionRow& row = kOptionRows[i];
    const int hasValue = row.value != nullptr ? required_argument : no_argument;
    longNames[i] = {row.longName, hasValue, nullptr, codeOf(i)};
    if (row.shortName != 0) {
      shortNames += row.shortName;
      if (row.value != nullptr) shortNames += ':';
    }
  }
  opterr = 0;
  optind = 0;  // start afresh, whatever an earlier parse left
  for (;;) {
    const int code =
        getopt_long(argc, argv, shortNames.c_str(), longNames, nullptr);
    if (code == -1) break;
    if (code == '?' || code == ':') return refused(code, argv[optind - 1]);
    const OptionRow& row = *rowOfCode(code);
    // An empty value is no value: no option has a use for one.
    if (row.value != nullptr && *optarg == '\0') return missingValue(row);
    if (row.apply(options, optarg) == -1) return -1;
  }
  if (optind < argc) {
    return usageError(formatString("unexpected argument '%s'",
                                   escapedText(argv[optind], kLineEscaped).c_str()));
  }
  if (!options->commands.empty() && !options->script.empty()) {
    return usageError("-c and -f cannot be used together");
  }
  const bool wholeCard = options->mode == Mode::kList ||
                         options->mode == Mode::kCheck ||
                         options->mode == Mode::kExport ||
                         options->mode == Mode::kRepair ||
                         options->mode == Mode::kReport;
  if (wholeCard && options->scripted()) {
    return usageError(formatString("%s runs no console lines (-c, -f)",
                                   modeOption(options->mode)));
  }
  const SegmentFilter& filter = options->filter;
  if ((!filter.channels.empty() || filter.hasFrom || filter.hasTo) &&
      options->mode != Mode::kList && options->mode != Mode::kExport &&
      options->mode != Mode::kReport) {
    return usageError(
        "--channel, --from and --to go with --list, --export or --report");
  }
  if (!options->outputDir.empty() && options->mode != Mode::kConsole) {
    return usageError("-o names where console lines extract to: not with " +
                      std::string(modeOption(options->mode)));
  }
  if (options->json &&
      options->mode != Mode::kList && options->mode != Mode::kCheck) {
    return usageError("--json goes with --list or --check");
  }
  if ((options->repairAnswer != 0 || options->noUndo) &&
      options->mode != Mode::kRepair) {
    return usageError("-n, -p, -y and --no-undo go with --repair");
  }
  if (options->noUndo && !options->undo.empty()) {
    return usageError("--no-undo and -u cannot be used together");
  }
  if (options->readOnly && options->mode == Mode::kRepair &&
      options->repairAnswer != 'n') {
    return usageError("-r lets --repair write nothing: add -n");
  }
  if ((options->force || options->dryRun) && options->restore.empty()) {
    return usageError("--force and --dry-run go with --restore only");
  }
  if (!options->restore.empty() && options->scripted()) {
    return usageError("--restore runs no console lines: not with -c or -f");
  }
  return 0;
}

bool asksForRepair(int argc, char** argv) {
  const std::string name = "--repair";
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--") break;
    if (word.size() >= 6 && name.compare(0, word.size(), word) == 0) {
      return true;
    }
  }
  return false;
}

void printUsage() { outText(usageText()); }

}  // namespace tr
