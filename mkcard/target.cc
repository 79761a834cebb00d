#include "mkcard/target.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/output.h"

namespace tr {
namespace {

unsigned long long ull(uint64_t value) {
  return static_cast<unsigned long long>(value);
}

int failure(const std::string& path, const char* what) {
  err("trellis-mkcard: %s: %s: %s\n", path.c_str(), what, std::strerror(errno));
  return -1;
}

int measureBlockDevice(TargetInfo* info) {
  const int fd = ::open(info->path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return failure(info->path, "cannot open the block device");
  uint64_t bytes = 0;
  if (::ioctl(fd, BLKGETSIZE64, &bytes) == -1) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return failure(info->path, "cannot read the block device's size");
  }
  ::close(fd);
  info->capacity = bytes;
  return 0;
}

int inspectExisting(const MkcardOptions& options, const struct stat& st,
                    TargetInfo* info) {
  const char* path = info->path.c_str();
  if (S_ISBLK(st.st_mode)) {
    info->blockDevice = true;
    if (!options.force) {
      err("trellis-mkcard: %s is a block device; writing a card layout on it "
          "destroys the index files there. Use --force to write it\n",
          path);
      return -1;
    }
    if (options.sizeGiven) {
      err("trellis-mkcard: %s is a block device and is used whole; --size "
          "applies to image files only\n",
          path);
      return -1;
    }
    return measureBlockDevice(info);
  }
  if (!S_ISREG(st.st_mode)) {
    err("trellis-mkcard: %s is neither an image file nor a block device\n",
        path);
    return -1;
  }
  const uint64_t size = static_cast<uint64_t>(st.st_size);
  if (size != 0 && !options.force) {
    err("trellis-mkcard: %s exists and holds %llu bytes; use --force to "
        "write a new card over it\n",
        path, ull(size));
    return -1;
  }
  info->capacity = options.sizeGiven ? options.size : size;
  if (info->capacity == 0) {
    err("trellis-mkcard: %s is empty; give the card's size with --size\n",
        path);
    return -1;
  }
  return 0;
}

// The console's writing commands take the same lock: a card is never laid
// out under a console that is changing one of its headers, nor the other
// way round.
int lockTarget(int fd, const std::string& path) {
  if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
  if (errno != EWOULDBLOCK) return failure(path, "cannot lock the card");
  err("trellis-mkcard: %s is busy: a console or another card builder is "
      "changing it\n",
      path.c_str());
  return -1;
}

}  // namespace

int inspectTarget(const MkcardOptions& options, TargetInfo* info) {
  info->path = options.target;
  struct stat st;
  if (::stat(info->path.c_str(), &st) == 0) {
    info->exists = true;
    if (inspectExisting(options, st, info) == -1) return -1;
  } else if (errno != ENOENT) {
    return failure(info->path, "cannot examine the target");
  } else if (!options.sizeGiven) {
    err("trellis-mkcard: %s does not exist; give the size of the image to "
        "create with --size\n",
        info->path.c_str());
    return -1;
  } else {
    info->capacity = options.size;
  }
  if (info->capacity > static_cast<uint64_t>(INT64_MAX)) {
    err("trellis-mkcard: a card of %llu bytes is too large to address\n",
        ull(info->capacity));
    return -1;
  }
  return 0;
}

CardTarget::~CardTarget() {
  if (fd_ >= 0) ::close(fd_);
  if (created_ && !committed_) ::unlink(path_.c_str());
}

int CardTarget::open(const TargetInfo& info) {
  path_ = info.path;
  if (info.blockDevice) {
    // O_EXCL makes the kernel refuse a device that is mounted or in use.
    fd_ = ::open(path_.c_str(), O_RDWR | O_EXCL | O_CLOEXEC);
    if (fd_ < 0 && errno == EBUSY) {
      err("trellis-mkcard: %s is in use (mounted, or held by another "
          "program); unmount it first\n",
          path_.c_str());
      return -1;
    }
    if (fd_ < 0)
      return failure(path_, "cannot open the block device for writing");
    return lockTarget(fd_, path_);
  }
  if (info.exists) {
    // Emptied only once locked (below), so a busy image is left whole.
    fd_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  } else {
    fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    created_ = fd_ >= 0;
  }
  if (fd_ < 0) return failure(path_, "cannot open the image for writing");
  if (lockTarget(fd_, path_) == -1) return -1;
  if (::ftruncate(fd_, 0) != 0 ||
      ::ftruncate(fd_, static_cast<off_t>(info.capacity)) != 0) {
    return failure(path_, "cannot give the image its size");
  }
  zeroed_ = true;
  return 0;
}

int CardTarget::writeAt(uint64_t offset, const void* data, size_t size) {
  return writeWholeAt(fd_, path_, offset, data, size);
}

int writeWholeAt(int fd, const std::string& path, uint64_t offset,
                 const void* data, size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written =
        ::pwrite(fd, bytes, size, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      if (written == 0) errno = ENOSPC;
      err("trellis-mkcard: %s: writing %zu bytes at byte %llu failed: %s\n",
          path.c_str(), size, ull(offset), std::strerror(errno));
      return -1;
    }
    bytes += written;
    size -= static_cast<size_t>(written);
    offset += static_cast<uint64_t>(written);
  }
  return 0;
}

int CardTarget::commit() {
  if (::fsync(fd_) != 0) return failure(path_, "cannot flush the card");
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) return failure(path_, "cannot close the card");
  committed_ = true;
  return 0;
}

}  // namespace tr
