#include "base/platform.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace tr {

std::string deviceName = kDefaultDevice;

namespace {

std::string gMediaDir = kDefaultMediaDir;
std::string gOutputDir;  // empty: the media directory

std::string joined(std::string dir, const std::string& fileName) {
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir + fileName;
}

int sysOpen(const char* path, int flags) { return ::open(path, flags); }

int64_t sysLseek(int fd, int64_t offset) {
  return ::lseek64(fd, static_cast<off64_t>(offset), SEEK_SET);
}

int sysBlockDeviceSize(int fd, uint64_t* bytes) {
  return ::ioctl(fd, BLKGETSIZE64, bytes);
}

int sysMakeBlocking(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags == -1) return -1;
  return ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
}

int sysOpenFile(const char* path, int flags, mode_t mode) {
  return ::open(path, flags, mode);
}

int sysFtruncate(int fd, int64_t length) {
  return ::ftruncate64(fd, static_cast<off64_t>(length));
}

int sysFseek(FILE* stream, uint64_t offset) {
  // fseeko takes a signed 64-bit position; one past its range cannot be
  // reached and fails like any other bad position.
  if (offset > static_cast<uint64_t>(INT64_MAX)) {
    errno = EINVAL;
    return -1;
  }
  return ::fseeko64(stream, static_cast<off64_t>(offset), SEEK_SET);
}

// Large blocks (the copy buffer) start on a page, as the kernel's copies
// to and from the page cache like them; the rest come from malloc.
void* sysMalloc(size_t size) {
  constexpr size_t kPage = 4096;
  if (size < 16 * kPage) return std::malloc(size);
  if (size > SIZE_MAX - kPage) return nullptr;
  return std::aligned_alloc(kPage, (size + kPage - 1) / kPage * kPage);
}

const char* envOrEmpty(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

const SysCalls kSystemCalls = {
    sysOpen,     sysLseek,    ::read,          ::write,
    ::close,     ::fstat,     sysBlockDeviceSize,
    ::flock,     ::fsync,     sysMakeBlocking, sysOpenFile,
    ::fdopen,    sysFtruncate, ::unlink,       sysFseek,
    ::fread,     ::fwrite,    ::fclose,        sysMalloc,
    std::free,
};

SysCalls sys = kSystemCalls;

void loadPlatform() {
  const char* device = envOrEmpty("TRELLIS_DEVICE");
  const char* media = envOrEmpty("TRELLIS_MEDIA_DIR");
  setDevicePath(*device != '\0' ? device : kDefaultDevice);
  setMediaDir(*media != '\0' ? media : kDefaultMediaDir);
  setOutputDir(envOrEmpty("TRELLIS_OUTPUT_DIR"));
}

void setDevicePath(const std::string& path) { deviceName = path; }

void setMediaDir(const std::string& dir) { gMediaDir = dir; }

std::string mediaPath(const std::string& fileName) {
  return joined(gMediaDir, fileName);
}

void setOutputDir(const std::string& dir) { gOutputDir = dir; }

std::string outputPath(const std::string& fileName) {
  return joined(gOutputDir.empty() ? gMediaDir : gOutputDir, fileName);
}

bool outputIntoMediaDir() {
  if (gOutputDir.empty()) return true;
  struct stat output;
  struct stat media;
  return ::stat(gOutputDir.c_str(), &output) == 0 &&
         ::stat(gMediaDir.c_str(), &media) == 0 &&
         output.st_dev == media.st_dev && output.st_ino == media.st_ino;
}

std::string formatString(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, args);
  va_end(args);
  std::string text;
  if (length > 0) {
    std::vector<char> buffer(static_cast<size_t>(length) + 1);
    std::vsnprintf(buffer.data(), buffer.size(), fmt, again);
    text.assign(buffer.data(), static_cast<size_t>(length));
  }
  va_end(again);
  return text;
}

int guardStandardDescriptors() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest free number is `fd` itself: the ones below are open.
    const int opened = ::open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);
    if (opened != fd) {
      if (opened >= 0) ::close(opened);
      return -1;
    }
  }
  return 0;
}

const char* fileKindText(mode_t mode) {
  if (S_ISLNK(mode)) return "a symbolic link";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

SignalsHeld::SignalsHeld() {
  sigset_t held;
  sigemptyset(&held);
  sigaddset(&held, SIGINT);
  sigaddset(&held, SIGTERM);
  sigprocmask(SIG_BLOCK, &held, &saved_);
}

SignalsHeld::~SignalsHeld() { sigprocmask(SIG_SETMASK, &saved_, nullptr); }

namespace {

volatile sig_atomic_t gCaught = 0;

void noteSignal(int signal) { gCaught = signal; }

// Catches `signal` unless it was ignored when the scope began.
void catchSignal(int signal, struct sigaction* saved) {
  sigaction(signal, nullptr, saved);
  if (saved->sa_handler == SIG_IGN) return;
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = noteSignal;  // no SA_RESTART: a blocked read returns
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

InterruptScope::InterruptScope() {
  gCaught = 0;
  catchSignal(SIGINT, &savedInt_);
  catchSignal(SIGTERM, &savedTerm_);
}

int InterruptScope::caught() { return gCaught; }

bool InterruptScope::terminated() { return gCaught == SIGTERM; }

InterruptScope::~InterruptScope() {
  sigaction(SIGINT, &savedInt_, nullptr);
  sigaction(SIGTERM, &savedTerm_, nullptr);
}

namespace {

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

bool inMediaDir(const std::string& path) {
  struct stat media;
  if (::stat(mediaPath("").c_str(), &media) != 0) return false;
  char resolved[PATH_MAX];
  if (::realpath(path.c_str(), resolved) == nullptr) return false;
  for (std::string at = resolved;;) {
    struct stat st;
    if (::stat(at.c_str(), &st) == 0 && sameFile(st, media)) return true;
    const size_t slash = at.rfind('/');
    if (at == "/" || slash == std::string::npos) return false;
    at = slash == 0 ? "/" : at.substr(0, slash);
  }
}

dev_t wholeDisk(dev_t device) {
  const std::string entry =
      formatString("/sys/dev/block/%u:%u", major(device), minor(device));
  if (::access((entry + "/partition").c_str(), F_OK) != 0) return device;
  char text[32] = "";
  FILE* parent = std::fopen((entry + "/../dev").c_str(), "r");
  unsigned disk[2] = {0, 0};
  const bool read = parent != nullptr &&
                    std::fgets(text, sizeof text, parent) &&
                    std::sscanf(text, "%u:%u", &disk[0], &disk[1]) == 2;
  if (parent != nullptr) std::fclose(parent);
  return read ? makedev(disk[0], disk[1]) : device;
}

std::string diskOfPartition(dev_t device) {
  const std::string entry =
      formatString("/sys/dev/block/%u:%u", major(device), minor(device));
  if (::access((entry + "/partition").c_str(), F_OK) != 0) return "";
  char disk[PATH_MAX];
  if (::realpath((entry + "/..").c_str(), disk) == nullptr) return "";
  const char* name = std::strrchr(disk, '/');
  return name == nullptr ? "" : std::string("/dev") + name;
}

bool onCardDevice(const std::string& path) {
  struct stat at;
  struct stat card;
  return ::stat(path.c_str(), &at) == 0 &&
         ::stat(deviceName.c_str(), &card) == 0 && S_ISBLK(card.st_mode) &&
         wholeDisk(at.st_dev) == wholeDisk(card.st_rdev);
}

}  // namespace tr
