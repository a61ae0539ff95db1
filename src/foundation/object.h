#pragma once
// Object: the root of every value an archive can carry. Archives keep object
// identity, so values are held through shared pointers (ObjectRef): an object
// that appears twice in a graph is one object, written once.

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace halyard {

class Archiver;
class JsonWriter;

// One class of an archived object's class chain.
struct ClassInfo {
  std::string name;
  std::int64_t version = 0;
  bool operator==(const ClassInfo&) const = default;
};

// A class chain, most derived class first, ending with the root class.
using ClassChain = std::vector<ClassInfo>;

class Object {
 public:
  virtual ~Object() = default;

  // The classes written for this object, most derived first.
  virtual ClassChain archiveClassChain() const = 0;
  // Writes the object's contents (its typed groups) to the archiver.
  virtual void encodeWithCoder(Archiver& coder) const = 0;
  // Writes the object's value as JSON for `halyardctl dump` and for tests.
  virtual void writeJson(JsonWriter& json) const = 0;
};

using ObjectRef = std::shared_ptr<Object>;

// The object as a T, or null when it is absent or of another class. A final
// class is told by its type alone, which is much cheaper than a cast search;
// decoding asks this for every value it reads.
template <class T>
std::shared_ptr<T> objectAs(const ObjectRef& object) {
  if constexpr (std::is_final_v<T>) {
    if (!object) return nullptr;
    const Object& target = *object;
    if (typeid(target) != typeid(T)) return nullptr;
    return std::static_pointer_cast<T>(object);
  } else {
    return std::dynamic_pointer_cast<T>(object);
  }
}

// The chain shared by every class that derives directly from NSObject.
ClassChain rootedChain(std::initializer_list<ClassInfo> classes);

}  // namespace halyard
