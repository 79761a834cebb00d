#include "tests/support/device_faults.h"

#include <algorithm>

namespace tr {
namespace test {
namespace {

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

// The failing call's result, with its error in errno.
long failure() {
  if (state.fault.error != 0) errno = state.fault.error;
  return state.fault.result;
}

int faultyOpen(const char* path, int flags) {
  if (failsNow(SysCall::kOpen)) return static_cast<int>(failure());
  const int fd = kSystemCalls.open(path, flags);
  if (fd >= 0) {
    ++state.opened;
    state.lastFd = fd;
  }
  return fd;
}

int64_t faultySeek(int fd, int64_t offset) {
  return failsNow(SysCall::kSeek) ? failure() : kSystemCalls.lseek(fd, offset);
}

ssize_t faultyRead(int fd, void* buf, size_t count) {
  if (!failsNow(SysCall::kRead)) return kSystemCalls.read(fd, buf, count);
  if (state.fault.result <= 0) return failure();
  return kSystemCalls.read(fd, buf, static_cast<size_t>(state.fault.result));
}

ssize_t faultyWrite(int fd, const void* buf, size_t count) {
  if (!failsNow(SysCall::kWrite)) return kSystemCalls.write(fd, buf, count);
  if (state.fault.result <= 0) return failure();
  return kSystemCalls.write(fd, buf, static_cast<size_t>(state.fault.result));
}

int faultyClose(int fd) {
  ++state.closed;
  const int result = kSystemCalls.close(fd);
  return failsNow(SysCall::kClose) ? static_cast<int>(failure()) : result;
}

std::string heading(const char* colour, Text text, Text device) {
  return "<TS> " + std::string(colour) + text + "\x1b[0m\n  Device: " + device +
         "\n";
}

}  // namespace

ByteChanges changedBytes(const std::string& before, const std::string& after) {
  ByteChanges changes;
  const size_t common = std::min(before.size(), after.size());
  for (size_t i = 0; i < common && changes.size() < 4096; ++i) {
    if (before[i] != after[i]) {
      changes[i] = {static_cast<uint8_t>(before[i]),
                    static_cast<uint8_t>(after[i])};
    }
  }
  if (before.size() != after.size()) {
    auto byteAt = [common](const std::string& bytes) {
      return bytes.size() > common ? static_cast<uint8_t>(bytes[common]) : -1;
    };
    changes[common] = {byteAt(before), byteAt(after)};
  }
  return changes;
}

std::string expandBlock(std::string text, const std::string& device, int fd) {
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

std::string openFailedBlock(Text device, Text error) {
  return heading("\x1b[31m", "OPEN FAILED", device) + "  Error: " + error +
         "\n\n";
}

std::string seekFailedBlock(Text title, Text device, Text offset, Text error) {
  return heading("\x1b[31m", title, device) +
         (offset.empty() ? "" : "  Offset: " + offset + "\n") +
         "  Error: " + error + "\n\n";
}

std::string nothingMovedBlock(Text title, Text device, size_t size,
                              Text error) {
  return heading("\x1b[31m", title, device) +
         "  Requested: " + std::to_string(size) + " bytes\n  Error: " + error +
         "\n\n";
}

std::string shortTransferBlock(Text title, Text device, size_t size,
                               long actual) {
  return heading("\x1b[31m", title, device) +
         "  Expected: " + std::to_string(size) +
         " bytes\n  Actual: " + std::to_string(actual) + " bytes\n\n";
}

std::string closeWarningBlock(Text device, int fd, Text warning) {
  return heading("\x1b[33m", "CLOSE WARNING", device) +
         "  FD: " + std::to_string(fd) + "\n  Warning: " + warning +
         "\n  Possible file descriptor leak!\n\n";
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
