#pragma once
// Helpers shared by the archive tests: file reading, value builders, and the
// opening bytes every hand-built archive starts with.

#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "foundation/json_writer.h"
#include "foundation/values.h"

namespace halyard::testing {

using namespace std::string_view_literals;

inline std::string readFixture(const std::string& name) {
  std::ifstream in(std::string(HALYARD_FIXTURE_DIR) + "/" + name + ".typedstream", std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// The archive header: format version 4, the signature's length (11), the
// signature, and the system version, 1000, as a 2-byte integer.
inline constexpr std::string_view kArchiveHeader = "\x04\x0bstreamtyped\x81\xe8\x03"sv;

// The header, then the root object's group: a group type, new shared string
// S0 of 1 byte, "@" (an object), then new object O0: the root.
inline const std::string kRootObjectOpening = std::string(kArchiveHeader) + "\x84\x01@\x84";

// NSObject as a new class with no superclass, where every class chain ends:
// a new class named by a new shared string of 8 bytes, "NSObject", version
// 0, no superclass.
inline constexpr std::string_view kNSObjectRootClass = "\x84\x84\x08NSObject\x00\x85"sv;

inline std::string joined(std::initializer_list<std::string_view> parts) {
  std::string out;
  for (std::string_view part : parts) out += part;
  return out;
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
