#pragma once
// Helpers shared by the archive tests: file reading and value builders.

#include <fstream>
#include <sstream>
#include <string>

#include "foundation/json_writer.h"
#include "foundation/values.h"

namespace halyard::testing {

inline std::string readFixture(const std::string& name) {
  std::ifstream in(std::string(HALYARD_FIXTURE_DIR) + "/" + name + ".typedstream", std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

inline ObjectRef str(const std::string& text) { return String::make(text); }
inline ObjectRef q(std::int64_t v) { return Number::fromInt64(v); }
inline ObjectRef arr(std::vector<ObjectRef> items, bool isMutable = false) {
  return Array::make(std::move(items), isMutable);
}
inline std::shared_ptr<Dictionary> dict(std::vector<std::pair<std::string, ObjectRef>> entries,
                                        bool isMutable = false) {
  auto d = Dictionary::make(isMutable);
  for (auto& [k, v] : entries) d->set(k, v);
  return d;
}
inline std::string json(const ObjectRef& object) { return JsonWriter::describe(object); }

}  // namespace halyard::testing
