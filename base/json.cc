#include "base/json.h"

#include <cinttypes>

#include "base/output.h"
#include "base/platform.h"

namespace tr {

JsonObject& JsonObject::addRaw(const char* key, const std::string& json) {
  if (body_.size() > 1) body_ += ',';
  body_ += escapedText(key, kJsonString);
  body_ += ':';
  body_ += json;
  return *this;
}

JsonObject& JsonObject::add(const char* key, const std::string& text) {
  return addRaw(key, escapedText(text, kJsonString));
}

JsonObject& JsonObject::add(const char* key, const char* text) {
  return addRaw(key, escapedText(text, kJsonString));
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

std::string jsonArray(const std::vector<std::string>& items) {
  std::string json = "[";
  for (const std::string& item : items) {
    if (json.size() > 1) json += ',';
    json += escapedText(item, kJsonString);
  }
  return json + "]";
}

}  // namespace tr
