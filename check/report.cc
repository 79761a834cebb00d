#include "check/report.h"

#include <cinttypes>

#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

// The report is worth a progress line only when it takes a while.
constexpr double kProgressDelaySeconds = 1.0;

}  // namespace

void addPlace(const Place& place, JsonObject* object) {
  if (place.file != nullptr) object->add("indexFile", place.file->name);
  const RecordKind kind = place.kind;
  if (kind == RecordKind::kDataFileHead || kind == RecordKind::kSegmentInfo) {
    object->add("file", uint64_t{place.first});
  }
  if (kind == RecordKind::kSegmentInfo) {
    object->add("segment", uint64_t{place.second});
  }
  if (kind == RecordKind::kAuxHead || kind == RecordKind::kAuxContext) {
    object->add("auxiliary", uint64_t{place.first});
  }
  if (kind == RecordKind::kAuxContext) {
    object->add("context", uint64_t{place.second});
  }
}

Report::Report(bool json, const char* activity, CommandNamer namer)
    : json_(json),
      activity_(activity),
      namer_(namer),
      progress_(true, kProgressDelaySeconds) {}

void Report::emit(const std::string& text, const JsonObject& object) {
  if (silent_) return;
  progress_.clear();
  outText((json_ ? object.str() : text) + "\n");
}

void Report::emitText(const std::string& text) {
  if (!json_) emit(text, JsonObject());
}

void Report::emitJson(const JsonObject& object) {
  if (json_) emit("", object);
}

void Report::problem(const Place& where, const std::string& field,
                     const std::string& what) {
  line(where, field, field + " " + what);
}

void Report::difference(const Place& where, const std::string& fields,
                        const std::string& what) {
  line(where, fields, what);
}

void Report::line(const Place& where, const std::string& field,
                  const std::string& message) {
  ++problems_;
  if (collected_ != nullptr) collected_->push_back({where, field, message});
  if (silent_) return;
  const std::string command = namer_ == nullptr ? "" : namer_(where);
  std::string text = where.text() + ": " + message;
  if (!command.empty()) text += " [" + command + "]";
  if (!json_) {
    emit(text, JsonObject());
    return;
  }
  JsonObject object;
  object.add("type", "problem").add("where", where.text());
  addPlace(where, &object);
  object.add("field", field).add("problem", message);
  if (command.empty()) {
    object.addNull("command");
  } else {
    object.add("command", command);
  }
  emit(text, object);
}

void Report::progress(uint64_t bytesRead) {
  if (silent_ || !progress_.due() || total_ == 0) return;
  progress_.draw(formatString(
      "%s: %" PRIu64 " of %" PRIu64 " MiB (%.0f%%)", activity_, bytesRead >> 20,
      total_ >> 20,
      100.0 * static_cast<double>(bytesRead) / static_cast<double>(total_)));
}

std::string utcText(int64_t seconds) {
  char text[32];
  _tr_maintainFormatUnixTime(seconds, text, sizeof text);
  return text;
}

std::string counted(uint64_t count, const char* noun) {
  return formatString("%" PRIu64 " %s%s", count, noun, count == 1 ? "" : "s");
}

std::string hexText(uint64_t value) {
  return formatString("0x%" PRIx64, value);
}

}  // namespace tr
