#pragma once
// JsonWriter: stable, indented JSON for archived values (`halyardctl dump`,
// `--json` outputs, and value comparisons in tests). An object that occurs
// more than once in a graph is written in full at its first occurrence, with
// an "id", and as {"ref": id} afterwards.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/object.h"
#include "foundation/typed_value.h"

namespace halyard {

class JsonWriter {
 public:
  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  // Starts a member; the value follows: json.key("name").string(text).
  JsonWriter& key(std::string_view name);

  void string(std::string_view text);
  void integer(std::int64_t v);
  void unsignedInteger(std::uint64_t v);
  void real(double v);
  void boolean(bool v);
  void null();
  // Raw bytes, as a lower-case hex string.
  void hex(std::string_view bytes);

  // An archived object (null writes null), with its class and identity.
  void object(const ObjectRef& value);
  void typedValue(const TypedValue& value);
  void groups(const std::vector<Group>& groups);
  void classChain(const ClassChain& chain);

  std::string take() { return std::move(out_); }

  // The JSON of a whole object graph.
  static std::string describe(const ObjectRef& root);
  static std::string describe(const std::vector<Group>& groups);

 private:
  void separate();
  void newline();
  template <class Write>
  static std::string describeWith(Write write);

  std::string out_;
  std::vector<bool> hasItems_;  // per open container: has it an item yet
  bool afterKey_ = false;
  // Identity: objects seen so far and the ids of those that occur twice.
  std::unordered_map<const Object*, int> seen_;
  std::set<const Object*> shared_;
  bool recording_ = false;
};

}  // namespace halyard
