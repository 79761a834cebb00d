// The parts the fuzz harnesses share: no test framework here.
#include "tests/support/test_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

namespace tr {
namespace test {

TempDir::TempDir() {
  const char* root = std::getenv("TMPDIR");
  path_ = (root != nullptr && *root != '\0' ? root : "/tmp") +
          std::string("/trellis-test-XXXXXX");
  if (mkdtemp(&path_[0]) == nullptr) std::abort();
}

TempDir::~TempDir() {
  const int ignored = std::system(("rm -rf '" + path_ + "'").c_str());
  (void)ignored;
}

bool sizeFile(const std::string& path, uint64_t size) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  const bool done = fd >= 0 && ::ftruncate(fd, static_cast<off_t>(size)) == 0;
  if (fd >= 0) ::close(fd);
  return done;
}

bool poke(const std::string& path, uint64_t offset, const std::string& bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  const bool done = fd >= 0 && ::pwrite(fd, bytes.data(), bytes.size(),
                                        static_cast<off_t>(offset)) ==
                                   static_cast<ssize_t>(bytes.size());
  if (fd >= 0) ::close(fd);
  return done;
}

std::string peek(const std::string& path, uint64_t offset, size_t count) {
  std::string bytes(count, '\0');
  const int fd = ::open(path.c_str(), O_RDONLY);
  const ssize_t got = fd < 0 ? 0 : ::pread(fd, &bytes[0], count, static_cast<off_t>(offset));
  if (fd >= 0) ::close(fd);
  bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
  return bytes;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string le(uint64_t value, int width) {
  std::string bytes(width, '\0');
  for (int i = 0; i < width && i < 8; ++i) bytes[i] = static_cast<char>(value >> 8 * i);
  return bytes;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

Extents extents(const std::string& path) {
  Extents found;
  const int fd = ::open(path.c_str(), O_RDONLY);
  for (off_t at = 0, end; fd >= 0 && (at = ::lseek(fd, at, SEEK_DATA)) >= 0; at = end) {
    end = ::lseek(fd, at, SEEK_HOLE);
    found[at] = peek(path, at, end - at);
  }
  if (fd >= 0) ::close(fd);
  return found;
}

namespace {

// `count` bytes of a snapshot from `at`.
std::string bytesAt(const Extents& image, uint64_t at, size_t count) {
  std::string bytes(count, '\0');
  auto it = image.upper_bound(at);
  for (it = it == image.begin() ? it : std::prev(it); it != image.end() && it->first < at + count; ++it) {
    const uint64_t from = std::max(at, it->first);
    const uint64_t to = std::min(at + count, it->first + it->second.size());
    if (from < to) bytes.replace(from - at, to - from, it->second, from - it->first, to - from);
  }
  return bytes;
}

}  // namespace

std::string changes(const Extents& before, const Extents& after) {
  std::map<uint64_t, std::pair<uint8_t, uint8_t>> changed;
  for (const Extents* side : {&before, &after}) {
    for (const auto& [start, data] : *side) {
      const std::string a = bytesAt(before, start, data.size());
      const std::string b = bytesAt(after, start, data.size());
      for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i]) changed[start + i] = {a[i], b[i]};
      }
    }
  }
  std::string runs, from, to;
  for (const auto& [at, bytes] : changed) {
    if (!changed.count(at - 1)) runs += std::to_string(at) + ": ";
    from += formatString("%02x", bytes.first);
    to += formatString("%02x", bytes.second);
    if (!changed.count(at + 1)) {
      runs += from + " -> " + to + "\n";
      from = to = "";
    }
  }
  return runs;
}

