// JSON views of the Foundation values, for dumps and tests.

#include "foundation/dates.h"
#include "foundation/json_writer.h"
#include "foundation/values.h"

namespace halyard {
namespace {

void writeInstant(JsonWriter& json, double seconds) {
  json.key("seconds").real(seconds);
  json.key("utc").string(formatInstant(seconds, cctz::utc_time_zone()));
}

}  // namespace

void String::writeJson(JsonWriter& json) const { json.key("value").string(text); }

void Number::writeJson(JsonWriter& json) const {
  json.key("type").string(std::string(1, type));
  json.key("value");
  std::visit(
      [&](auto v) {
        using T = decltype(v);
        if constexpr (std::is_same_v<T, std::int64_t>) json.integer(v);
        else if constexpr (std::is_same_v<T, std::uint64_t>) json.unsignedInteger(v);
        else json.real(v);
      },
      value);
}

void Data::writeJson(JsonWriter& json) const {
  json.key("length").unsignedInteger(bytes.size());
  json.key("hex").hex(bytes);
}

void Date::writeJson(JsonWriter& json) const { writeInstant(json, seconds); }

void TimeZone::writeJson(JsonWriter& json) const {
  json.key("name").string(name);
  if (tzfile) {
    json.key("tzfileLength").unsignedInteger(tzfile->size());
  }
}

void CalendarDate::writeJson(JsonWriter& json) const {
  writeInstant(json, seconds);
  json.key("timeZone").object(zone);
  json.key("format").string(format);
}

void URL::writeJson(JsonWriter& json) const {
  json.key("relative").string(relative);
  if (base) {
    json.key("base").object(base);
  }
}

void Null::writeJson(JsonWriter&) const {}

void Array::writeJson(JsonWriter& json) const {
  json.key("items").beginArray();
  for (const auto& item : items) json.object(item);
  json.endArray();
}

void Set::writeJson(JsonWriter& json) const {
  json.key("items").beginArray();
  for (const auto& item : items) json.object(item);
  json.endArray();
}

void Dictionary::writeJson(JsonWriter& json) const {
  json.key("entries").beginArray();
  for (const auto& [key, value] : entries) {
    json.beginObject();
    json.key("key").object(key);
    json.key("value").object(value);
    json.endObject();
  }
  json.endArray();
}

void GenericObject::writeJson(JsonWriter& json) const {
  json.key("classChain").classChain(chain);
  json.key("groups").groups(groups);
}

void CycleReference::writeJson(JsonWriter&) const {}

}  // namespace halyard
