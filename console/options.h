// The console's command line. Started without arguments the console is the
// recorder's own: it greets, prints the layout and reads commands typed at
// its prompt. Options point it at a card, feed it command lines from the
// command line or a file, quieten it and choose its colours; each option is
// one row of the table in options.cc, which also writes the usage text.
#ifndef TRELLIS_CONSOLE_OPTIONS_H_
#define TRELLIS_CONSOLE_OPTIONS_H_

#include <string>
#include <vector>

#include "format/segment_filter.h"

namespace tr {

// What the process does. kConsole runs the console loop; any other mode is
// a case of its own in consoleMain(), which sets the card and the colours
// for every mode first.
enum class Mode {
  kConsole,
  kPrintUsage,
  kPrintVersion,
  kList,
  kCheck,
  kRestore,
  kExport,
  kRepair,
  kReport,
};

// kDefault: always for the console alone, as on the recorder; auto where
// output goes to files and scripts (-q, -c, -f and the other modes).
enum class ColourWhen { kDefault, kAlways, kNever, kAuto };

struct Options {
  Mode mode = Mode::kConsole;
  std::string device;    // empty: TRELLIS_DEVICE, else the recorder's device
  std::string mediaDir;  // empty: TRELLIS_MEDIA_DIR, else the recorder's
  std::vector<std::string> commands;  // -c lines, in order
  std::string script;                 // -f; "-" is standard input
  bool quiet = false;
  ColourWhen colour = ColourWhen::kDefault;
  bool json = false;  // --list and --check print JSON Lines
  bool readOnly = false;  // -r; TRELLIS_READ_ONLY works as well
  std::string undo;       // -u; empty: TRELLIS_UNDO, else no journal
  std::string restore;    // --restore: the journal to replay (kRestore)
  bool force = false;     // --force, with --restore only
  bool dryRun = false;    // --dry-run, with --restore only
  std::string exportDir;  // --export: where the footage goes (kExport)
  std::string reportFile;  // --report: the HTML file (kReport)
  SegmentFilter filter;   // --channel, --from, --to: with --list, --export
  std::string outputDir;  // -o: where the console's extractions write
  char repairAnswer = 0;  // -n, -p or -y with --repair; 0: ask
  bool noUndo = false;    // --no-undo: a repair without a journal

  // Command lines come from -c or -f, and the exit status tells how they
  // went.
  bool scripted() const { return !commands.empty() || !script.empty(); }
};

// Exit statuses. Without -c or -f the console ends with kExitOk whatever its
// commands did, as on the recorder.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // a command failed or named no command
constexpr int kExitUsage = 2;   // a bad command line, or no card to work on
// SIGTERM during an extraction: the console ends once the copy has cleaned
// up and every resource is released, with the status a shell shows for it.
constexpr int kExitTerminated = 143;

// Parses argv (getopt_long; "--" ends the options). 0, or -1 after one line
// on standard error saying what is wrong.
int parseOptions(int argc, char** argv, Options* options);

// True when argv asks for --repair (under any name getopt_long takes for
// it), whose usage errors have an exit status of their own.
bool asksForRepair(int argc, char** argv);

// The usage text, on standard output.
void printUsage();

}  // namespace tr

#endif  // TRELLIS_CONSOLE_OPTIONS_H_
