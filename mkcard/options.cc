#include "mkcard/options.h"

#include <cctype>
#include <limits>

#include "base/output.h"
#include "base/platform.h"
#include "format/index_layout.h"

namespace tr {
namespace {

// The recorder stores times in 32 bits; the sample's recordings run for
// well under a day after the start time, and must end before 2038.
constexpr int64_t kLatestStartTime = 2147483647LL - 86400;

bool parseDecimal(const std::string& text, uint64_t limit, uint64_t* value) {
  if (text.empty()) return false;
  uint64_t result = 0;
  for (const char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    const uint64_t digit = static_cast<uint64_t>(c - '0');
    if (result > (limit - digit) / 10) return false;
    result = result * 10 + digit;
  }
  *value = result;
  return true;
}

int usageError(const std::string& message) {
  err("trellis-mkcard: %s\nTry 'trellis-mkcard --help' for more "
      "information.\n",
      message.c_str());
  return -1;
}

int parseCount(const std::string& name, const std::string& text,
               uint32_t lowest, uint32_t highest, uint32_t* value) {
  uint64_t number = 0;
  if (!parseDecimal(text, highest, &number) || number < lowest) {
    return usageError(
        formatString("%s wants a whole number from %u to %u, not '%s'",
                     name.c_str(), lowest, highest, text.c_str()));
  }
  *value = static_cast<uint32_t>(number);
  return 0;
}

// Applies one option that takes a value. 0 or -1.
int applyValue(const std::string& name, const std::string& value,
               MkcardOptions* options) {
  constexpr uint32_t kMax = std::numeric_limits<uint32_t>::max();
  if (name == "--size") {
    if (!parseSize(value, &options->size)) {
      return usageError(formatString(
          "%s wants a size in bytes, optionally with K, M, G or T, not '%s'",
          name.c_str(), value.c_str()));
    }
    options->sizeGiven = true;
    return 0;
  }
  if (name == "--files") {
    return parseCount(name, value, 1, kMax, &options->files);
  }
  if (name == "--segments") {
    return parseCount(name, value, 1, kMax, &options->segments);
  }
  if (name == "--aux") {
    return parseCount(name, value, 1, kAuxiliaryCount, &options->aux);
  }
  if (name == "--time") {
    uint64_t seconds = 0;
    if (!parseDecimal(value, kLatestStartTime, &seconds)) {
      return usageError(formatString(
          "%s wants seconds since 1970-01-01 UTC, at most %lld, not '%s'",
          name.c_str(), static_cast<long long>(kLatestStartTime),
          value.c_str()));
    }
    options->startTime = static_cast<int64_t>(seconds);
    options->timeGiven = true;
    return 0;
  }
  // --sample
  if (value.empty()) return usageError(name + " wants a directory");
  options->sample = true;
  options->mediaDir = value;
  return 0;
}

bool takesValue(const std::string& name) {
  return name == "--size" || name == "--files" || name == "--segments" ||
         name == "--aux" || name == "--time" || name == "--sample";
}

}  // namespace

bool parseSize(const std::string& text, uint64_t* bytes) {
  if (text.empty()) return false;
  std::string digits = text;
  int shift = 0;
  switch (std::toupper(static_cast<unsigned char>(text.back()))) {
    case 'K':
      shift = 10;
      break;
    case 'M':
      shift = 20;
      break;
    case 'G':
      shift = 30;
      break;
    case 'T':
      shift = 40;
      break;
    default:
      break;
  }
  if (shift != 0) digits.pop_back();
  uint64_t value = 0;
  if (!parseDecimal(digits, std::numeric_limits<uint64_t>::max() >> shift,
                    &value) ||
      value == 0) {
    return false;
  }
  *bytes = value << shift;
  return true;
}

int parseOptions(int argc, char** argv, MkcardOptions* options) {
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (optionsEnded || word.empty() || word[0] != '-' || word == "-") {
      if (!options->target.empty()) {
        return usageError("one target only; got '" + options->target +
                          "' and '" + word + "'");
      }
      options->target = word;
      continue;
    }
    if (word == "--") {
      optionsEnded = true;
      continue;
    }
    if (word == "-h" || word == "--help") {
      options->help = true;
      continue;
    }
    if (word == "-V" || word == "--version") {
      options->version = true;
      continue;
    }
    if (word == "--force") {
      options->force = true;
      continue;
    }
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (!takesValue(name)) return usageError("unknown option '" + word + "'");
    std::string value;
    if (equals != std::string::npos) {
      value = word.substr(equals + 1);
    } else if (i + 1 < argc) {
      value = argv[++i];
    } else {
      return usageError(name + " wants a value");
    }
    if (applyValue(name, value, options) == -1) return -1;
  }
  if (!options->help && !options->version && options->target.empty()) {
    return usageError("no target given: name an image file or a block device");
  }
  return 0;
}

