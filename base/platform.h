// Where the console finds its card: the raw device that holds the index
// files, and the directory of the data files it copies media out of. On the
// recorder these are fixed ("/dev/mmc0" and "/mnt/sd/"); on a workstation
// TRELLIS_DEVICE and TRELLIS_MEDIA_DIR point them at a card image or a card
// reader. Every system call that touches the card goes through `sys`, so a
// test can make any one of them fail.
#ifndef TRELLIS_BASE_PLATFORM_H_
#define TRELLIS_BASE_PLATFORM_H_

#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tr {

constexpr const char kDefaultDevice[] = "/dev/mmc0";
constexpr const char kDefaultMediaDir[] = "/mnt/sd/";

// The raw device path, printed verbatim in every diagnostic. Set once, by
// loadPlatform(), before start-up measures the device.
extern std::string deviceName;

// Reads TRELLIS_DEVICE, TRELLIS_MEDIA_DIR and TRELLIS_OUTPUT_DIR; unset or
// empty means the recorder's own paths.
void loadPlatform();
void setDevicePath(const std::string& path);
void setMediaDir(const std::string& dir);

// The media directory joined with `fileName`, with exactly one '/' between
// them when the directory does not already end in one.
std::string mediaPath(const std::string& fileName);

// Where the console's extractions write: -o or TRELLIS_OUTPUT_DIR, else
// the media directory (the recorder's own choice).
void setOutputDir(const std::string& dir);
std::string outputPath(const std::string& fileName);
// True when that is the media directory, under whatever name.
bool outputIntoMediaDir();

// Places on the card's own file system, where nothing of the console's is
// written but what the recorder itself would write there: whether the
// existing `path` is the media directory or lies in it, and whether the
// file system holding it lies on the card's device (the device itself or
// a partition of it).
bool inMediaDir(const std::string& path);
bool onCardDevice(const std::string& path);
// The whole disk holding the block device `device`: itself, unless its
// entry in sysfs says it is a partition.
dev_t wholeDisk(dev_t device);
// The device node of the disk a block-device partition lies on
// ("/dev/sdb" for /dev/sdb1); "" for a block device that is no partition,
// or when sysfs does not tell.
std::string diskOfPartition(dev_t device);

// printf into a std::string of whatever length the text needs.
std::string formatString(const char* fmt, ...)
    __attribute__((format(printf, 1, 2)));

// The system calls used on the device and on data files. Defaults call the
// system; tests swap single entries (see SysFaults in tests/support).
struct SysCalls {
  int (*open)(const char* path, int flags);  // the device
  int64_t (*lseek)(int fd, int64_t offset);  // from the start, 64-bit
  ssize_t (*read)(int fd, void* buf, size_t count);
  ssize_t (*write)(int fd, const void* buf, size_t count);
  int (*close)(int fd);
  int (*fstat)(int fd, struct stat* st);
  int (*blockDeviceSize)(int fd, uint64_t* bytes);  // BLKGETSIZE64
  int (*flock)(int fd, int operation);
  int (*fsync)(int fd);
  int (*makeBlocking)(int fd);  // clears O_NONBLOCK
  // Data files and the files media are copied into.
  int (*openFile)(const char* path, int flags, mode_t mode);
  FILE* (*fdopen)(int fd, const char* mode);  // the stream owns fd
  int (*ftruncate)(int fd, int64_t length);
  int (*unlink)(const char* path);
  int (*fseek)(FILE* stream, uint64_t offset);  // from the start, 64-bit
  size_t (*fread)(void* buf, size_t size, size_t count, FILE* stream);
  size_t (*fwrite)(const void* buf, size_t size, size_t count, FILE* stream);
  int (*fclose)(FILE* stream);
  void* (*malloc)(size_t size);
  void (*free)(void* ptr);
};

extern SysCalls sys;
extern const SysCalls kSystemCalls;

// Opens /dev/null on each of descriptors 0, 1 and 2 that is closed, so that
// no device, data file or output file the console opens later can take one
// of their numbers and receive what is printed. Called first thing in
// main(). 0, or -1 when /dev/null cannot be had (nothing is safe to run).
int guardStandardDescriptors();

// "a FIFO", "a directory", "a device", ... for what is not a regular file.
const char* fileKindText(mode_t mode);

// Holds SIGINT and SIGTERM back while alive, so a writing command's
// read-modify-write is done whole or not begun. A signal that arrives
// meanwhile takes effect, as it would have, once the holder is gone.
class SignalsHeld {
 public:
  SignalsHeld();
  ~SignalsHeld();
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t saved_;
};

// While alive, SIGINT and SIGTERM only raise a flag that a long copy polls
// between blocks (and a blocked read returns, as the handlers do not
// restart it). A signal the console was started with ignored stays
// ignored. At scope end the previous handlers are back; a SIGTERM that was
// caught stays noted, and the console ends once the command that caught it
// has cleaned up. Outside such a scope the signals act as they always
// have: Ctrl-C at the prompt ends the console.
class InterruptScope {
 public:
  InterruptScope();
  ~InterruptScope();
  InterruptScope(const InterruptScope&) = delete;
  InterruptScope& operator=(const InterruptScope&) = delete;

  // The signal caught so far, or 0.
  static int caught();
  // True when the last scope caught SIGTERM.
  static bool terminated();

 private:
  struct sigaction savedInt_;
  struct sigaction savedTerm_;
};

}  // namespace tr

#endif  // TRELLIS_BASE_PLATFORM_H_
