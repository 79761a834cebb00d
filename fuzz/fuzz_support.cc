#include "fuzz/fuzz_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "base/platform.h"

namespace tr {
namespace fuzz {
namespace {

void* boundedMalloc(size_t size) {
  if (size > kHeapLimit) {
    errno = ENOMEM;
    return nullptr;
  }
  return kSystemCalls.malloc(size);
}

[[noreturn]] void fail(const char* what, const std::string& path) {
  std::fprintf(stderr, "fuzz harness: %s %s failed\n", what, path.c_str());
  std::abort();
}

[[noreturn]] void leak(const char* what) {
  std::fprintf(stderr, "fuzz harness: %s\n", what);
  std::abort();
}

struct Resources {
  SysCalls inner;  // the entries the counting ones call
  std::set<int> fds;
  std::set<FILE*> streams;
  std::set<void*> blocks;
};

Resources resources;

int trackedOpen(const char* path, int flags) {
  const int fd = resources.inner.open(path, flags);
  if (fd >= 0) resources.fds.insert(fd);
  return fd;
}

int trackedClose(int fd) {
  if (resources.fds.erase(fd) == 0) leak("close of a descriptor not open");
  return resources.inner.close(fd);
}

FILE* trackedFopen(const char* path, const char* mode) {
  FILE* stream = resources.inner.fopen(path, mode);
  if (stream != nullptr) resources.streams.insert(stream);
  return stream;
}

int trackedFclose(FILE* stream) {
  if (resources.streams.erase(stream) == 0) leak("fclose of a stream not open");
  return resources.inner.fclose(stream);
}

void* trackedMalloc(size_t size) {
  void* block = resources.inner.malloc(size);
  if (block != nullptr) resources.blocks.insert(block);
  return block;
}

void trackedFree(void* block) {
  if (block != nullptr && resources.blocks.erase(block) == 0) {
    leak("free of a block not allocated");
  }
  resources.inner.free(block);
}

// Removes the scratch directory and the files in it at exit; the harnesses
// make no subdirectories.
void removeScratch() {
  const std::string& dir = scratchDir();
  if (DIR* listing = ::opendir(dir.c_str())) {
    while (const struct dirent* entry = ::readdir(listing)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") ::unlink((dir + "/" + name).c_str());
    }
    ::closedir(listing);
  }
  ::rmdir(dir.c_str());
}

}  // namespace

const std::string& scratchDir() {
  static const std::string dir = [] {
    const char* root = std::getenv("TMPDIR");
    std::string pattern =
        std::string(root != nullptr && *root != '\0' ? root : "/tmp") +
        "/trellis-fuzz-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) fail("mkdtemp", pattern);
    return pattern;
  }();
  static const bool cleaned = [] { return std::atexit(removeScratch) == 0; }();
  (void)cleaned;
  return dir;
}

std::string scratchFile(const std::string& name) {
  return scratchDir() + "/" + name;
}

void silenceStdout() {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    fail("freopen", "/dev/null");
  }
}

void boundHeap() { sys.malloc = boundedMalloc; }

void trackResources() {
  resources.inner = sys;
  sys.open = trackedOpen;
  sys.close = trackedClose;
  sys.fopen = trackedFopen;
  sys.fclose = trackedFclose;
  sys.malloc = trackedMalloc;
  sys.free = trackedFree;
}

void checkReturned(const char* after) {
  if (resources.fds.empty() && resources.streams.empty() &&
      resources.blocks.empty()) {
    return;
  }
  std::fprintf(stderr,
               "fuzz harness: after %s, %zu descriptors, %zu streams and %zu "
               "heap blocks were not given back\n",
               after, resources.fds.size(), resources.streams.size(),
               resources.blocks.size());
  std::abort();
}

void sizeFile(const std::string& path, uint64_t size) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT, 0644);
  if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
    fail("sizing", path);
  }
  ::close(fd);
}

void putBytes(const std::string& path, uint64_t offset, const void* bytes,
              size_t count) {
  const int fd = ::open(path.c_str(), O_RDWR);
  if (fd < 0 || ::pwrite(fd, bytes, count, static_cast<off_t>(offset)) !=
                    static_cast<ssize_t>(count)) {
    fail("writing", path);
  }
  ::close(fd);
}

size_t Bytes::copy(void* dest, size_t count) {
  const size_t n = size_ < count ? size_ : count;
  if (n != 0) std::memcpy(dest, data_, n);
  data_ += n;
  size_ -= n;
  return n;
}

}  // namespace fuzz
}  // namespace tr
