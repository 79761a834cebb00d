// JSON as the console writes it: objects one member at a time, in the
// order they were added, every string escaped (base/output.h), so a line
// is valid JSON whatever bytes the card held.
#ifndef TRELLIS_BASE_JSON_H_
#define TRELLIS_BASE_JSON_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tr {

// One JSON object, its members in the order they were added.
class JsonObject {
 public:
  JsonObject& add(const char* key, const std::string& text);
  JsonObject& add(const char* key, const char* text);
  JsonObject& add(const char* key, uint64_t number);
  JsonObject& add(const char* key, int64_t number);
  JsonObject& add(const char* key, bool value);
  JsonObject& addNull(const char* key);
  // `json` is written as it stands: an array or object already formed.
  JsonObject& addRaw(const char* key, const std::string& json);
  std::string str() const { return body_ + "}"; }

 private:
  std::string body_ = "{";
};

// A JSON array of strings.
std::string jsonArray(const std::vector<std::string>& items);

}  // namespace tr

#endif  // TRELLIS_BASE_JSON_H_
