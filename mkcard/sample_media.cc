#include "mkcard/sample_media.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "base/output.h"
#include "mkcard/target.h"

namespace tr {
namespace {

std::string joinPath(const std::string& dir, const std::string& name) {
  if (dir.empty() || dir.back() == '/') return dir + name;
  return dir + "/" + name;
}

std::vector<std::string> dataFileNames(const SamplePlan& plan) {
  std::vector<std::string> names;
  for (const SampleRecFile& file : plan.recFiles) {
    names.push_back(recDataFileName(file.fileNum));
  }
  for (const SamplePicFile& file : plan.picFiles) {
    names.push_back(picDataFileName(file.fileNum));
  }
  return names;
}

int makeDirectories(const std::string& dir) {
  for (size_t end = 1; end <= dir.size(); ++end) {
    if (end < dir.size() && dir[end] != '/') continue;
    const std::string part = dir.substr(0, end);
    if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
      err("trellis-mkcard: cannot create the directory %s: %s\n", part.c_str(),
          std::strerror(errno));
      return -1;
    }
  }
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    err("trellis-mkcard: %s is not a directory\n", dir.c_str());
    return -1;
  }
  return 0;
}

// Bytes of a data file and where they go in it.
struct Piece {
  uint64_t offset;
  std::string bytes;
};

// Creates the data file at `path`, `size` bytes long, with every piece at
// its offset; what lies between pieces reads as zero.
int writeDataFile(const std::string& path, const std::vector<Piece>& pieces,
                  uint64_t size) {
  const int fd =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    err("trellis-mkcard: cannot create %s: %s\n", path.c_str(),
        std::strerror(errno));
    return -1;
  }
  int result = 0;
  for (const Piece& piece : pieces) {
    result = writeWholeAt(fd, path, piece.offset, piece.bytes.data(),
                          piece.bytes.size());
    if (result == -1) break;
  }
  if (result == 0 && ::ftruncate(fd, static_cast<off_t>(size)) != 0) {
    err("trellis-mkcard: cannot size %s: %s\n", path.c_str(),
        std::strerror(errno));
    result = -1;
  }
  if (::close(fd) != 0 && result == 0) {
    err("trellis-mkcard: cannot close %s: %s\n", path.c_str(),
        std::strerror(errno));
    result = -1;
  }
  return result;
}

int writeRecordFile(const std::string& dir, const SampleRecFile& file) {
  std::vector<Piece> pieces;
  for (const SampleRecSegment& segment : file.segments) {
    pieces.push_back({segment.dataOffset, sampleMedia(file, segment)});
    pieces.push_back({segment.iFrameOffset, sampleIFrameTable(file, segment)});
  }
  return writeDataFile(joinPath(dir, recDataFileName(file.fileNum)), pieces,
                       file.size);
}

int writePictureFile(const std::string& dir, const SamplePicFile& file) {
  std::vector<Piece> pieces;
  for (const SamplePicSegment& segment : file.segments) {
    std::string fragment;
    for (const SamplePicture& picture : segment.pictures) {
      fragment += picture.jpeg;
    }
    pieces.push_back({segment.fragmentOffset, fragment});
  }
  return writeDataFile(joinPath(dir, picDataFileName(file.fileNum)), pieces,
                       file.size);
}

}  // namespace

int checkMediaDir(const std::string& dir, const SamplePlan& plan, bool force) {
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0) {
    if (errno == ENOENT) return 0;  // created later
    err("trellis-mkcard: cannot examine %s: %s\n", dir.c_str(),
        std::strerror(errno));
    return -1;
  }
  if (!S_ISDIR(st.st_mode)) {
    err("trellis-mkcard: %s is not a directory\n", dir.c_str());
    return -1;
  }
  int result = 0;
  for (const std::string& name : dataFileNames(plan)) {
    const std::string path = joinPath(dir, name);
    if (::stat(path.c_str(), &st) != 0) continue;
    if (!S_ISREG(st.st_mode)) {
      err("trellis-mkcard: %s exists and is not a file\n", path.c_str());
      result = -1;
    } else if (st.st_size > 0 && !force) {
      err("trellis-mkcard: %s exists and holds %lld bytes; use --force to "
          "write the sample's data files over it\n",
          path.c_str(), static_cast<long long>(st.st_size));
      result = -1;
    }
  }
  return result;
}

int writeSampleMedia(const std::string& dir, const SamplePlan& plan) {
  if (makeDirectories(dir) == -1) return -1;
  for (const SampleRecFile& file : plan.recFiles) {
    if (writeRecordFile(dir, file) == -1) return -1;
  }
  for (const SamplePicFile& file : plan.picFiles) {
    if (writePictureFile(dir, file) == -1) return -1;
  }
  return 0;
}

}  // namespace tr
