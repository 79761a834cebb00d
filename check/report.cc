#include "check/report.h"

#include <cinttypes>

#include "base/output.h"
#include "base/platform.h"

namespace tr {
namespace {

// The report is worth a progress line only when it takes a while.
constexpr double kProgressDelaySeconds = 1.0;

}  // namespace

std::string jsonString(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (byte < 0x20 || byte >= 0x7f) {
      quoted += formatString("\\u%04x", byte);
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

JsonObject& JsonObject::addRaw(const char* key, const std::string& json) {
  if (body_.size() > 1) body_ += ',';
  body_ += jsonString(key);
  body_ += ':';
  body_ += json;
  return *this;
}

JsonObject& JsonObject::add(const char* key, const std::string& text) {
  return addRaw(key, jsonString(text));
}

JsonObject& JsonObject::add(const char* key, const char* text) {
  return addRaw(key, jsonString(text));
}

JsonObject& JsonObject::add(const char* key, uint64_t number) {
  return addRaw(key, formatString("%" PRIu64, number));
}

JsonObject& JsonObject::add(const char* key, int64_t number) {
  return addRaw(key, formatString("%" PRId64, number));
}

JsonObject& JsonObject::add(const char* key, bool value) {
  return addRaw(key, value ? "true" : "false");
}

JsonObject& JsonObject::addNull(const char* key) { return addRaw(key, "null"); }

std::string Place::text() const {
  switch (record) {
    case kDevice:
      return "device";
    case kStorageHead:
      return "storage head";
    case kIndexFileHead:
      return file->name;
    case kDataFileHead:
      return formatString("%s file %u", file->name, first);
    case kSegmentInfo:
      return formatString("%s file %u segment %u", file->name, first, second);
    case kAuxHead:
      return formatString("%s auxiliary %u", file->name, first);
    case kAuxContext:
      return formatString("%s auxiliary %u context %u", file->name, first,
                          second);
  }
  return "";
}

std::string Place::command() const {
  switch (record) {
    case kDevice:
      return "";
    case kStorageHead:
      return "maintain TrellisHead";
    case kIndexFileHead:
      return formatString("maintain %sIndexFileHead", file->prefix);
    case kDataFileHead:
      return formatString("maintain %sDataFileHead %u", file->prefix, first);
    case kSegmentInfo:
      return formatString("maintain %sDataFileInfo %u %u", file->prefix, first,
                          second);
    case kAuxHead:
      return formatString("maintain %sIndexAuxHead %u", file->prefix, first);
    case kAuxContext:
      return formatString("maintain %sIndexFileAux %u %u", file->prefix, first,
                          second);
  }
  return "";
}

void Place::addTo(JsonObject* object) const {
  if (file != nullptr) object->add("indexFile", file->name);
  const bool byFile = record == kDataFileHead || record == kSegmentInfo;
  const bool byAux = record == kAuxHead || record == kAuxContext;
  if (byFile) object->add("file", uint64_t{first});
  if (record == kSegmentInfo) object->add("segment", uint64_t{second});
  if (byAux) object->add("auxiliary", uint64_t{first});
  if (record == kAuxContext) object->add("context", uint64_t{second});
}

Report::Report(bool json, const char* activity)
    : json_(json),
      activity_(activity),
      progress_(true, kProgressDelaySeconds) {}

void Report::emit(const std::string& text, const JsonObject& object) {
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
  const std::string command = where.command();
  std::string text = where.text() + ": " + message;
  if (!command.empty()) text += " [" + command + "]";
  JsonObject object;
  object.add("type", "problem").add("where", where.text());
  where.addTo(&object);
  object.add("field", field).add("problem", message);
  if (command.empty()) {
    object.addNull("command");
  } else {
    object.add("command", command);
  }
  emit(text, object);
}

void Report::progress(uint64_t bytesRead) {
  if (!progress_.due() || total_ == 0) return;
  progress_.draw(formatString(
      "%s: %" PRIu64 " of %" PRIu64 " MiB (%.0f%%)", activity_, bytesRead >> 20,
      total_ >> 20,
      100.0 * static_cast<double>(bytesRead) / static_cast<double>(total_)));
}

std::string cardText(const char* bytes, size_t size) {
  std::string text = "\"";
  for (size_t i = 0; i < size && bytes[i] != '\0'; ++i) {
    const unsigned char byte = static_cast<unsigned char>(bytes[i]);
    if (byte == '"' || byte == '\\') {
      text += '\\';
      text += bytes[i];
    } else if (byte < 0x20 || byte >= 0x7f) {
      text += formatString("\\x%02x", byte);
    } else {
      text += bytes[i];
    }
  }
  return text + "\"";
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
