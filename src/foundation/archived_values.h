#pragma once
// ArchivedValues: reads the one dictionary that a class of this program
// archives (a scheduled item, a volume specifier) the way the platform's
// conversions treat whatever is stored: a number from an NSNumber as its
// value and from an NSString as the string converts; an object of another
// class than expected is ignored, and each ignored value is logged once with
// its key and its owner. The values come from a decoded dictionary, or are
// views handed over by the unarchiver (Unarchiver::decodeDictionaryEntries).

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "foundation/object_view.h"
#include "foundation/values.h"

namespace halyard {

class ArchivedValues {
 public:
  // `owner` names what the dictionary belongs to in log lines ("a scheduled item").
  ArchivedValues(const Dictionary& archive, const char* owner) : archive_(&archive), owner_(owner) {}
  // For values at hand only.
  explicit ArchivedValues(const char* owner) : owner_(owner) {}

  std::optional<std::int32_t> intOf(const char* key) const { return intOf(key, viewOf(key)); }
  std::optional<std::int64_t> int64Of(const char* key) const { return int64Of(key, viewOf(key)); }
  std::optional<bool> boolOf(const char* key) const { return boolOf(key, viewOf(key)); }
  std::optional<double> doubleOf(const char* key) const { return doubleOf(key, viewOf(key)); }
  std::optional<std::string> textOf(const char* key) const { return textOf(key, viewOf(key)); }

  // The same for the value `value` found under `key`.
  std::optional<std::int32_t> intOf(const char* key, const ObjectView& value) const;
  std::optional<std::int64_t> int64Of(const char* key, const ObjectView& value) const;
  std::optional<bool> boolOf(const char* key, const ObjectView& value) const;
  std::optional<double> doubleOf(const char* key, const ObjectView& value) const;
  std::optional<std::string> textOf(const char* key, const ObjectView& value) const;

  // The value under `key` when it is a T; `wanted` names T in the log line.
  template <class T>
  std::shared_ptr<T> objectOf(const char* key, const char* wanted) const {
    return objectOf<T>(key, viewOf(key), wanted);
  }
  // Strings and numbers are read with textOf and the scalar readers.
  template <class T>
  std::shared_ptr<T> objectOf(const char* key, const ObjectView& value, const char* wanted) const {
    static_assert(!std::is_same_v<T, String> && !std::is_same_v<T, Number>);
    if (value.kind == ObjectView::Kind::Nil) return nullptr;
    if (auto typed = objectAs<T>(value.object)) return typed;
    logIgnored(key, value, wanted);
    return nullptr;
  }

  void logIgnored(const char* key, const ObjectView& value, const char* wanted) const;

 private:
  ObjectView viewOf(const char* key) const { return archive_ ? ObjectView::of(archive_->get(key)) : ObjectView{}; }
  template <class T, class FromNumber, class FromString>
  std::optional<T> scalarOf(const char* key, const ObjectView& value, FromNumber fromNumber,
                            FromString fromString) const;

  const Dictionary* archive_ = nullptr;
  const char* owner_;
};

// The class an object archives as, for messages ("NSString").
std::string archivedClassName(const ObjectRef& value);

}  // namespace halyard
