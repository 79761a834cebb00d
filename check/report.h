// The report of the whole-card commands: one line of text, or one JSON
// object (JSON Lines), per data file, segment or problem, then a summary.
// The report goes to standard output; the progress line, on a terminal
// only, goes to standard error and is wiped before each report line.
#ifndef TRELLIS_CHECK_REPORT_H_
#define TRELLIS_CHECK_REPORT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/progress.h"
#include "format/card.h"
#include "check/check.h"
#include "format/index_files.h"

namespace tr {

// Where a record lies, as a report line names it.
using Place = RecordPlace;

// A problem as reported: where, the field it names, and what its line
// says after the place.
struct ReportedProblem {
  RecordPlace where;
  std::string field;
  std::string message;
};
// The members naming `place` in a JSON object.
void addPlace(const Place& place, JsonObject* object);

class Report {
 public:
  // `activity` names the work on the progress line; `namer`, when set, adds
  // to each problem the command that shows its record.
  Report(bool json, const char* activity, CommandNamer namer = nullptr);

  bool json() const { return json_; }
  // One report line: `text`, or `object` as JSON.
  void emit(const std::string& text, const JsonObject& object);
  // A line only the text report has, or an object only JSON Lines have.
  void emitText(const std::string& text);
  void emitJson(const JsonObject& object);
  // "<where>: <field> <what> [<command>]", or its JSON object.
  void problem(const Place& where, const std::string& field,
               const std::string& what);
  // "<where>: <what> [<command>]": a backup record that is not its
  // primary's copy; `fields` names the fields that differ.
  void difference(const Place& where, const std::string& fields,
                  const std::string& what);
  uint64_t problems() const { return problems_; }
  // Each problem from now on is also added to `*into` (null: no more).
  void collect(std::vector<ReportedProblem>* into) { collected_ = into; }
  // Counts the problems and prints nothing (no progress line either).
  void silence() { silent_ = true; }
  // Redraws the progress line now and then on a terminal, once the bytes
  // the work will read in all are known.
  void setTotal(uint64_t total) { total_ = total; }
  void progress(uint64_t bytesRead);

 private:
  void line(const Place& where, const std::string& field,
            const std::string& message);

  bool json_;
  const char* activity_;
  CommandNamer namer_;
  uint64_t total_ = 0;
  uint64_t problems_ = 0;
  std::vector<ReportedProblem>* collected_ = nullptr;
  bool silent_ = false;
  ProgressLine progress_;
};

// A stored UTC time as "YYYY-MM-DD HH:MM:SS", as the printers show it.
std::string utcText(int64_t seconds);
std::string hexText(uint64_t value);
// "1 segment", "4 segments".
std::string counted(uint64_t count, const char* noun);

}  // namespace tr

#endif  // TRELLIS_CHECK_REPORT_H_
