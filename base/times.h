// Times as the card keeps them and as people write them. The recorder
// stores seconds since 1970 in 64-bit fields but counts them in 32 bits:
// only the low half, read as signed, is the time (1901 to 2038). A zone is
// seconds east of UTC. Nothing here depends on the TZ of the machine the
// console runs on.
#ifndef TRELLIS_BASE_TIMES_H_
#define TRELLIS_BASE_TIMES_H_

#include <cstdint>
#include <string>

namespace tr {

// The time a stored 64-bit field holds: its low 32 bits, signed.
int64_t storedSeconds(int64_t raw);

// "2024-03-05T07:08:09Z".
std::string isoUtc(int64_t seconds);
// "2024-03-05T15:08:09+08:00": the clock of a zone `zone` seconds east of
// UTC, and the zone.
std::string isoLocal(int64_t seconds, int32_t zone);
// "+08:00", "-05:30"; "+05:30:15" for a zone not in whole minutes.
std::string isoZone(int32_t zone);
// "20240305T070809Z": a time in a file name, valid on every file system.
std::string compactUtc(int64_t seconds);

// A time as written on the command line: "YYYY-MM-DDTHH:MM:SS" and then
// "Z", "+HH:MM", "-HH:MM" or nothing. Without a zone it is a reading of
// the recorder's clock, whose zone is still to be found.
struct TimeWord {
  int64_t seconds = 0;  // UTC when zoned; else the clock's reading as if UTC
  bool zoned = false;
};
// False when `text` is not such a time, a date that does not exist (Feb 30)
// included.
bool parseTimeWord(const std::string& text, TimeWord* time);

}  // namespace tr

#endif  // TRELLIS_BASE_TIMES_H_
