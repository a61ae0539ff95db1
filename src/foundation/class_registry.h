#pragma once
// ClassRegistry: which coder decodes an archived class. The Foundation
// classes are always present; the project's own classes (scheduled items,
// volume specifiers, logs, the id mapper) add their decoders. A class with
// no decoder is read as a GenericObject.

#include <functional>
#include <map>
#include <string>
#include <string_view>

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
  std::map<std::string, ClassDecoder, std::less<>> decoders_;
};

}  // namespace halyard
