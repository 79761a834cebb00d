// Record access on the raw device. One access is: open, one or more
// positioned transfers of exactly one record each, one close. Every failing
// step prints its diagnostic block on standard error, closes the device
// quietly and returns -1, so a caller never touches the descriptor after a
// failure and reports nothing further. Only -1 means failure.
#ifndef TRELLIS_BASE_DEVICE_H_
#define TRELLIS_BASE_DEVICE_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace tr {

enum class DeviceMode { kReadOnly, kReadWrite };

constexpr const char kSeekTitle[] = "LSEEK FAILED";
constexpr const char kReadSeekTitle[] = "READ LSEEK FAILED";
constexpr const char kWriteSeekTitle[] = "WRITE LSEEK FAILED";

// Read-only working: while set, the device is never opened for writing.
void setReadOnly(bool readOnly);
bool readOnly();
// The one line a refused write prints on standard error, `what` naming it
// ("maintain recException").
void reportReadOnly(const std::string& what);

// Opens deviceName. Returns the descriptor, or -1 after the open failure
// block (a descriptor of 0 counts as a failure too). Read-write while the
// console is read-only fails as a read-only file system would.
int _tr_maintainOpenDevice(DeviceMode mode);

// Prints `offsetLabel` (when given) with `offset` as a green field, seeks to
// `offset` and reads exactly `size` bytes into `buffer`. A short read is not
// retried. `seekTitle` heads a seek failure; `showOffset` adds its Offset
// line.
int _tr_maintainReadDevice(int fd, uint64_t offset, void* buffer, size_t size,
                           const char* offsetLabel, const char* seekTitle,
                           bool showOffset);

// Seeks to `offset` and writes exactly `size` bytes from `buffer`. When a
// watcher is set, the bytes there are read first and handed to it with
// the new ones; a read or a watcher that fails ends the access before
// anything is written.
int _tr_maintainWriteDevice(int fd, uint64_t offset, const void* buffer,
                            size_t size, bool showOffset);

// Watches the writes to the device: called before each write on the open
// device `fd` with what the device holds at `offset` and the `size` bytes
// about to be written there. 0 lets the write go ahead; -1, after the
// watcher's own report, stops it. The undo journal and the change lines
// set one, from above; null watches nothing.
using WriteWatcher = int (*)(int fd, uint64_t offset, const std::string& before,
                             const void* after, size_t size);
void setWriteWatcher(WriteWatcher watcher);

// The size in bytes of the device open on `fd`: a regular file (a card
// image) by its length, anything else by the block-device size request.
// Prints nothing; 0, or -1 with errno set.
int deviceSize(int fd, uint64_t* bytes);
// Why the device at `path` is no card to work on, in a few words: the
// system's reason when it cannot be opened or measured, what it is when it
// is neither a card image nor a block device ("a directory"), "empty" for
// a size of 0; "" when it can be worked on, its size then in `*bytes`.
// Prints nothing and never waits (a FIFO is found, not opened for long).
std::string deviceUnusable(const std::string& path, uint64_t* bytes);
// deviceSize() within the device protocol: a failure prints the "SIZE
// FAILED" block and closes the device quietly. 0 or -1.
int measureDevice(int fd, uint64_t* bytes);

// Closes the descriptor. With `warn`, a failing close prints the close
// warning and returns -1 (a write before it has reached the device all the
// same); without, the result is ignored and 0 returned.
int _tr_maintainCloseDevice(int fd, bool warn);

}  // namespace tr

#endif  // TRELLIS_BASE_DEVICE_H_
