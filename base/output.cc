#include "base/output.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "base/platform.h"

namespace tr {

const char* const kValidityNames[3] = {"Invalid", "Read/Write", "Read-Only"};
const char* const kValidityColours[3] = {kRed, kGreen, kYellow};
const char* const kYesNoWords[2] = {"No", "Yes"};
const char* const kEnableWords[2] = {"Disabled", "Enabled"};
const char* const kUpperYesNoWords[2] = {"NO", "YES"};

namespace {

bool gColour = true;

// Drops every "ESC [ ... final-byte" sequence from `text`.
std::string stripEscapes(const char* text, size_t length) {
  std::string plain;
  plain.reserve(length);
  for (size_t i = 0; i < length; ++i) {
    if (text[i] == '\033' && i + 1 < length && text[i + 1] == '[') {
      size_t j = i + 2;
      while (j < length && (text[j] < 0x40 || text[j] > 0x7e)) ++j;
      i = j;
      continue;
    }
    plain.push_back(text[i]);
  }
  return plain;
}

__attribute__((format(printf, 2, 0))) int writeFormatted(FILE* stream,
                                                     const char* fmt,
                                                     va_list args) {
  if (gColour) return std::vfprintf(stream, fmt, args);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, args);
  if (length < 0) {
    va_end(again);
    return length;
  }
  std::vector<char> buffer(static_cast<size_t>(length) + 1);
  std::vsnprintf(buffer.data(), buffer.size(), fmt, again);
  va_end(again);
  const std::string plain = stripEscapes(buffer.data(), length);
  return static_cast<int>(std::fwrite(plain.data(), 1, plain.size(), stream));
}

}  // namespace

void setColourEnabled(bool enabled) { gColour = enabled; }

bool colourEnabled() { return gColour; }

int out(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = writeFormatted(stdout, fmt, args);
  va_end(args);
  return result;
}

int err(const char* fmt, ...) {
  std::fflush(stdout);
  va_list args;
  va_start(args, fmt);
  const int result = writeFormatted(stderr, fmt, args);
  va_end(args);
  return result;
}

int outText(const std::string& text) {
  if (gColour || text.find('\033') == std::string::npos) {
    return static_cast<int>(std::fwrite(text.data(), 1, text.size(), stdout));
  }
  const std::string plain = stripEscapes(text.data(), text.size());
  return static_cast<int>(std::fwrite(plain.data(), 1, plain.size(), stdout));
}

void errPerror(const char* message) {
  std::fflush(stdout);
  std::perror(message);
}

std::string tableWord(const char* const* table, size_t entries,
                      uint64_t value) {
  if (value < entries) return table[value];
  return formatString("Unknown (%llu)", static_cast<unsigned long long>(value));
}

void _tr_maintainGetColoredTimestamp(char* buf, size_t size) {
  if (buf == nullptr || size == 0) return;
  const time_t now = std::time(nullptr);
  const struct tm* local = std::localtime(&now);
  buf[0] = '\0';
  if (local != nullptr &&
      std::strftime(buf, size, "\033[33m[%Y-%m-%d %H:%M:%S]\033[0m", local) ==
          0) {
    buf[0] = '\0';
  }
}

int _tr_maintainPrintColoredField(const char* label, const char* value,
                                  const char* colour) {
  // The line a record printer prints most: "%-20s: %s%s\e[0m\n", put
  // together without the cost of a format.
  std::string line = label;
  if (line.size() < 20) line.append(20 - line.size(), ' ');
  line += ": ";
  line += colour;
  line += value;
  line += "\033[0m\n";
  return outText(line);
}

void printGreenField(const char* label, const std::string& value) {
  _tr_maintainPrintColoredField(label, value.c_str(), kGreen);
}

void printNumberField(const char* label, uint64_t value) {
  char text[32];
  std::snprintf(text, sizeof text, "%llu",
                static_cast<unsigned long long>(value));
  _tr_maintainPrintColoredField(label, text, kGreen);
}

void printSizeField(const char* label, uint64_t bytes) {
  _tr_maintainPrintColoredField(label, sizeText(bytes).c_str(), kGreen);
}

void printFlagField(const char* label, uint64_t value) {
  _tr_maintainPrintColoredField(label, tableWord(kYesNoWords, 2, value).c_str(),
                                value != 0 ? kGreen : kRed);
}

const TextStyle kControlEscaped = {false, false, false, "", false, false};
const TextStyle kLineEscaped = {false, false, false, "\\", false, false};
const TextStyle kQuotedText = {true, true, true, "\"\\", true, false};
const TextStyle kQuotedBytes = {true, true, true, "\"\\", false, false};
const TextStyle kJsonString = {false, true, true, "\"\\", true, true};

std::string escapedText(const char* bytes, size_t size,
                        const TextStyle& style) {
  std::string text = style.quoted ? "\"" : "";
  text.reserve(size + 2);
  for (size_t i = 0; i < size; ++i) {
    const char c = bytes[i];
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte == 0 && style.untilNul) break;
    bool special = false;
    for (const char* s = style.special; byte != 0 && *s != '\0'; ++s) {
      special = special || *s == c;
    }
    if (special && style.specialAsBackslash) {
      text += '\\';
      text += c;
    } else if (special || byte < 0x20 || byte == 0x7f ||
               (byte > 0x7f && style.highBytes)) {
      char escaped[8];
      if (style.unicode) {
        std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      } else {
        std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      }
      text += escaped;
    } else {
      text += c;
    }
  }
  if (style.quoted) text += '"';
  return text;
}

