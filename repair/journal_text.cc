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

// The CRC-32 of IEEE 802.3 (reflected, polynomial 0xEDB88320), four bytes
// at a time through four tables: a journal of a large repair is mostly the
// text this runs over.
struct CrcTables {
  uint32_t t[4][256];
  constexpr CrcTables() : t() {
    for (uint32_t n = 0; n < 256; ++n) {
      uint32_t crc = n;
      for (int bit = 0; bit < 8; ++bit) {
        crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
      }
      t[0][n] = crc;
    }
    for (uint32_t n = 0; n < 256; ++n) {
      for (int k = 1; k < 4; ++k) {
        t[k][n] = (t[k - 1][n] >> 8) ^ t[0][t[k - 1][n] & 0xFF];
      }
    }
  }
};
constexpr CrcTables kCrc;

uint32_t crc32(const char* data, size_t length) {
  const auto* byte = reinterpret_cast<const unsigned char*>(data);
  uint32_t crc = 0xFFFFFFFFu;
  for (; length >= 4; length -= 4, byte += 4) {
    crc ^= uint32_t{byte[0]} | uint32_t{byte[1]} << 8 |
           uint32_t{byte[2]} << 16 | uint32_t{byte[3]} << 24;
    crc = kCrc.t[3][crc & 0xFF] ^ kCrc.t[2][(crc >> 8) & 0xFF] ^
          kCrc.t[1][(crc >> 16) & 0xFF] ^ kCrc.t[0][crc >> 24];
  }
  for (; length > 0; --length, ++byte) {
    crc = kCrc.t[0][(crc ^ *byte) & 0xFF] ^ (crc >> 8);
  }
  return ~crc;
}

void appendHex(const std::string& bytes, std::string* text) {
  static const char kDigits[] = "0123456789abcdef";
  const size_t at = text->size();
  text->resize(at + bytes.size() * 2);
  char* out = &(*text)[at];
  for (unsigned char c : bytes) {
    *out++ = kDigits[c >> 4];
    *out++ = kDigits[c & 15];
  }
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
  // Built in place: a record of a long write is mostly its two hex lines.
  std::string text;
  text.reserve(record.before.size() * 2 + record.after.size() * 2 + 512 +
               record.device.size() + record.command.size());
  text += formatString(
      "record %u\ndevice %s\nsize %llu\noffset %llu\nlength %zu\ntime %s\n"
      "command %s\nbefore ",
      record.number, record.device.c_str(),
      static_cast<unsigned long long>(record.deviceSize),
      static_cast<unsigned long long>(record.offset), record.after.size(),
      record.time.c_str(), record.command.c_str());
  appendHex(record.before, &text);
  text += "\nafter ";
  appendHex(record.after, &text);
  text += '\n';
  text += formatString("crc32 %08x\n", static_cast<unsigned>(
                                            crc32(text.data(), text.size())));
  return text;
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
