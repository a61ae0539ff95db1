#include "foundation/values.h"

#include <cctype>
#include <cstdlib>
#include <typeinfo>

#include "foundation/archiver.h"

namespace halyard {
namespace {

const ClassInfo kNSObject{"NSObject", 0};

// The chain of a class that has a mutable subclass: Mutable -> Base -> NSObject.
ClassChain chainOf(bool isMutable, const char* mutableName, const char* name, std::int64_t version = 0) {
  if (isMutable) return rootedChain({{mutableName, version}, {name, version}});
  return rootedChain({{name, version}});
}

}  // namespace

ClassChain rootedChain(std::initializer_list<ClassInfo> classes) {
  ClassChain chain(classes);
  chain.push_back(kNSObject);
  return chain;
}

// ---- String ----

ClassChain String::archiveClassChain() const { return chainOf(isMutable, "NSMutableString", "NSString", 1); }

void String::encodeWithCoder(Archiver& coder) const { coder.encodeUnsharedString(text); }

std::int32_t String::intValue() const {
  // Leading integer after white space, else 0; saturated like the platform.
  long long v = std::strtoll(text.c_str(), nullptr, 10);
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(v);
}

bool String::boolValue() const {
  for (char c : text) {
    if (std::isspace(static_cast<unsigned char>(c))) continue;
    if (c == '+' || c == '-' || c == '0') continue;  // signs and leading zeros before a digit
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
  }
  return false;
}

double String::doubleValue() const { return std::strtod(text.c_str(), nullptr); }

// ---- Number ----

ClassChain Number::archiveClassChain() const { return rootedChain({{"NSNumber", 0}, {"NSValue", 0}}); }

void Number::encodeWithCoder(Archiver& coder) const {
  const std::string code(1, type);
  coder.encodeCString(code);
  TypedValue typed{code, {}};
  std::visit([&](auto v) { typed.value = v; }, value);
  coder.encodeValue(typed);
}

std::int64_t Number::int64Value() const {
  if (auto v = std::get_if<std::int64_t>(&value)) return *v;
  if (auto v = std::get_if<std::uint64_t>(&value)) return static_cast<std::int64_t>(*v);
  const double d = std::get<double>(value);
  if (!(d == d)) return 0;
  if (d >= 9.2e18) return INT64_MAX;
  if (d <= -9.2e18) return INT64_MIN;
  return static_cast<std::int64_t>(d);
}

bool Number::boolValue() const {
  if (auto v = std::get_if<double>(&value)) return *v != 0.0;
  return int64Value() != 0;
}

double Number::doubleValue() const {
  if (auto v = std::get_if<std::int64_t>(&value)) return static_cast<double>(*v);
  if (auto v = std::get_if<std::uint64_t>(&value)) return static_cast<double>(*v);
  return std::get<double>(value);
}

// ---- Data, Date ----

ClassChain Data::archiveClassChain() const { return chainOf(isMutable, "NSMutableData", "NSData"); }

void Data::encodeWithCoder(Archiver& coder) const {
  coder.encodeInt32(static_cast<std::int32_t>(bytes.size()));
  coder.encodeByteArray(bytes);
}

ClassChain Date::archiveClassChain() const { return rootedChain({{"NSDate", 0}}); }

void Date::encodeWithCoder(Archiver& coder) const { coder.encodeDouble(seconds); }

// ---- TimeZone, CalendarDate ----

ClassChain TimeZone::archiveClassChain() const {
  if (isLocal) return rootedChain({{"NSLocalTimeZone", 0}, {"NSTimeZone", 0}});
  return rootedChain({{"NSTimeZone", 0}});
}

void TimeZone::encodeWithCoder(Archiver& coder) const { coder.encodeObject(String::make(name)); }

ClassChain CalendarDate::archiveClassChain() const { return rootedChain({{"NSCalendarDate", 0}, {"NSDate", 0}}); }

void CalendarDate::encodeWithCoder(Archiver& coder) const {
  coder.encodeDouble(seconds);
  coder.encodeObject(zone);
  coder.encodeObject(String::make(format));
}

// ---- URL, Null ----

ClassChain URL::archiveClassChain() const { return rootedChain({{"NSURL", 0}}); }

void URL::encodeWithCoder(Archiver& coder) const {
  coder.encodeChar(base ? 1 : 0);
  if (base) coder.encodeObject(base);
  coder.encodeObject(String::make(relative));
}

ClassChain Null::archiveClassChain() const { return rootedChain({{"NSNull", 0}}); }

void Null::encodeWithCoder(Archiver&) const {}

// ---- collections ----

ClassChain Array::archiveClassChain() const { return chainOf(isMutable, "NSMutableArray", "NSArray"); }

void Array::encodeWithCoder(Archiver& coder) const {
  coder.encodeInt32(static_cast<std::int32_t>(items.size()));
  for (const auto& item : items) coder.encodeObject(item);
}

ClassChain Set::archiveClassChain() const { return chainOf(isMutable, "NSMutableSet", "NSSet"); }

void Set::encodeWithCoder(Archiver& coder) const {
  coder.encodeUInt32(static_cast<std::uint32_t>(items.size()));
  for (const auto& item : items) coder.encodeObject(item);
}

ClassChain Dictionary::archiveClassChain() const { return chainOf(isMutable, "NSMutableDictionary", "NSDictionary"); }

void Dictionary::encodeWithCoder(Archiver& coder) const {
  coder.encodeInt32(static_cast<std::int32_t>(entries.size()));
  for (const auto& [key, value] : entries) {
    coder.encodeObject(key);
    coder.encodeObject(value);
  }
}

namespace {

// The text of a string key, read without taking a reference to the key.
const std::string* keyText(const ObjectRef& key) {
  if (!key) return nullptr;
  const Object& object = *key;
  if (typeid(object) != typeid(String)) return nullptr;
  return &static_cast<const String&>(object).text;
}

}  // namespace

ObjectRef Dictionary::get(std::string_view key) const {
  for (const auto& [k, v] : entries) {
    if (const std::string* text = keyText(k); text && *text == key) return v;
  }
  return nullptr;
}

void Dictionary::set(std::string_view key, ObjectRef value) {
  for (auto& [k, v] : entries) {
    if (const std::string* text = keyText(k); text && *text == key) {
      v = std::move(value);
      return;
    }
  }
  entries.emplace_back(String::make(std::string(key)), std::move(value));
}

// ---- GenericObject, CycleReference ----

void GenericObject::encodeWithCoder(Archiver& coder) const {
  for (const Group& group : groups) coder.encodeGroup(group);
}

ClassChain CycleReference::archiveClassChain() const { return {}; }

// The archiver writes a cycle reference as a reference; it has no contents.
void CycleReference::encodeWithCoder(Archiver&) const {}

}  // namespace halyard
