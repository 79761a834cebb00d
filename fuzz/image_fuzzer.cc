// One command run on an arbitrary card: start-up measures a sparse image of
// a size picked by the input, then the dispatcher runs one of the 38
// commands with numbers from the input. Every byte any reader takes from
// the device, and every byte taken from a data file, comes from the input
// (the real call runs first, so offsets, short reads at the image's end and
// 64-bit seeks are the system's own). So the index file header, the records
// it leads to and the media tables hold whatever the fuzzer chooses: zero or
// huge dimensions, numbers on every boundary.
//
// The input may also make one system call fail. After start-up and after
// the command every descriptor, stream and heap block taken through tr::sys
// must have been given back.
//
// Layout of an input: device size class, command row, data file size class,
// fault, three 32-bit numbers, then the byte stream the reads return.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/output.h"
#include "base/platform.h"
#include "format/device_layout.h"
#include "fuzz/fuzz_support.h"
#include "maintain/commands.h"
#include "maintain/startup.h"

namespace tr {
namespace fuzz {
namespace {

// Device sizes around the start-up layout's edges: no room even for the
// storage head, the head and nothing more, index files too small for their
// auxiliary region (below about 870 MB), cards of every common size, and
// offsets beyond 4 GiB.
constexpr uint64_t kDeviceSizes[] = {
    0,          1,           51200,       51328,         51592,
    4194304,    67108864,    866000000,   1073741824,    2147483648ULL,
    8589934592ULL, 68719476736ULL, 1099511627776ULL};
constexpr int kDeviceClasses = sizeof kDeviceSizes / sizeof kDeviceSizes[0];

// Data file sizes: missing, empty, less than one I-frame entry, one entry,
// one copy chunk, one chunk and a byte.
constexpr int64_t kDataSizes[] = {-1, 0, 16, 31, 32, 100, 4096, 4194304,
                                  4194305};
constexpr int kDataClasses = sizeof kDataSizes / sizeof kDataSizes[0];

enum Call { kOpen, kSeek, kRead, kWrite, kClose, kFopen, kFread, kFwrite };

struct Run {
  Bytes* stream = nullptr;  // what the reads return
  int failCall = -1;
  int failAt = 0;
  int calls[8] = {};
  std::string dataPath;  // empty: no data file
};

Run run;

bool failsNow(Call call) {
  return ++run.calls[call] == run.failAt && run.failCall == call;
}

void overlay(void* buf, size_t count) {
  if (run.stream != nullptr) run.stream->copy(buf, count);
}

int fuzzOpen(const char* path, int flags) {
  if (failsNow(kOpen)) {
    errno = EACCES;
    return -1;
  }
  return kSystemCalls.open(path, flags);
}

int64_t fuzzSeek(int fd, int64_t offset) {
  if (failsNow(kSeek)) {
    errno = EIO;
    return -1;
  }
  return kSystemCalls.lseek(fd, offset);
}

ssize_t fuzzRead(int fd, void* buf, size_t count) {
  if (failsNow(kRead)) {
    errno = EIO;
    return -1;
  }
  const ssize_t got = kSystemCalls.read(fd, buf, count);
  if (got > 0) overlay(buf, static_cast<size_t>(got));
  return got;
}

ssize_t fuzzWrite(int fd, const void* buf, size_t count) {
  if (failsNow(kWrite)) {
    errno = ENOSPC;
    return 0;
  }
  return kSystemCalls.write(fd, buf, count);
}

// A failing close has closed the descriptor all the same.
int fuzzClose(int fd) {
  const int result = kSystemCalls.close(fd);
  if (failsNow(kClose)) {
    errno = EIO;
    return -1;
  }
  return result;
}

// Sources are the one data file of this input, whatever its name; outputs
// go nowhere.
FILE* fuzzFopen(const char* path, const char* mode) {
  (void)path;
  if (failsNow(kFopen)) {
    errno = EACCES;
    return nullptr;
  }
  const bool output = mode[0] == 'w';
  if (!output && run.dataPath.empty()) {
    errno = ENOENT;
    return nullptr;
  }
  return kSystemCalls.fopen(output ? "/dev/null" : run.dataPath.c_str(),
                            mode);
}

size_t fuzzFread(void* buf, size_t size, size_t count, FILE* stream) {
  if (failsNow(kFread)) {
    errno = EIO;
    return 0;
  }
  const size_t got = kSystemCalls.fread(buf, size, count, stream);
  overlay(buf, got * size);
  return got;
}

size_t fuzzFwrite(const void* buf, size_t size, size_t count, FILE* stream) {
  if (failsNow(kFwrite)) {
    errno = ENOSPC;
    return count / 2;
  }
  return kSystemCalls.fwrite(buf, size, count, stream);
}

}  // namespace
}  // namespace fuzz
}  // namespace tr

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  using namespace tr;
  fuzz::silenceStdout();
  setDevicePath(fuzz::scratchFile("card.img"));
  setMediaDir(fuzz::scratchDir());
  sys.open = fuzz::fuzzOpen;
  sys.lseek = fuzz::fuzzSeek;
  sys.read = fuzz::fuzzRead;
  sys.write = fuzz::fuzzWrite;
  sys.close = fuzz::fuzzClose;
  sys.fopen = fuzz::fuzzFopen;
  sys.fread = fuzz::fuzzFread;
  sys.fwrite = fuzz::fuzzFwrite;
  fuzz::boundHeap();
  fuzz::trackResources();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tr;
  using fuzz::run;
  fuzz::Bytes in(data, size);
  const uint8_t deviceClass = in.u8();
  const uint8_t rowIndex = in.u8();
  const uint8_t dataClass = in.u8();
  const uint8_t fault = in.u8();
  std::vector<std::string> words(1, kCommands[rowIndex % kCommandCount].word);
  for (int i = 1; i < wordCount(kCommands[rowIndex % kCommandCount].args);
       ++i) {
    words.push_back(std::to_string(in.i32()));
  }

  run = fuzz::Run();
  // 0xC0 and above: bits 0-2 the call, bits 3-5 which of its calls fails.
  if (fault >= 0xC0) {
    run.failCall = fault & 7;
    run.failAt = 1 + ((fault >> 3) & 7);
  }
  const std::string card = fuzz::scratchFile("card.img");
  fuzz::sizeFile(card, 0);  // drop what the last command wrote
  fuzz::sizeFile(card, fuzz::kDeviceSizes[deviceClass % fuzz::kDeviceClasses]);
  const int64_t dataSize = fuzz::kDataSizes[dataClass % fuzz::kDataClasses];
  if (dataSize >= 0) {
    run.dataPath = fuzz::scratchFile("data.bin");
    fuzz::sizeFile(run.dataPath, static_cast<uint64_t>(dataSize));
  }
  run.stream = &in;

  _tr_maintainInit();
  fuzz::checkReturned("start-up");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  tr_maintain(static_cast<int>(argv.size()), argv.data());
  fuzz::checkReturned(words[0].c_str());
  run.stream = nullptr;
  return 0;
}