void printUsage() {
  out("Usage: trellis-mkcard [OPTION]... TARGET\n"
      "\n"
      "Lays out a Trellis card on TARGET, an image file or a card's block\n"
      "device, exactly where the console finds it: the storage head at byte\n"
      "51200 and, from byte 51328, the record, record backup, picture and\n"
      "picture backup index files, each with its header, the head and the\n"
      "segment infos of every data file, and the auxiliary region at its end.\n"
      "The index files take 2 percent of the card; a card needs about 1 GB.\n"
      "\n"
      "Options:\n"
      "  --size SIZE         size of the image file in bytes, or a number\n"
      "                      with K, M, G or T (powers of 1024), e.g. 2G.\n"
      "                      Needed to create an image; an existing image\n"
      "                      keeps its size unless given. Not for a block\n"
      "                      device, which is used whole.\n"
      "  --files N           data files described by each index file\n"
      "                      (maxFileNum), default 16\n"
      "  --segments N        segment infos per data file (maxSegmentNum),\n"
      "                      default 32. The data files' records must end\n"
      "                      before the auxiliary region; the picture index\n"
      "                      files' take 264 + files x (32 + N x 1680) bytes.\n"
      "  --aux N             auxiliaries in use (maxAuxNumber), 1 to 100,\n"
      "                      default 100\n"
      "  --time SECONDS      the card's start time, in seconds since\n"
      "                      1970-01-01 00:00:00 UTC; default now. The\n"
      "                      sample's recordings start then.\n"
      "  --sample MEDIA_DIR  also fill the card with sample recordings:\n"
      "                      record data files TR00001.mp4... with media and\n"
      "                      I-frame tables, picture data files\n"
      "                      TR00001.picture... with JPEG pictures, written\n"
      "                      to MEDIA_DIR (created if missing); their segment\n"
      "                      infos, data file heads and auxiliary contexts;\n"
      "                      and a few damaged records as found in the field\n"
      "                      (see below). Needs --files and --segments of at\n"
      "                      least 4.\n"
      "  --force             write over an existing non-empty image file, a\n"
      "                      block device, or data files already in MEDIA_DIR\n"
      "  -h, --help          print this text and exit\n"
      "  -V, --version       print the version and exit\n"
      "\n"
      "Without --force nothing that exists is overwritten; a mounted block\n"
      "device is refused even then. In the sample, the picture backup index\n"
      "file is marked abnormal (magic word cleared, exception flag set),\n"
      "record data file 2 ends in an incomplete segment (3) followed by one\n"
      "not in use (4), and record data file 4 is marked invalid.\n"
      "\n"
      "Example:\n"
      "  trellis-mkcard --size 1G --sample media card.img\n"
      "  trellis-maintain -d card.img -m media\n"
      "\n"
      "Exit status: 0 when the card was written, 1 when it was refused or a\n"
      "write failed, 2 for a bad command line.\n");
}

}  // namespace tr
