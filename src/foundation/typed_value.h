#pragma once
// TypedValue and Group: the raw typed values of an archive, for contents
// that are kept as read (unknown classes) and for coders that read and write
// scalars.

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "foundation/object.h"

namespace halyard {

struct TypedValue;

// Absent: nil string/object/class, or the empty '!' field.
struct Nil {
  bool operator==(const Nil&) const = default;
};

// A value and the one Objective-C type code it was written with
// ("i", "d", "@", "[4c]", "{CGSize=dd}", ...).
struct TypedValue {
  using Storage = std::variant<Nil, std::int64_t, std::uint64_t, double, std::string, ObjectRef, ClassChain,
                               std::vector<TypedValue>>;
  std::string type;
  Storage value;
};

// One typed group: a type string and one value per type in it.
struct Group {
  std::string types;
  std::vector<TypedValue> values;
};

}  // namespace halyard
