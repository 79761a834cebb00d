// The look of everything the console prints: colour sequences, the
// timestamp that heads every record and diagnostic, the labelled field line,
// the hexadecimal dump, stored-time and size texts, the word tables and the
// frame around a record. Printers format fields only through these, so the
// look is defined here once.
//
// All output goes through out()/err(). With colour switched off (NO_COLOR)
// they drop every escape sequence and change nothing else.
#ifndef TRELLIS_BASE_OUTPUT_H_
#define TRELLIS_BASE_OUTPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace tr {

constexpr const char kRed[] = "\033[31m";
constexpr const char kGreen[] = "\033[32m";
constexpr const char kYellow[] = "\033[33m";
constexpr const char kBlue[] = "\033[34m";
constexpr const char kMagenta[] = "\033[35m";
constexpr const char kCyan[] = "\033[36m";
constexpr const char kReset[] = "\033[0m";

// Word tables, indexed by a stored value.
extern const char* const kValidityNames[3];
extern const char* const kValidityColours[3];
extern const char* const kYesNoWords[2];
extern const char* const kEnableWords[2];
extern const char* const kUpperYesNoWords[2];

void setColourEnabled(bool enabled);
bool colourEnabled();

// printf to standard output / standard error. err() flushes standard output
// first so that a diagnostic never overtakes the lines printed before it.
int out(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
int err(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// `text` as it stands on standard output.
int outText(const std::string& text);
// perror() after flushing standard output.
void errPerror(const char* message);

// The entry of `table` for `value`, or "Unknown (N)" for a value past its
// end, so a damaged byte is shown, never used as an index.
std::string tableWord(const char* const* table, size_t entries,
                      uint64_t value);

// How text from the card, or any text a user or a file supplied, is
// written where it is shown, so that no byte of it can act there (move a
// terminal's cursor, end a JSON string, forge a line of a journal). Control
// bytes (below 0x20, and 0x7f) are always escaped; a style says what else.
struct TextStyle {
  bool untilNul;        // the text ends at its first NUL
  bool quoted;          // written between double quotes
  bool highBytes;       // bytes from 0x80 on are escaped too
  const char* special;  // further characters that are escaped
  bool specialAsBackslash;  // those after a backslash, else as the others
  bool unicode;  // an escaped byte as "\u00NN", else as "\xNN"
};
// Control bytes as "\xNN": what a terminal is shown.
extern const TextStyle kControlEscaped;
// Control bytes and backslashes as "\xNN": one line that reads back
// unambiguously (the undo journal, diagnostics naming a path).
extern const TextStyle kLineEscaped;
// "...", up to the first NUL, '"' and '\' after a backslash, the rest past
// printable ASCII as "\xNN": card text in a report line.
extern const TextStyle kQuotedText;
// The same with every escape as "\xNN": a value in a change line.
extern const TextStyle kQuotedBytes;
// A JSON string: control bytes and bytes past ASCII as "\u00NN".
extern const TextStyle kJsonString;

std::string escapedText(const char* bytes, size_t size,
                        const TextStyle& style);
inline std::string escapedText(const std::string& text,
                               const TextStyle& style) {
  return escapedText(text.data(), text.size(), style);
}

// `size` bytes of text stored on the card, to be printed. On a terminal
// every control byte (below 0x20, and 0x7f) shows as "\xNN", so a damaged
// or hostile card cannot move the cursor, clear the screen or retitle the
// window; anywhere else the bytes stay exactly as stored.
std::string storedText(const char* stored, size_t size);

// Field lines as the printers use them: green text, an unsigned number in
// decimal, a byte count as size text; a stored flag by the yes/no table,
// green when set and red when clear; a magic word of `size` stored bytes,
// shown up to its first NUL (all of them when there is none) and green only
// when it equals `expected`.
void printGreenField(const char* label, const std::string& value);
void printNumberField(const char* label, uint64_t value);
void printSizeField(const char* label, uint64_t bytes);
void printFlagField(const char* label, uint64_t value);
void printMagicField(const char* stored, size_t size, const char* expected);
// The four lines of a stored span of time: "utc startTime", "utc endTime",
// "timeZone" and "DST", all green.
void printTimeSpanFields(int64_t startTime, int64_t endTime, int32_t timeZone,
                         uint64_t dst);

// "<timestamp> \e[31m<text>\e[0m" on standard error: the one-line reports
// of the readers and of start-up.
void errTimestamped(const std::string& text);

// "\e[33m[YYYY-MM-DD HH:MM:SS]\e[0m" in local time, at most `size` bytes.
void _tr_maintainGetColoredTimestamp(char* buf, size_t size);
// "%-20s: %s%s\e[0m\n" with label, colour, value.
int _tr_maintainPrintColoredField(const char* label, const char* value,
                                  const char* colour);
// Sixteen bytes a line, each line headed by its position from `data`.
void _tr_maintainHexDump(const void* data, size_t len);
// UTC calendar time of the low 32 bits of `seconds`, read as signed.
void _tr_maintainFormatUnixTime(int64_t seconds, char* buf, size_t size);

// A byte count as "N Bytes" (up to 1024), "N.NN KB" (up to 1 MiB) or
// "N.NN MB".
std::string sizeText(uint64_t bytes);
// A zone offset in seconds as "+HH:MM"; zones less than an hour west of UTC
// keep their minus sign ("-00:30"). At most 7 characters, like the recorder's
// own 8-byte text.
std::string timeZoneText(int32_t seconds);

// The frame of a printed record: "\n<timestamp>\n" and the magenta title;
// the cyan "Reserved Fields Hex Dump:" title with its dump; the end line.
void printRecordTimestamp();
void printReservedDump(const void* data, size_t len);
void printRecordEnd();

// `text` between `colour` and the reset sequence, on standard output. Record
// printers colour their titles and sections only through this and the
// helpers below.
int outColoured(const char* colour, const std::string& text);
// The heading of a printed record: the timestamp framed by line breaks,
// then "=== <title> ===" in magenta and a line break.
void printRecordHeading(const std::string& title);
// A blue section title, written with its line breaks as the printer places
// them ("\n[Media Info]\n").
void printSection(const std::string& text);
// The red "[<group> effinfoMask invalid]" line that stands in for the
// fields of a group whose validity bits are clear.
void printInvalidGroup(const std::string& group);

// A diagnostic title line on standard error: timestamp, blank, the title in
// `colour`.
void printDiagnosticTitle(const char* colour, const char* title);

}  // namespace tr

#endif  // TRELLIS_BASE_OUTPUT_H_
