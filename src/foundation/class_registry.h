#pragma once
// ClassRegistry: which coder decodes an archived class. The Foundation
// classes are always present; the project's own classes (scheduled items,
// volume specifiers, logs, the id mapper) add their decoders. A class with
// no decoder is read as a GenericObject.

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "foundation/expected.h"
#include "foundation/object.h"

namespace halyard {

class Unarchiver;

// Reads an object's contents (its groups, not the closing end mark) and
// answers the object. `chain` is the class chain as read.
using ClassDecoder = std::function<Expected<ObjectRef>(Unarchiver& coder, const ClassChain& chain)>;

class ClassRegistry {
 public:
  // The Foundation classes only.
  static const ClassRegistry& foundation();

  void add(std::string className, ClassDecoder decoder);
  const ClassDecoder* find(std::string_view className) const;

 private:
  // Looked up once for every object an archive holds, by a name the
  // archive gives as a view: hashed, and without making a string.
  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>{}(name); }
  };
  std::unordered_map<std::string, ClassDecoder, NameHash, std::equal_to<>> decoders_;
};

}  // namespace halyard
