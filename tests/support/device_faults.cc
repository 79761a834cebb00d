#include "tests/support/device_faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace tr {
namespace test {
namespace {

constexpr size_t kMaxChanges = 4096;

struct FaultState {
  Fault fault;
  int calls[6] = {};
  int opened = 0;
  int closed = 0;
  int lastFd = -1;
};

FaultState state;

// Counts the call and says whether it is the one that fails.
bool failsNow(SysCall call) {
  const int n = ++state.calls[static_cast<int>(call)];
  return state.fault.call == call && state.fault.occurrence == n;
}

void setError() {
  if (state.fault.error != 0) errno = state.fault.error;
}

int faultyOpen(const char* path, int flags) {
  if (failsNow(SysCall::kOpen)) {
    setError();
    return static_cast<int>(state.fault.result);
  }
  const int fd = kSystemCalls.open(path, flags);
  if (fd >= 0) {
    ++state.opened;
    state.lastFd = fd;
  }
  return fd;
}

int64_t faultySeek(int fd, int64_t offset) {
  if (failsNow(SysCall::kSeek)) {
    setError();
    return state.fault.result;
  }
  return kSystemCalls.lseek(fd, offset);
}

ssize_t faultyRead(int fd, void* buf, size_t count) {
  if (!failsNow(SysCall::kRead)) return kSystemCalls.read(fd, buf, count);
  if (state.fault.result > 0) {
    return kSystemCalls.read(fd, buf, static_cast<size_t>(state.fault.result));
  }
  setError();
  return state.fault.result;
}

ssize_t faultyWrite(int fd, const void* buf, size_t count) {
  if (!failsNow(SysCall::kWrite)) return kSystemCalls.write(fd, buf, count);
  if (state.fault.result > 0) {
    return kSystemCalls.write(fd, buf,
                              static_cast<size_t>(state.fault.result));
  }
  setError();
  return state.fault.result;
}

int faultyClose(int fd) {
  ++state.closed;
  const int result = kSystemCalls.close(fd);
  if (!failsNow(SysCall::kClose)) return result;
  setError();
  return static_cast<int>(state.fault.result);
}

std::string title(const char* colour, const std::string& text) {
  return "<TS> " + std::string(colour) + text + "\x1b[0m\n";
}

}  // namespace

std::string wholeImage(const std::string& path) {
  std::string bytes;
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return bytes;
  struct stat st;
  if (::fstat(fd, &st) == 0) {
    bytes.resize(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t got = ::pread(fd, &bytes[done], bytes.size() - done,
                                  static_cast<off_t>(done));
      if (got <= 0) break;
      done += static_cast<size_t>(got);
    }
    bytes.resize(done);
  }
  ::close(fd);
  return bytes;
}

ByteChanges changedBytes(const std::string& before, const std::string& after) {
  ByteChanges changes;
  const size_t common = std::min(before.size(), after.size());
  size_t at = 0;
  while (changes.size() < kMaxChanges) {
    // memcmp skips equal stretches quickly; the images run to tens of MB.
    size_t chunk = std::min<size_t>(4096, common - at);
    if (chunk == 0) break;
    if (std::memcmp(before.data() + at, after.data() + at, chunk) != 0) {
      for (size_t i = at; i < at + chunk && changes.size() < kMaxChanges;
           ++i) {
        if (before[i] != after[i]) {
          changes[i] = {static_cast<uint8_t>(before[i]),
                        static_cast<uint8_t>(after[i])};
        }
      }
    }
    at += chunk;
  }
  if (before.size() != after.size() && changes.size() < kMaxChanges) {
    changes[common] = {before.size() > common
                           ? static_cast<uint8_t>(before[common])
                           : -1,
                       after.size() > common
                           ? static_cast<uint8_t>(after[common])
                           : -1};
  }
  return changes;
}

ByteChanges textChange(uint64_t offset, const std::string& from,
                       const std::string& to) {
  ByteChanges changes;
  for (size_t i = 0; i < from.size() && i < to.size(); ++i) {
    if (from[i] != to[i]) {
      changes[offset + i] = {static_cast<uint8_t>(from[i]),
                             static_cast<uint8_t>(to[i])};
    }
  }
  return changes;
}

ByteChanges merged(ByteChanges a, const ByteChanges& b) {
  for (const auto& entry : b) a[entry.first] = entry.second;
  return a;
}

std::string expandBlock(const char* golden, const std::string& device,
                        int fd) {
  std::string text = golden;
  const std::pair<std::string, std::string> fills[] = {
      {"@DEV", device}, {"@FD", std::to_string(fd)}};
  for (const auto& fill : fills) {
    for (size_t at = text.find(fill.first); at != std::string::npos;
         at = text.find(fill.first, at + fill.second.size())) {
      text.replace(at, fill.first.size(), fill.second);
    }
  }
  return text;
}

std::string openFailedBlock(const std::string& device,
                            const std::string& error) {
  return title("\x1b[31m", "OPEN FAILED") + "  Device: " + device + "\n" +
         "  Error: " + error + "\n\n";
}

std::string seekFailedBlock(const std::string& titleText,
                            const std::string& device,
                            const std::string& offset,
                            const std::string& error) {
  std::string block =
      title("\x1b[31m", titleText) + "  Device: " + device + "\n";
  if (!offset.empty()) block += "  Offset: " + offset + "\n";
  return block + "  Error: " + error + "\n\n";
}

std::string nothingMovedBlock(const std::string& titleText,
                              const std::string& device, size_t size,
                              const std::string& error) {
  return title("\x1b[31m", titleText) + "  Device: " + device + "\n" +
         "  Requested: " + std::to_string(size) + " bytes\n" +
         "  Error: " + error + "\n\n";
}

std::string shortTransferBlock(const std::string& titleText,
                               const std::string& device, size_t size,
                               long actual) {
  return title("\x1b[31m", titleText) + "  Device: " + device + "\n" +
         "  Expected: " + std::to_string(size) + " bytes\n" +
         "  Actual: " + std::to_string(actual) + " bytes\n\n";
}

std::string closeWarningBlock(const std::string& device, int fd,
                              const std::string& warning) {
  return title("\x1b[33m", "CLOSE WARNING") + "  Device: " + device + "\n" +
         "  FD: " + std::to_string(fd) + "\n" + "  Warning: " + warning +
         "\n" + "  Possible file descriptor leak!\n\n";
}

FaultyDevice::FaultyDevice(const Fault& fault) {
  state = FaultState();
  state.fault = fault;
  sys.open = faultyOpen;
  sys.lseek = faultySeek;
  sys.read = faultyRead;
  sys.write = faultyWrite;
  sys.close = faultyClose;
}

int FaultyDevice::opened() const { return state.opened; }
int FaultyDevice::closed() const { return state.closed; }
int FaultyDevice::lastFd() const { return state.lastFd; }

}  // namespace test
}  // namespace tr
