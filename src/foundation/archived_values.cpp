#include "foundation/archived_values.h"

#include "foundation/log_sink.h"

namespace halyard {

std::string archivedClassName(const ObjectRef& value) {
  const ClassChain chain = value ? value->archiveClassChain() : ClassChain{};
  return chain.empty() ? "an unknown class" : chain.front().name;
}

void ArchivedValues::logIgnored(const char* key, const ObjectView& value, const char* wanted) const {
  logLine(std::string("<Error:> Ignored \"") + key + "\" of " + owner_ + ": " + value.className() + " where " + wanted +
              " belongs",
          LogPriority::Error);
}

// A string view is made a String only for the conversion, which is rare.
template <class T, class FromNumber, class FromString>
std::optional<T> ArchivedValues::scalarOf(const char* key, const ObjectView& value, FromNumber fromNumber,
                                          FromString fromString) const {
  switch (value.kind) {
    case ObjectView::Kind::Nil:
      return std::nullopt;
    case ObjectView::Kind::Number:
      return fromNumber(Number(value.number.type, value.number.value));
    case ObjectView::Kind::String:
      return fromString(String(std::string(value.text)));
    default:
      logIgnored(key, value, "a number");
      return std::nullopt;
  }
}

std::optional<std::int32_t> ArchivedValues::intOf(const char* key, const ObjectView& value) const {
  return scalarOf<std::int32_t>(
      key, value, [](const Number& n) { return n.intValue(); }, [](const String& s) { return s.intValue(); });
}

std::optional<std::int64_t> ArchivedValues::int64Of(const char* key, const ObjectView& value) const {
  return scalarOf<std::int64_t>(
      key, value, [](const Number& n) { return n.int64Value(); },
      [](const String& s) { return std::int64_t{s.intValue()}; });
}

std::optional<bool> ArchivedValues::boolOf(const char* key, const ObjectView& value) const {
  return scalarOf<bool>(
      key, value, [](const Number& n) { return n.boolValue(); }, [](const String& s) { return s.boolValue(); });
}

std::optional<double> ArchivedValues::doubleOf(const char* key, const ObjectView& value) const {
  return scalarOf<double>(
      key, value, [](const Number& n) { return n.doubleValue(); }, [](const String& s) { return s.doubleValue(); });
}

std::optional<std::string> ArchivedValues::textOf(const char* key, const ObjectView& value) const {
  if (value.kind == ObjectView::Kind::String) return std::string(value.text);
  if (value.kind != ObjectView::Kind::Nil) logIgnored(key, value, "a string");
  return std::nullopt;
}

}  // namespace halyard
