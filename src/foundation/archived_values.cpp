#include "foundation/archived_values.h"

#include "foundation/log_sink.h"

namespace halyard {

std::string archivedClassName(const ObjectRef& value) {
  const ClassChain chain = value ? value->archiveClassChain() : ClassChain{};
  return chain.empty() ? "an unknown class" : chain.front().name;
}

void ArchivedValues::logIgnored(const char* key, const ObjectRef& value, const char* wanted) const {
  logLine(std::string("<Error:> Ignored \"") + key + "\" of " + owner_ + ": " + archivedClassName(value) +
              " where " + wanted + " belongs",
          LogPriority::Error);
}

template <class T, class FromNumber, class FromString>
std::optional<T> ArchivedValues::scalarOf(const char* key, FromNumber fromNumber, FromString fromString) const {
  const ObjectRef value = archive_.get(key);
  if (!value) return std::nullopt;
  if (auto number = objectAs<Number>(value)) return fromNumber(*number);
  if (auto text = objectAs<String>(value)) return fromString(*text);
  logIgnored(key, value, "a number");
  return std::nullopt;
}

std::optional<std::int32_t> ArchivedValues::intOf(const char* key) const {
  return scalarOf<std::int32_t>(key, [](const Number& n) { return n.intValue(); },
                                [](const String& s) { return s.intValue(); });
}

std::optional<std::int64_t> ArchivedValues::int64Of(const char* key) const {
  return scalarOf<std::int64_t>(key, [](const Number& n) { return n.int64Value(); },
                                [](const String& s) { return std::int64_t{s.intValue()}; });
}

std::optional<bool> ArchivedValues::boolOf(const char* key) const {
  return scalarOf<bool>(key, [](const Number& n) { return n.boolValue(); },
                        [](const String& s) { return s.boolValue(); });
}

std::optional<double> ArchivedValues::doubleOf(const char* key) const {
  return scalarOf<double>(key, [](const Number& n) { return n.doubleValue(); },
                          [](const String& s) { return s.doubleValue(); });
}

std::optional<std::string> ArchivedValues::textOf(const char* key) const {
  if (auto text = objectOf<String>(key, "a string")) return text->text;
  return std::nullopt;
}

}  // namespace halyard