namespace {

struct Ledger {
  SysCalls inner;  // the entries the ledger's own call through
  Fault fault;
  int calls[static_cast<int>(Call::kCount)] = {};
  int lastFd = -1;
  int strays = 0;
  std::set<int> fds;
  std::set<const void*> held;  // streams and heap blocks
};

Ledger* ledger = nullptr;  // of the SysFaults in place

// Counts the call; true, with the fault's error in errno, when it fails.
bool failsNow(Call call) {
  const int n = ++ledger->calls[static_cast<int>(call)];
  if (ledger->fault.call != call || ledger->fault.occurrence != n) return false;
  if (ledger->fault.error != 0) errno = ledger->fault.error;
  return true;
}

// How much of `asked` a failing transfer moves for real.
size_t part(size_t asked) {
  return std::min(asked, static_cast<size_t>(std::max(0L, ledger->fault.result)));
}

template <typename T>
T keep(T thing) {
  if (thing != nullptr) ledger->held.insert(thing);
  return thing;
}

void giveBack(const void* thing) {
  if (thing != nullptr && ledger->held.erase(thing) == 0) ++ledger->strays;
}

int sysOpen(const char* path, int flags) {
  const int fd = failsNow(Call::kOpen) ? static_cast<int>(ledger->fault.result)
                                       : ledger->inner.open(path, flags);
  if (fd >= 0) ledger->fds.insert(ledger->lastFd = fd);
  return fd;
}

int sysClose(int fd) {
  if (ledger->fds.erase(fd) == 0) ++ledger->strays;
  const int result = ledger->inner.close(fd);
  return failsNow(Call::kClose) ? static_cast<int>(ledger->fault.result)
                                : result;
}

int64_t sysSeek(int fd, int64_t offset) {
  return failsNow(Call::kSeek) ? ledger->fault.result
                               : ledger->inner.lseek(fd, offset);
}

ssize_t sysRead(int fd, void* buf, size_t count) {
  if (!failsNow(Call::kRead)) return ledger->inner.read(fd, buf, count);
  return ledger->fault.result < 0 ? -1 : ledger->inner.read(fd, buf, part(count));
}

ssize_t sysWrite(int fd, const void* buf, size_t count) {
  if (!failsNow(Call::kWrite)) return ledger->inner.write(fd, buf, count);
  return ledger->fault.result < 0 ? -1
                                  : ledger->inner.write(fd, buf, part(count));
}

int sysOpenFile(const char* path, int flags, mode_t mode) {
  const int fd = failsNow(Call::kOpenFile) ? -1 : ledger->inner.openFile(path, flags, mode);
  if (fd >= 0) ledger->fds.insert(fd);
  return fd;
}

// The stream takes the descriptor over.
FILE* sysFdopen(int fd, const char* mode) {
  FILE* stream = ledger->inner.fdopen(fd, mode);
  if (stream != nullptr) ledger->fds.erase(fd);
  return keep(stream);
}

size_t sysFread(void* buf, size_t size, size_t count, FILE* stream) {
  return ledger->inner.fread(buf, size,
                             failsNow(Call::kFread) ? part(count) : count, stream);
}

size_t sysFwrite(const void* buf, size_t size, size_t count, FILE* stream) {
  return ledger->inner.fwrite(buf, size,
                              failsNow(Call::kFwrite) ? part(count) : count, stream);
}

int sysFclose(FILE* stream) {
  giveBack(stream);
  const int result = ledger->inner.fclose(stream);
  return failsNow(Call::kFclose) ? EOF : result;
}

int sysFsync(int fd) {
  return failsNow(Call::kFsync) ? -1 : ledger->inner.fsync(fd);
}

void* sysMalloc(size_t size) {
  return failsNow(Call::kMalloc) ? nullptr : keep(ledger->inner.malloc(size));
}

void sysFree(void* block) {
  giveBack(block);
  ledger->inner.free(block);
}

}  // namespace

SysFaults::SysFaults(const Fault& fault) : saved_(sys) {
  ledger = new Ledger{sys, fault, {}, -1, 0, {}, {}};
  sys.open = sysOpen;
  sys.close = sysClose;
  sys.lseek = sysSeek;
  sys.read = sysRead;
  sys.write = sysWrite;
  sys.openFile = sysOpenFile;
  sys.fdopen = sysFdopen;
  sys.fread = sysFread;
  sys.fwrite = sysFwrite;
  sys.fclose = sysFclose;
  sys.fsync = sysFsync;
  sys.malloc = sysMalloc;
  sys.free = sysFree;
}

SysFaults::~SysFaults() {
  sys = saved_;
  delete ledger;
  ledger = nullptr;
}

void SysFaults::fail(const Fault& fault) {
  ledger->fault = fault;
  std::fill(std::begin(ledger->calls), std::end(ledger->calls), 0);
}

int SysFaults::calls(Call call) const {
  return ledger->calls[static_cast<int>(call)];
}

int SysFaults::lastFd() const { return ledger->lastFd; }

int SysFaults::unreturned() const {
  return static_cast<int>(ledger->fds.size() + ledger->held.size()) +
         ledger->strays;
}

}  // namespace test
}  // namespace tr
