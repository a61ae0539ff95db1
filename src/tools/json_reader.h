#pragma once
// JsonValue and parseJson: the JSON that halyardctl reads (schedules in item
// form, simulation events). The input is untrusted: nesting is limited, every
// error names the byte offset where the text stops being JSON.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/expected.h"

namespace halyard::tools {

struct JsonMember;

struct JsonValue {
  enum class Kind { Null, Boolean, Number, String, Array, Object };
  Kind kind = Kind::Null;
  bool boolean = false;
  double number = 0;
  std::string text;                 // String
  std::vector<JsonValue> elements;  // Array
  std::vector<JsonMember> members;  // Object, in file order

  // The member of that name, or null when there is none.
  const JsonValue* member(std::string_view name) const;
};

struct JsonMember {
  std::string name;
  JsonValue value;
};

// Containers nested deeper than this are refused.
inline constexpr int kMaxJsonDepth = 64;

// One JSON value filling the whole text (white space around it allowed).
Expected<JsonValue> parseJson(std::string_view text);

// The name of a kind, for messages: "a string", "an array"...
const char* describeKind(JsonValue::Kind kind);

}  // namespace halyard::tools
