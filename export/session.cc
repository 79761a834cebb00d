#include "export/session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/output.h"
#include "base/platform.h"
#include "base/stream.h"
#include "base/times.h"
#include "format/index_file_head.h"
#include "format/index_layout.h"
#include "format/rec_data_file_info.h"

namespace tr {
namespace {

constexpr size_t kCopyBlock = 1 << 20;
// A copy this long shows its progress on a terminal.
constexpr double kProgressDelaySeconds = 1.0;

// What is wrong with a copy of a segment info, for the export: "" when
// nothing is.
std::string damageOf(const unsigned char* bytes, uint32_t kind,
                     uint64_t dataFileSize, const std::string& dataFile) {
  if (!segmentInUse(bytes)) return "it is not in use";
  if (std::memcmp(bytes, kSegmentInfoMagic, 7) != 0) {
    return "its magic word is wrong";
  }
  uint64_t offset = 0;
  uint64_t length = 0;
  if (kind == kRecordKind) {
    std::memcpy(&offset, bytes + offsetof(tr_RecDataFileInfo, dataOffset), 8);
    std::memcpy(&length, bytes + offsetof(tr_RecDataFileInfo, datalen), 8);
  } else {
    std::memcpy(&offset, bytes + offsetof(tr_JPGDataFileInfo, fragmentOffset),
                8);
    std::memcpy(&length, bytes + offsetof(tr_JPGDataFileInfo, fragmentSize), 8);
  }
  uint64_t end = 0;
  if (__builtin_add_overflow(offset, length, &end) || end > dataFileSize) {
    return formatString("its media (0x%llx + %llu bytes) leave %s (%llu bytes)",
                        static_cast<unsigned long long>(offset),
                        static_cast<unsigned long long>(length),
                        dataFile.c_str(),
                        static_cast<unsigned long long>(dataFileSize));
  }
  return "";
}

}  // namespace

void chooseCopy(ExportSession* session, const IndexFileDef& file,
                uint32_t fileNum, uint32_t segmentNum,
                const unsigned char* primary, SegmentCopy* copy) {
  *copy = SegmentCopy();
  uint64_t size = 0;
  copy->dataFd = session->dataFile(file.kind, fileNum, &size, &copy->why);
  if (copy->dataFd == -1) return;
  const std::string name = DataFileSizes::name(file.kind, fileNum);
  const size_t infoSize = segmentInfoSize(file.kind);
  copy->damage = damageOf(primary, file.kind, size, name);
  if (copy->damage.empty()) {
    std::memcpy(copy->bytes, primary, infoSize);
    copy->usable = true;
    return;
  }
  // The backup's copy, where the backup's header places it.
  CardSession& card = session->card();
  const IndexFileDef& backup = twinOf(file);
  const uint64_t base = card.base(backup);
  tr_IndexFileHead head;
  std::string backupDamage = "its header cannot be read";
  if (card.read(base, &head, sizeof head) == 0) {
    backupDamage = "its header does not have this segment";
    if (fileNum <= head.maxFileNum && segmentNum <= head.maxSegmentNum &&
        dataFileAreaFits(head, file.kind, card.layout().idxFileSize) &&
        card.read(segmentInfoOffset(base, file.kind, head.maxSegmentNum,
                                    fileNum, segmentNum),
                  copy->bytes, infoSize) == 0) {
      backupDamage = damageOf(copy->bytes, file.kind, size, name);
    }
  }
  if (card.fd() == -1) {
    copy->why = "the card could not be read";
    return;
  }
  copy->usable = backupDamage.empty();
  copy->backup = copy->usable;
  if (!copy->usable) {
    copy->why = formatString("%s in %s, and %s in %s", copy->damage.c_str(),
                             file.name, backupDamage.c_str(), backup.name);
  }
}

const char* codecExtension(uint32_t codec) {
  switch (codec) {
    case 4:
      return ".h264";
    case 8:
      return ".h265";
    default:
      return ".bin";
  }
}

ExportSession::ExportSession(CardSession* card, const ExportSettings& settings)
    : card_(card),
      settings_(settings),
      manifest_(settings.dir),
      sums_(settings.dir),
      progress_(true, kProgressDelaySeconds) {}

ExportSession::~ExportSession() {
  if (heldFd_ != -1) sys.close(heldFd_);
}

int ExportSession::begin(const JsonObject& head) {
  if (manifest_.open() == -1 || sums_.open() == -1) {
    err("trellis-maintain: %s: cannot write in it: %s\n",
        escapedText(dir(), kLineEscaped).c_str(), std::strerror(errno));
    failed_ = true;
    return -1;
  }
  // The manifest's head, then its entries as they come.
  std::string text = head.str();
  text.pop_back();
  text += ",\"files\":[";
  if (manifest_.write(text.data(), text.size()) == -1) {
    failed_ = true;
    return -1;
  }
  return 0;
}

int ExportSession::finish() {
  progress_.clear();
  std::string end = "],\"finished\":\"" + isoUtc(std::time(nullptr)) + "\"";
  if (stopped()) {
    end += formatString(",\"complete\":false,\"stoppedBy\":\"%s\"",
                        signal_ == SIGINT    ? "Ctrl-C"
                        : signal_ == SIGTERM ? "SIGTERM"
                                             : "a failed write");
  }
  end += "}\n";
  std::string line;
  if (manifest_.write(end.data(), end.size()) == -1 ||
      manifest_.keep("manifest.json") == -1 ||
      (line = manifest_.sha256() + "  manifest.json\n",
       sums_.write(line.data(), line.size()) == -1) ||
      sums_.keep("SHA256SUMS") == -1 || syncDirectory(dir()) == -1) {
    err("trellis-maintain: %s: cannot write its manifest.json and "
        "SHA256SUMS: %s\n",
        escapedText(dir(), kLineEscaped).c_str(), std::strerror(errno));
    failed_ = true;
    return -1;
  }
  out("%u file%s, %llu bytes of the card, in %s with SHA256SUMS and "
      "manifest.json\n",
      files_, files_ == 1 ? "" : "s", static_cast<unsigned long long>(bytes_),
      escapedText(dir(), kLineEscaped).c_str());
  return 0;
}

int ExportSession::dataFile(uint32_t kind, uint32_t fileNum, uint64_t* size,
                            std::string* why) {
  if (kind == heldKind_ && fileNum == heldNum_) {
    *size = heldSize_;
    *why = heldWhy_;
    return heldFd_;
  }
  if (heldFd_ != -1) sys.close(heldFd_);
  heldFd_ = -1;
  heldKind_ = kind;
  heldNum_ = fileNum;
  heldSize_ = 0;
  const std::string name = DataFileSizes::name(kind, fileNum);
  const int fd = sys.openFile(mediaPath(name).c_str(),
                              O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0);
  struct stat st;
  if (fd == -1) {
    heldWhy_ = name + " cannot be opened in the media directory: " +
               std::strerror(errno);
  } else if (sys.fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    sys.close(fd);
    heldWhy_ = name + " in the media directory is not a regular file";
  } else {
    sys.makeBlocking(fd);
    heldFd_ = fd;
    heldWhy_.clear();
    heldSize_ = static_cast<uint64_t>(st.st_size);
  }
  *why = heldWhy_;
  *size = heldSize_;
  return heldFd_;
}

int ExportSession::copy(int fd, uint64_t start, uint64_t length,
                        ExportFile* out) {
  HeapBuffer buffer(length < kCopyBlock ? static_cast<size_t>(length)
                                        : kCopyBlock);
  if (!buffer.valid() || sys.lseek(fd, static_cast<int64_t>(start)) == -1) {
    err("trellis-maintain: cannot read the data file at byte %llu: %s\n",
        static_cast<unsigned long long>(start), std::strerror(errno));
    failed_ = true;
    return -1;
  }
  for (uint64_t left = length; left != 0;) {
    if (InterruptScope::caught() != 0) {
      signal_ = InterruptScope::caught();
      return -1;
    }
    const size_t chunk =
        left < kCopyBlock ? static_cast<size_t>(left) : kCopyBlock;
    const ssize_t got = sys.read(fd, buffer.data(), chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      err("trellis-maintain: the data file ends or fails %llu bytes short of "
          "a range the index names\n",
          static_cast<unsigned long long>(left));
      failed_ = true;
      return -1;
    }
    if (out->write(buffer.data(), static_cast<size_t>(got)) == -1) {
      if (InterruptScope::caught() != 0) {
        signal_ = InterruptScope::caught();
        return -1;
      }
      err("trellis-maintain: %s: cannot write: %s\n",
          escapedText(dir(), kLineEscaped).c_str(), std::strerror(errno));
      failed_ = true;
      return -1;
    }
    left -= static_cast<uint64_t>(got);
    bytes_ += static_cast<uint64_t>(got);
    if (progress_.due()) {
      progress_.draw(formatString("exporting: %u files, %.1f MB", files_,
                                  static_cast<double>(bytes_) / 1e6));
    }
  }
  return 0;
}

int ExportSession::keep(ExportFile* out, const std::string& name,
                        JsonObject entry, const std::string& summary) {
  if (out->keep(name) == -1) {
    const int error = errno;
    if (error == EEXIST) {
      progress_.clear();
      err("trellis-maintain: %s: exists already; not written over, "
          "skipped\n",
          escapedText(pathIn(dir(), name), kLineEscaped).c_str());
      JsonObject skipped;
      skipped.add("type", "skipped").add("name", name).add(
          "reason", "a file of this name exists in the export directory");
      addEntry(skipped);
      skipped_ = true;
      return 0;
    }
    err("trellis-maintain: %s: cannot write: %s\n",
        escapedText(pathIn(dir(), name), kLineEscaped).c_str(),
        std::strerror(error));
    failed_ = true;
    return -1;
  }
  const std::string line = out->sha256() + "  " + name + "\n";
  entry.add("name", name).add("size", out->size()).add("sha256", out->sha256());
  if (sums_.write(line.data(), line.size()) == -1) {
    failed_ = true;
    return -1;
  }
  addEntry(entry);
  ++files_;
  progress_.clear();
  outText(name + ": " + summary + "\n");
  return failed_ ? -1 : 0;
}

void ExportSession::skip(const RecordPlace& where, int picture,
                         const std::string& why) {
  progress_.clear();
  std::string what = where.kind == RecordKind::kDevice ? "" : where.text();
  if (picture > 0) what += formatString(" picture %d", picture);
  err("trellis-maintain: %s%sskipped: %s\n", what.c_str(),
      what.empty() ? "" : ": ", why.c_str());
  JsonObject entry;
  entry.add("type", "skipped");
  if (where.file != nullptr) {
    entry.add("indexFile", where.file->name)
        .add("fileNum", uint64_t{where.first})
        .add("segmentNum", uint64_t{where.second});
  }
  if (picture > 0) entry.add("picture", int64_t{picture});
  entry.add("reason", why);
  addEntry(entry);
  skipped_ = true;
}

void ExportSession::noteBackup(const RecordPlace& where,
                               const std::string& why) {
  progress_.clear();
  err("trellis-maintain: %s: %s; taken from %s\n", where.text().c_str(),
      why.c_str(), twinOf(*where.file).name);
}

void ExportSession::failWriting() {
  err("trellis-maintain: %s: cannot write in it: %s\n",
      escapedText(dir(), kLineEscaped).c_str(), std::strerror(errno));
  failed_ = true;
}

void ExportSession::cardLost(bool readerFailed) {
  if (readerFailed) card_->lost();
  failed_ = true;
}

int ExportSession::status() const {
  if (signal_ == SIGINT) return 130;
  if (signal_ == SIGTERM) return 143;
  if (failed_) return kExportFailed;
  return skipped_ ? kExportSkipped : kExportDone;
}

void ExportSession::addEntry(const JsonObject& entry) {
  const std::string text = (firstEntry_ ? "" : ",") + entry.str();
  firstEntry_ = false;
  if (manifest_.write(text.data(), text.size()) == -1) failed_ = true;
}

}  // namespace tr
