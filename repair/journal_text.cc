// The journal's text: a record's lines, their checksum and their reading.
#include <cstring>

#include "base/platform.h"
#include "repair/journal.h"

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

bool parseJournalRecord(const std::string& text, uint32_t number,
                        JournalRecord* record) {
  std::string value[kRecordLines];
  size_t at = 0;
  size_t checksumStart = 0;
  for (size_t i = 0; i < kRecordLines; ++i) {
    checksumStart = at;
    if (!takeLine(text, &at, kKeys[i], &value[i])) return false;
  }
  uint64_t stated = 0;
  uint64_t length = 0;
  if (at != text.size() || !parseNumber(value[0], &stated) ||
      stated != number || !parseNumber(value[2], &record->deviceSize) ||
      !parseNumber(value[3], &record->offset) ||
      !parseNumber(value[4], &length) || length > kJournalMaxWrite ||
      !parseHex(value[7], &record->before) ||
      !parseHex(value[8], &record->after) || record->before.size() != length ||
      record->after.size() != length) {
    return false;
  }
  const uint32_t crc = crc32(text.data(), checksumStart);
  if (value[9] != formatString("%08x", static_cast<unsigned>(crc))) {
    return false;
  }
  record->number = number;
  record->device = value[1];
  record->time = value[5];
  record->command = value[6];
  return true;
}

}  // namespace tr