std::string storedText(const char* stored, size_t size) {
  // Standard output stays where the console found it: asked once.
  static const bool terminal = ::isatty(STDOUT_FILENO) == 1;
  if (!terminal) return std::string(stored, size);
  return escapedText(stored, size, kControlEscaped);
}

void printMagicField(const char* stored, size_t size, const char* expected) {
  // A word stored without its NUL still shows whole and is compared whole.
  const std::string magic(stored, strnlen(stored, size));
  _tr_maintainPrintColoredField("Magic Word",
                                storedText(magic.data(), magic.size()).c_str(),
                                magic == expected ? kGreen : kRed);
}

void printTimeSpanFields(int64_t startTime, int64_t endTime, int32_t timeZone,
                         uint64_t dst) {
  char start[32];
  char end[32];
  _tr_maintainFormatUnixTime(startTime, start, sizeof start);
  _tr_maintainFormatUnixTime(endTime, end, sizeof end);
  printGreenField("utc startTime", start);
  printGreenField("utc endTime", end);
  printGreenField("timeZone", timeZoneText(timeZone));
  printGreenField("DST", tableWord(kEnableWords, 2, dst));
}

void errTimestamped(const std::string& text) {
  char stamp[64];
  _tr_maintainGetColoredTimestamp(stamp, sizeof stamp);
  err("%s \033[31m%s\033[0m\n", stamp, text.c_str());
}

void _tr_maintainHexDump(const void* data, size_t len) {
  static const char kDigits[] = "0123456789ABCDEF";
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  // Built as one text, digit by digit: every record printout has dumps.
  std::string text = "\033[36m";
  text.reserve(len * 3 + len / 16 * 8 + 16);
  char position[32];
  for (size_t i = 0; i < len; ++i) {
    if (i % 16 == 0) {
      std::snprintf(position, sizeof position, "\n%04zX: ", i);
      text += position;
    }
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0xF];
    text += ' ';
  }
  text += "\033[0m\n";
  outText(text);
}

void _tr_maintainFormatUnixTime(int64_t seconds, char* buf, size_t size) {
  if (buf == nullptr || size == 0) return;
  // The recorder stores 64 bits but counts in 32: the high half is ignored.
  const time_t low = static_cast<int32_t>(static_cast<uint32_t>(seconds));
  struct tm utc;
  std::memset(&utc, 0, sizeof utc);
  if (gmtime_r(&low, &utc) == nullptr) {
    buf[0] = '\0';
    return;
  }
  // The low half spans the years 1901 to 2038: four digits each time.
  if (std::strftime(buf, size, "%Y-%m-%d %H:%M:%S", &utc) == 0) buf[0] = '\0';
}

std::string sizeText(uint64_t bytes) {
  char text[32];
  if (bytes > 1048576) {
    std::snprintf(text, sizeof text, "%.2f MB",
                  static_cast<double>(bytes) / 1048576.0);
  } else if (bytes > 1024) {
    std::snprintf(text, sizeof text, "%.2f KB",
                  static_cast<double>(bytes) / 1024.0);
  } else {
    std::snprintf(text, sizeof text, "%llu Bytes",
                  static_cast<unsigned long long>(bytes));
  }
  return text;
}

std::string timeZoneText(int32_t seconds) {
  const int hours = seconds / 3600;
  int minutes = (seconds % 3600) / 60;
  if (minutes < 0) minutes = -minutes;
  std::string text = seconds < 0 && hours == 0
                         ? formatString("-00:%02d", minutes)
                         : formatString("%+03d:%02d", hours, minutes);
  // The recorder keeps the zone in an 8-byte text: at most 7 characters.
  if (text.size() > 7) text.resize(7);
  return text;
}

void printRecordTimestamp() {
  char stamp[64];
  _tr_maintainGetColoredTimestamp(stamp, sizeof stamp);
  out("\n%s\n", stamp);
}

void printReservedDump(const void* data, size_t len) {
  out("\033[36m\nReserved Fields Hex Dump:\033[0m");
  _tr_maintainHexDump(data, len);
}

void printRecordEnd() { out("\033[35m===========END==========\n\033[0m"); }

int outColoured(const char* colour, const std::string& text) {
  return outText(colour + text + kReset);
}

void printRecordHeading(const std::string& title) {
  printRecordTimestamp();
  outColoured(kMagenta, "=== " + title + " ===");
  out("\n");
}

void printSection(const std::string& text) { outColoured(kBlue, text); }

void printInvalidGroup(const std::string& group) {
  outColoured(kRed, "\n[" + group + " effinfoMask invalid]\n");
}

void printDiagnosticTitle(const char* colour, const char* title) {
  char stamp[64];
  _tr_maintainGetColoredTimestamp(stamp, sizeof stamp);
  err("%s %s%s\033[0m\n", stamp, colour, title);
}

}  // namespace tr
