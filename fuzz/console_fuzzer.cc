// The console fed arbitrary input against a small card. The input is split
// into words by the line parser directly (any bytes, any length, NULs
// included), then given whole to the console loop as its standard input,
// so every line of it goes through the line reader, the parser and the
// dispatcher to whatever command it names.
//
// The card is a sparse 2 GiB image whose four index files have small
// dimensions (4 data files, 8 segments, 3 auxiliaries); record segment 1/1
// and picture segment 1/1 hold data in TR00001.mp4 and TR00001.picture.
// What the writing commands change is put back before the next input, and
// the files the extractions make are removed, so every input starts from
// the same card.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/platform.h"
#include "console/console.h"
#include "fuzz/fuzz_support.h"

namespace tr {
namespace fuzz {
namespace {

constexpr uint64_t kCardSize = 2147483648ULL;
constexpr uint64_t kIndexBases[4] = {51328, 10775914, 21500500, 32225086};
constexpr uint64_t kSegmentOneOne = 264 + 32;  // from an index file's start

bool gCardWritten = false;

ssize_t noteWrite(int fd, const void* buf, size_t count) {
  gCardWritten = true;
  return kSystemCalls.write(fd, buf, count);
}

template <typename T>
void put(const std::string& path, uint64_t offset, T value) {
  putBytes(path, offset, &value, sizeof value);
}

std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 13 + 7);
  return bytes;
}

void makeCard() {
  const std::string card = scratchFile("card.img");
  sizeFile(card, 0);
  sizeFile(card, kCardSize);
  for (int k = 0; k < 4; ++k) {
    const uint64_t base = kIndexBases[k];
    putBytes(card, base, "IDX_01", 7);
    put<uint8_t>(card, base + 7, k < 2 ? 1 : 2);
    put<uint32_t>(card, base + 144, 4);  // maxFileNum
    put<uint32_t>(card, base + 148, 8);  // maxSegmentNum
    put<uint32_t>(card, base + 152, 3);  // maxAuxNumber
    put<uint8_t>(card, base + kSegmentOneOne + 7, 1);  // in use
  }
  // Record segment 1/1: 64 bytes at 16, three I-frame entries at 100.
  const uint64_t rec = kIndexBases[0] + kSegmentOneOne;
  put<uint64_t>(card, rec + 8, 16);
  put<uint64_t>(card, rec + 16, 64);
  put<uint64_t>(card, rec + 24, 100);
  put<uint64_t>(card, rec + 32, 96);
  // Picture segment 1/1: two pictures of 100 and 200 bytes from 0.
  const uint64_t pic = kIndexBases[2] + kSegmentOneOne;
  put<uint64_t>(card, pic + 24, 300);
  put<uint32_t>(card, pic + 48, 100);
  put<uint32_t>(card, pic + 72, 200);
  put<uint8_t>(card, pic + 1632, 2);
  gCardWritten = false;
}

void makeDataFiles() {
  for (const char* name : {"TR00001.mp4", "TR00001.picture"}) {
    const std::string path = scratchFile(name);
    sizeFile(path, 0);
    const std::string bytes = pattern(300);
    putBytes(path, 0, bytes.data(), bytes.size());
  }
}

// Everything but the card, the data files and the input goes.
void removeOutputs() {
  DIR* dir = ::opendir(scratchDir().c_str());
  if (dir == nullptr) return;
  std::vector<std::string> doomed;
  while (const struct dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && name != "card.img" &&
        name != "input.txt" && name.compare(0, 2, "TR") != 0) {
      doomed.push_back(name);
    }
  }
  ::closedir(dir);
  for (const std::string& name : doomed) {
    ::unlink(scratchFile(name).c_str());
  }
}

void parseDirectly(const uint8_t* data, size_t size) {
  // The parser looks at positions 0..len, so the buffer has one byte more.
  std::vector<char> line(data, data + size);
  line.push_back('\0');
  tr_LineParser* words =
      _tr_lineParser(line.data(), static_cast<int32_t>(size));
  if (words != nullptr) {
    for (int32_t i = 0; i < words->argc; ++i) {
      if (std::strlen(words->argv[i]) == 0) std::abort();
    }
  }
  _tr_freeLineParser(words);
}

void runConsole(const uint8_t* data, size_t size) {
  const std::string input = scratchFile("input.txt");
  FILE* file = std::fopen(input.c_str(), "wb");
  if (file == nullptr ||
      std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) {
    std::abort();
  }
  if (std::freopen(input.c_str(), "rb", stdin) == nullptr) std::abort();
  char name[] = "trellis-maintain";
  char* argv[] = {name, nullptr};
  consoleMain(1, argv);
}

}  // namespace
}  // namespace fuzz
}  // namespace tr

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  using namespace tr;
  fuzz::silenceStdout();
  setenv("TRELLIS_DEVICE", fuzz::scratchFile("card.img").c_str(), 1);
  setenv("TRELLIS_MEDIA_DIR", fuzz::scratchDir().c_str(), 1);
  unsetenv("NO_COLOR");
  fuzz::makeCard();
  fuzz::makeDataFiles();
  sys.write = fuzz::noteWrite;
  fuzz::boundHeap();
  fuzz::trackResources();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tr;
  fuzz::parseDirectly(data, size);
  fuzz::checkReturned("the line parser");
  fuzz::runConsole(data, size);
  fuzz::checkReturned("the console");
  if (fuzz::gCardWritten) fuzz::makeCard();
  fuzz::removeOutputs();
  return 0;
}
