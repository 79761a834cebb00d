#include "export/export.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/json.h"
#include "base/output.h"
#include "base/platform.h"
#include "base/times.h"
#include "base/version.h"
#include "export/export_parts.h"
#include "format/device_layout.h"

namespace tr {
namespace {

int refuse(const std::string& dir, const std::string& why) {
  err("trellis-maintain: %s: %s\n", escapedText(dir, kLineEscaped).c_str(),
      why.c_str());
  return -1;
}

// The export directory, made when missing (where it would be made is
// judged first): never the media directory or a place in it, nor on the
// card's device, nor one that holds an export.
int prepareDirectory(const std::string& dir) {
  struct stat st;
  const bool exists = ::stat(dir.c_str(), &st) == 0;
  if (!exists && errno != ENOENT) {
    return refuse(dir, std::string("cannot use it: ") + std::strerror(errno));
  }
  const size_t slash = dir.find_last_not_of('/') == std::string::npos
                           ? std::string::npos
                           : dir.rfind('/', dir.find_last_not_of('/'));
  const std::string place = exists ? dir
                            : slash == std::string::npos ? "."
                            : slash == 0                 ? "/"
                                                         : dir.substr(0, slash);
  struct stat placeSt;
  if (!exists && ::stat(place.c_str(), &placeSt) != 0) {
    return refuse(dir, std::string("cannot make it: ") + std::strerror(errno));
  }
  if (inMediaDir(place)) {
    return refuse(dir, "it lies in the media directory, the card's own file "
                       "system; export to another place");
  }
  if (onCardDevice(place)) {
    return refuse(dir, "it lies on the card's device " + deviceName +
                           "; export to another place");
  }
  if (!exists && (::mkdir(dir.c_str(), 0777) != 0 || ::stat(dir.c_str(), &st) != 0)) {
    return refuse(dir, std::string("cannot make it: ") + std::strerror(errno));
  }
  if (!S_ISDIR(st.st_mode)) return refuse(dir, "it is not a directory");
  for (const char* proof : {"SHA256SUMS", "manifest.json"}) {
    if (::access(pathIn(dir, proof).c_str(), F_OK) == 0) {
      return refuse(dir, std::string("it holds an export already (its ") +
                             proof + "); give a new or empty directory");
    }
  }
  return 0;
}

std::string bound(const TimeWord& time, const std::string& text) {
  JsonObject object;
  object.add("given", text).add("utc", isoUtc(time.seconds));
  return object.str();
}

// What the manifest says before the files: the tool, the device and its
// storage head, the filters, and when the export began.
JsonObject manifestHead(const CardSession& card, const tr_TrellisHead& head,
                        const SegmentFilter& filter) {
  const tr_TrellisHead& computed = card.layout();
  JsonObject storage;
  storage
      .add("magicWord",
           std::string(head.magicWord,
                       strnlen(head.magicWord, sizeof head.magicWord)))
      .add("idxFileOffsetAV", head.idxFileOffsetAV)
      .add("idxFileBackupOffsetAV", head.idxFileBackupOffsetAV)
      .add("idxFileOffsetPic", head.idxFileOffsetPic)
      .add("idxFileBackupOffsetPic", head.idxFileBackupOffsetPic)
      .add("idxFileSize", head.idxFileSize)
      .add("asTheLayoutComputed",
           std::memcmp(&head, &computed,
                       offsetof(tr_TrellisHead, idxCheckFlagAV)) == 0);
  std::string channels = "[";
  for (int32_t channel : filter.channels) {
    channels += formatString("%s%d", channels.size() > 1 ? "," : "", channel);
  }
  JsonObject filters;
  filters.addRaw("channels", channels + "]");
  if (filter.hasFrom)
    filters.addRaw("from", bound(filter.from, filter.fromText));
  if (filter.hasTo) filters.addRaw("to", bound(filter.to, filter.toText));
  JsonObject object;
  object.add("tool", std::string("trellis-maintain ") + kVersion)
      .add("device", deviceName)
      .add("deviceSize", card.capacity())
      .addRaw("storageHead", storage.str())
      .addRaw("filters", filters.str())
      .add("started", isoUtc(std::time(nullptr)));
  return object;
}

}  // namespace

int runExport(const ExportSettings& given) {
  ExportSettings settings = given;
  if (prepareDirectory(settings.dir) == -1) return kExportFailed;
  CardSession card;
  if (card.open() == -1) return kExportFailed;
  if (resolveWindowZone(&card, &settings.filter) != 0) return kExportFailed;
  tr_TrellisHead head;
  if (card.read(kTrellisHeadOffset, &head, sizeof head) == -1) {
    return kExportFailed;
  }
  // Ctrl-C and SIGTERM stop the copy between blocks: the file being
  // written goes, the proof of the files before it stays.
  InterruptScope interrupts;
  ExportSession session(&card, settings);
  if (session.begin(manifestHead(card, head, settings.filter)) == 0) {
    exportRecordings(&session);
    if (!session.stopped()) exportPictures(&session);
    session.finish();
  }
  if (card.fd() != -1 && card.close() == -1) return kExportFailed;
  return session.status();
}

}  // namespace tr
