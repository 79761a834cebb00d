// One export while it runs: the card and the window it works on, the data
// file it reads, the directory it writes, and the proof (SHA256SUMS and
// manifest.json) as it grows, an entry at a time. Shared by the
// recordings and the pictures.
#ifndef TRELLIS_EXPORT_SESSION_H_
#define TRELLIS_EXPORT_SESSION_H_

#include <cstdint>
#include <string>

#include "base/json.h"
#include "base/progress.h"
#include "export/export.h"
#include "export/export_file.h"
#include "format/card.h"
#include "format/index_files.h"
#include "format/jpg_data_file_info.h"

namespace tr {

class ExportSession {
 public:
  ExportSession(CardSession* card, const ExportSettings& settings);
  ~ExportSession();
  ExportSession(const ExportSession&) = delete;
  ExportSession& operator=(const ExportSession&) = delete;

  CardSession& card() { return *card_; }
  const SegmentFilter& window() const { return settings_.filter; }
  const std::string& dir() const { return settings_.dir; }

  // Opens the proof and writes what is known before anything is copied.
  // 0, or -1 after the report.
  int begin(const JsonObject& head);
  // Ends the proof: the manifest named, its hash added to SHA256SUMS, which
  // is then named. 0, or -1 after the report.
  int finish();

  // The data file `fileNum` of `kind`, open for reading: its descriptor
  // and size, or -1 after `*why` was set. One data file is held at a time.
  int dataFile(uint32_t kind, uint32_t fileNum, uint64_t* size,
               std::string* why);
  // Appends `length` bytes from `start` of the data file open on `fd` to
  // `out`. 0; -1 after the report (a read or write that failed, or an
  // interruption: see stopped()).
  int copy(int fd, uint64_t start, uint64_t length, ExportFile* out);
  // Names `out` `name`; adds it to SHA256SUMS, and `entry` (completed with
  // its name, size and SHA-256) to the manifest; says it on standard
  // output. 0, or -1 after the report.
  int keep(ExportFile* out, const std::string& name, JsonObject entry,
           const std::string& summary);

  // What could not be exported, and why: one line on standard error and
  // an entry of the manifest.
  void skip(const RecordPlace& where, int picture, const std::string& why);
  // A segment info taken from the backup index file.
  void noteBackup(const RecordPlace& where, const std::string& why);

  // A file of the export could not be begun: said, and the export stops.
  void failWriting();
  // The card could not be read: the export stops. `readerFailed`: a
  // RegionReader's read failed, which closed the device.
  void cardLost(bool readerFailed);

  // True once the export must stop: a write failed or a signal came.
  bool stopped() const { return failed_ || signal_ != 0; }
  // The exit status so far.
  int status() const;

 private:
  void addEntry(const JsonObject& entry);

  CardSession* card_;
  const ExportSettings& settings_;
  ExportFile manifest_;
  ExportFile sums_;
  bool firstEntry_ = true;
  bool failed_ = false;
  bool skipped_ = false;
  int signal_ = 0;
  uint32_t files_ = 0;
  uint64_t bytes_ = 0;
  // The data file held open.
  int heldFd_ = -1;
  std::string heldWhy_;  // why it could not be opened
  uint32_t heldKind_ = 0;
  uint32_t heldNum_ = 0;
  uint64_t heldSize_ = 0;
  ProgressLine progress_;
};

// ".h264", ".h265" or ".bin": the name's end for a file of the codec.
const char* codecExtension(uint32_t codec);

// The copy of a segment info an export uses: the one in `file` (a primary
// index file), or its backup's when the primary's copy is damaged (a
// wrong magic word, media leaving the data file) and the backup's is not.
struct SegmentCopy {
  bool usable = false;
  bool backup = false;  // the backup's copy
  std::string damage;   // what is wrong with the primary's copy
  std::string why;      // why neither can be used
  int dataFd = -1;      // the data file, held by the session
  unsigned char bytes[sizeof(tr_JPGDataFileInfo)];  // the info used
};
// `primary` holds the primary's copy of segment (fileNum, segmentNum).
void chooseCopy(ExportSession* session, const IndexFileDef& file,
                uint32_t fileNum, uint32_t segmentNum,
                const unsigned char* primary, SegmentCopy* copy);

}  // namespace tr

#endif  // TRELLIS_EXPORT_SESSION_H_
