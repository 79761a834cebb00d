#include "tests/support/media_seams.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

namespace tr {
namespace test {
namespace {

struct Ledger {
  bool failMalloc = false;
  int freadError = 0;
  size_t failFreadFrom = 0;
  int shortFwriteCall = 0;
  size_t shortFwriteCount = 0;
  int fwrites = 0;
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
  if (file != nullptr) ++gLedger.openStreams;
  if (file != nullptr && std::strchr(mode, 'w')) gLedger.outputs.insert(file);
  return file;
}

int ledgerFclose(FILE* file) {
  --gLedger.openStreams;
  const bool output = gLedger.outputs.erase(file) != 0;
  const int result = kSystemCalls.fclose(file);
  if (!output || !gLedger.failOutputClose) return result;
  errno = EIO;
  return EOF;
}

size_t ledgerFread(void* buf, size_t size, size_t count, FILE* stream) {
  gLedger.freadRequests.push_back(size * count);
  if (gLedger.freadError == 0 ||
      gLedger.freadRequests.size() < gLedger.failFreadFrom) {
    return kSystemCalls.fread(buf, size, count, stream);
  }
  errno = gLedger.freadError;
  return 0;
}

size_t ledgerFwrite(const void* buf, size_t size, size_t count, FILE* out) {
  if (++gLedger.fwrites != gLedger.shortFwriteCall) {
    return kSystemCalls.fwrite(buf, size, count, out);
  }
  const size_t written = kSystemCalls.fwrite(
      buf, size, std::min(count, gLedger.shortFwriteCount), out);
  errno = ENOSPC;
  return written;
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

std::string withPaths(std::string text, const std::string& source,
                      const std::string& output) {
  for (const auto& fill :
       {std::make_pair("@SRC", source), std::make_pair("@OUT", output)}) {
    const size_t at = text.find(fill.first);
    if (at != std::string::npos) text.replace(at, 4, fill.second);
  }
  return text;
}

UseMediaDir::UseMediaDir(const std::string& dir) : saved_(mediaPath("")) {
  setMediaDir(dir);
}

UseMediaDir::~UseMediaDir() { setMediaDir(saved_); }

SysLedger::SysLedger() {
  gLedger = Ledger();
  sys.fopen = ledgerFopen;
  sys.fclose = ledgerFclose;
  sys.fread = ledgerFread;
  sys.fwrite = ledgerFwrite;
  sys.malloc = ledgerMalloc;
  sys.free = ledgerFree;
}

void SysLedger::failMalloc() { gLedger.failMalloc = true; }
void SysLedger::failFread(int error, int from) {
  gLedger.freadError = error;
  gLedger.failFreadFrom = static_cast<size_t>(from);
}
void SysLedger::shortFwrite(int call, size_t count) {
  gLedger.shortFwriteCall = call;
  gLedger.shortFwriteCount = count;
}
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
