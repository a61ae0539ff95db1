#pragma once
// ArchivedValues: reads the one dictionary that a class of this program
// archives (a scheduled item, a volume specifier) the way the platform's
// conversions treat whatever is stored: a number from an NSNumber as its
// value and from an NSString as the string converts; an object of another
// class than expected is ignored, and each ignored value is logged once with
// its key and its owner.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "foundation/values.h"

namespace halyard {

class ArchivedValues {
 public:
  // `owner` names what the dictionary belongs to in log lines ("a scheduled item").
  ArchivedValues(const Dictionary& archive, const char* owner) : archive_(archive), owner_(owner) {}

  std::optional<std::int32_t> intOf(const char* key) const;
  std::optional<std::int64_t> int64Of(const char* key) const;
  std::optional<bool> boolOf(const char* key) const;
  std::optional<double> doubleOf(const char* key) const;
  std::optional<std::string> textOf(const char* key) const;

  // The value under `key` when it is a T; `wanted` names T in the log line.
  template <class T>
  std::shared_ptr<T> objectOf(const char* key, const char* wanted) const {
    const ObjectRef value = archive_.get(key);
    if (!value) return nullptr;
    if (auto typed = objectAs<T>(value)) return typed;
    logIgnored(key, value, wanted);
    return nullptr;
  }

  void logIgnored(const char* key, const ObjectRef& value, const char* wanted) const;

 private:
  template <class T, class FromNumber, class FromString>
  std::optional<T> scalarOf(const char* key, FromNumber fromNumber, FromString fromString) const;

  const Dictionary& archive_;
  const char* owner_;
};

// The class an object archives as, for messages ("NSString").
std::string archivedClassName(const ObjectRef& value);

}  // namespace halyard
