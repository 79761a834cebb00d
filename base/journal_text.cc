// The journal's text: the record lines, their checksum and their reading.
#include "base/journal.h"

#include <cstring>

#include "base/platform.h"

namespace tr {
namespace {

constexpr size_t kRecordLines = 10;
constexpr const char* kKeys[kRecordLines] = {
    "record", "device", "size",   "offset", "length",
    "time",   "command", "before", "after",  "crc32"};

uint32_t crc32(const char* data, size_t length) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < length; ++i) {
    crc ^= static_cast<unsigned char>(data[i]);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
  }
  return ~crc;
}

std::string hexText(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    text += kDigits[c >> 4];
    text += kDigits[c & 15];
  }
  return text;
}

int nibble(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool parseHex(const std::string& text, std::string* bytes) {
  if (text.size() % 2 != 0) return false;
  bytes->clear();
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = nibble(text[i]);
    const int low = nibble(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes->push_back(static_cast<char>(high << 4 | low));
  }
  return true;
}

// Decimal digits only, at most 2^64 - 1.
bool parseNumber(const std::string& text, uint64_t* value) {
  if (text.empty() || text.size() > 20) return false;
  uint64_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (number > (UINT64_MAX - digit) / 10) return false;
    number = number * 10 + digit;
  }
  *value = number;
  return true;
}

// The whole line at `*pos` if it reads "<key> <value>"; moves past it.
bool takeLine(const std::string& text, size_t* pos, const char* key,
              std::string* value) {
  const size_t end = text.find('\n', *pos);
  const size_t keyLength = std::strlen(key);
  if (end == std::string::npos || end < *pos + keyLength + 1 ||
      text.compare(*pos, keyLength, key) != 0 ||
      text[*pos + keyLength] != ' ') {
    return false;
  }
  value->assign(text, *pos + keyLength + 1, end - *pos - keyLength - 1);
  *pos = end + 1;
  return true;
}

// The record at `*pos`, which must carry `number`; moves past it.
bool readRecord(const std::string& text, size_t* pos, uint32_t number,
                JournalRecord* record) {
  std::string value[kRecordLines];
  size_t at = *pos;
  size_t checksumStart = at;
  for (size_t i = 0; i < kRecordLines; ++i) {
    checksumStart = at;
    if (!takeLine(text, &at, kKeys[i], &value[i])) return false;
  }
  uint64_t stated = 0;
  uint64_t length = 0;
  if (!parseNumber(value[0], &stated) || stated != number ||
      !parseNumber(value[2], &record->deviceSize) ||
      !parseNumber(value[3], &record->offset) ||
      !parseNumber(value[4], &length) ||
      !parseHex(value[7], &record->before) ||
      !parseHex(value[8], &record->after) || record->before.size() != length ||
      record->after.size() != length) {
    return false;
  }
  const uint32_t crc = crc32(text.data() + *pos, checksumStart - *pos);
  if (value[9] != formatString("%08x", static_cast<unsigned>(crc))) {
    return false;
  }
  record->number = number;
  record->device = value[1];
  record->time = value[5];
  record->command = value[6];
  *pos = at;
  return true;
}

// Whether the text from the damaged record at `pos` on holds more than one
// record: a second record's first line, or a second checksum line (a lost
// line break joins two records into one line).
bool recordsFollow(const std::string& text, size_t pos) {
  int checksums = 0;
  for (size_t at = pos; at < text.size();) {
    if (at != pos && text.compare(at, 7, "record ") == 0) return true;
    if (text.compare(at, 6, "crc32 ") == 0 && ++checksums == 2) return true;
    const size_t end = text.find('\n', at);
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return false;
}

}  // namespace

std::string formatJournalRecord(const JournalRecord& record) {
  const std::string body = formatString(
      "record %u\ndevice %s\nsize %llu\noffset %llu\nlength %zu\ntime %s\n"
      "command %s\nbefore %s\nafter %s\n",
      record.number, record.device.c_str(),
      static_cast<unsigned long long>(record.deviceSize),
      static_cast<unsigned long long>(record.offset), record.after.size(),
      record.time.c_str(), record.command.c_str(),
      hexText(record.before).c_str(), hexText(record.after).c_str());
  return body + formatString("crc32 %08x\n", static_cast<unsigned>(crc32(
                                                  body.data(), body.size())));
}

int parseJournal(const std::string& text, JournalContents* contents,
                 std::string* error) {
  *contents = JournalContents();
  const std::string magic = kJournalMagic;
  if (text.size() < magic.size() && magic.compare(0, text.size(), text) == 0) {
    contents->tornTail = !text.empty();
    return 0;
  }
  if (text.compare(0, magic.size(), magic) != 0) {
    *error = text.compare(0, 13, "trellis-undo ") == 0
                 ? "it is an undo journal of another version than 1"
                 : "it is not an undo journal";
    return -1;
  }
  size_t pos = magic.size();
  contents->wholeLength = pos;
  while (pos < text.size()) {
    JournalRecord record;
    const size_t number = contents->records.size() + 1;
    if (!readRecord(text, &pos, static_cast<uint32_t>(number), &record)) {
      if (recordsFollow(text, pos)) {
        *error = formatString(
            "record %zu (from byte %zu) is damaged and more records follow it",
            number, pos);
        return -1;
      }
      contents->tornTail = true;
      return 0;
    }
    contents->records.push_back(record);
    contents->wholeLength = pos;
  }
  return 0;
}

std::string escapeControlBytes(const std::string& text) {
  std::string escaped;
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7f || c == '\\') {
      escaped += formatString("\\x%02x", c);
    } else {
      escaped += static_cast<char>(c);
    }
  }
  return escaped;
}

int checkJournalDevice(const JournalContents& contents, uint64_t deviceSize,
                       std::string* why) {
  for (const JournalRecord& record : contents.records) {
    if (record.deviceSize == deviceSize) continue;
    *why = formatString(
        "it was made on a device of %llu bytes and %s holds %llu",
        static_cast<unsigned long long>(record.deviceSize),
        escapeControlBytes(deviceName).c_str(),
        static_cast<unsigned long long>(deviceSize));
    return -1;
  }
  return 0;
}

}  // namespace tr
