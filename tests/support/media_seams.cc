#include "tests/support/media_seams.h"

#include <cerrno>
#include <cstring>
#include <set>

namespace tr {
namespace test {
namespace {

struct Ledger {
  bool failMalloc = false;
  int freadError = 0;
  bool failOutputClose = false;
  int openStreams = 0;
  int liveBlocks = 0;
  std::set<FILE*> outputs;
  std::vector<size_t> freadRequests;
  std::vector<size_t> mallocRequests;
};

Ledger gLedger;

FILE* ledgerFopen(const char* path, const char* mode) {
  FILE* file = kSystemCalls.fopen(path, mode);
  if (file != nullptr) {
    ++gLedger.openStreams;
    if (std::strchr(mode, 'w') != nullptr) gLedger.outputs.insert(file);
  }
  return file;
}

int ledgerFclose(FILE* file) {
  --gLedger.openStreams;
  const bool output = gLedger.outputs.erase(file) != 0;
  const int result = kSystemCalls.fclose(file);
  if (output && gLedger.failOutputClose) {
    errno = EIO;
    return EOF;
  }
  return result;
}

size_t ledgerFread(void* buf, size_t size, size_t count, FILE* stream) {
  gLedger.freadRequests.push_back(size * count);
  if (gLedger.freadError != 0) {
    errno = gLedger.freadError;
    return 0;
  }
  return kSystemCalls.fread(buf, size, count, stream);
}

void* ledgerMalloc(size_t size) {
  gLedger.mallocRequests.push_back(size);
  if (gLedger.failMalloc) {
    errno = ENOMEM;
    return nullptr;
  }
  void* block = kSystemCalls.malloc(size);
  if (block != nullptr) ++gLedger.liveBlocks;
  return block;
}

void ledgerFree(void* block) {
  if (block != nullptr) --gLedger.liveBlocks;
  kSystemCalls.free(block);
}

}  // namespace

UseMediaDir::UseMediaDir(const std::string& dir) : saved_(mediaPath("")) {
  setMediaDir(dir);
}

UseMediaDir::~UseMediaDir() { setMediaDir(saved_); }

SysLedger::SysLedger() {
  gLedger = Ledger();
  sys.fopen = ledgerFopen;
  sys.fclose = ledgerFclose;
  sys.fread = ledgerFread;
  sys.malloc = ledgerMalloc;
  sys.free = ledgerFree;
}

SysLedger::~SysLedger() = default;

void SysLedger::failMalloc() { gLedger.failMalloc = true; }
void SysLedger::failFread(int error) { gLedger.freadError = error; }
void SysLedger::failOutputClose() { gLedger.failOutputClose = true; }
int SysLedger::openStreams() const { return gLedger.openStreams; }
int SysLedger::liveBlocks() const { return gLedger.liveBlocks; }
const std::vector<size_t>& SysLedger::freadRequests() const {
  return gLedger.freadRequests;
}
const std::vector<size_t>& SysLedger::mallocRequests() const {
  return gLedger.mallocRequests;
}

}  // namespace test
}  // namespace tr
