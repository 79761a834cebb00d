#include "base/times.h"

#include <cstdio>

#include "base/platform.h"

namespace tr {
namespace {

struct Civil {
  int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
};

// Days since 1970-01-01 of a date of the proleptic Gregorian calendar, and
// back: the calendar counted in 400-year eras of 146097 days, each year
// taken from March so that the leap day ends it.
int64_t daysFromCivil(const Civil& date) {
  const int64_t y = date.year - (date.month <= 2 ? 1 : 0);
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yearOfEra = y - era * 400;
  const int64_t dayOfYear =
      (153 * (date.month + (date.month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
  const int64_t dayOfEra =
      yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

Civil civilFromDays(int64_t days) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear =
      dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shifted = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * shifted + 2) / 5 + 1);
  const int month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

int64_t floorDiv(int64_t a, int64_t b) {
  return a / b - (a % b != 0 && (a < 0) != (b < 0) ? 1 : 0);
}

// The date and the clock of `seconds`, their parts joined as given.
std::string clockText(int64_t seconds, const char* dateSeparator,
                      const char* timeSeparator, const char* middle) {
  const int64_t days = floorDiv(seconds, 86400);
  const int64_t inDay = seconds - days * 86400;
  const Civil date = civilFromDays(days);
  return formatString("%04lld%s%02d%s%02d%s%02d%s%02d%s%02d",
                      static_cast<long long>(date.year), dateSeparator,
                      date.month, dateSeparator, date.day, middle,
                      static_cast<int>(inDay / 3600), timeSeparator,
                      static_cast<int>(inDay % 3600 / 60), timeSeparator,
                      static_cast<int>(inDay % 60));
}

// The `count` digits at `text[at]`, or -1.
int digits(const std::string& text, size_t at, size_t count) {
  if (text.size() < at + count) return -1;
  int value = 0;
  for (size_t i = at; i < at + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

bool leapYear(int year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int daysInMonth(int year, int month) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && leapYear(year) ? 29 : kDays[month - 1];
}

}  // namespace

int64_t storedSeconds(int64_t raw) {
  return static_cast<int32_t>(static_cast<uint32_t>(raw));
}

std::string isoUtc(int64_t seconds) {
  return clockText(seconds, "-", ":", "T") + "Z";
}

std::string isoZone(int32_t zone) {
  const int64_t size = zone < 0 ? -int64_t{zone} : zone;
  std::string text = formatString("%c%02d:%02d", zone < 0 ? '-' : '+',
                                  static_cast<int>(size / 3600),
                                  static_cast<int>(size % 3600 / 60));
  if (size % 60 != 0)
    text += formatString(":%02d", static_cast<int>(size % 60));
  return text;
}

std::string isoLocal(int64_t seconds, int32_t zone) {
  return clockText(seconds + zone, "-", ":", "T") + isoZone(zone);
}

std::string compactUtc(int64_t seconds) {
  return clockText(seconds, "", "", "T") + "Z";
}

bool parseTimeWord(const std::string& text, TimeWord* time) {
  // YYYY-MM-DDTHH:MM:SS, 19 characters, then the zone.
  const int year = digits(text, 0, 4);
  const int month = digits(text, 5, 2);
  const int day = digits(text, 8, 2);
  const int hour = digits(text, 11, 2);
  const int minute = digits(text, 14, 2);
  const int second = digits(text, 17, 2);
  if (year < 0 || month < 1 || month > 12 || day < 1 || hour < 0 || hour > 23 ||
      minute < 0 || minute > 59 || second < 0 || second > 59 ||
      text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
      text[16] != ':' || day > daysInMonth(year, month)) {
    return false;
  }
  int64_t offset = 0;
  const std::string zone = text.substr(19);
  if (zone == "Z") {
    time->zoned = true;
  } else if (zone.empty()) {
    time->zoned = false;
  } else {
    const int zoneHours = digits(zone, 1, 2);
    const int zoneMinutes = digits(zone, 4, 2);
    if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') ||
        zone[3] != ':' || zoneHours < 0 || zoneHours > 23 || zoneMinutes < 0 ||
        zoneMinutes > 59) {
      return false;
    }
    offset = (zoneHours * 3600 + zoneMinutes * 60) * (zone[0] == '-' ? -1 : 1);
    time->zoned = true;
  }
  time->seconds = daysFromCivil({year, month, day}) * 86400 + hour * 3600 +
                  minute * 60 + second - offset;
  return true;
}

}  // namespace tr
