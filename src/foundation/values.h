#pragma once
// The Foundation value classes that archives carry: strings, numbers, data,
// dates, calendar dates, time zones, URLs, null, arrays, sets, dictionaries,
// and a generic object for classes this program does not know.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/object.h"
#include "foundation/typed_value.h"

namespace halyard {

// NSString / NSMutableString, held as UTF-8.
class String final : public Object {
 public:
  explicit String(std::string text, bool isMutable = false) : text(std::move(text)), isMutable(isMutable) {}
  static std::shared_ptr<String> make(std::string text, bool isMutable = false) {
    return std::make_shared<String>(std::move(text), isMutable);
  }
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  // The platform's conversions, used when a number is read from a string.
  std::int32_t intValue() const;
  bool boolValue() const;
  double doubleValue() const;

  std::string text;
  bool isMutable;
};

// NSNumber: a scalar with the C type code it was made from ('c' for a
// boolean, 'i', 'q', 'f', 'd', and any other numeric code read from a file).
class Number final : public Object {
 public:
  using Storage = std::variant<std::int64_t, std::uint64_t, double>;
  Number(char type, Storage value) : type(type), value(value) {}

  static std::shared_ptr<Number> fromBool(bool v) { return std::make_shared<Number>('c', std::int64_t{v ? 1 : 0}); }
  static std::shared_ptr<Number> fromInt32(std::int32_t v) { return std::make_shared<Number>('i', std::int64_t{v}); }
  static std::shared_ptr<Number> fromInt64(std::int64_t v) { return std::make_shared<Number>('q', v); }
  static std::shared_ptr<Number> fromFloat(float v) { return std::make_shared<Number>('f', double{v}); }
  static std::shared_ptr<Number> fromDouble(double v) { return std::make_shared<Number>('d', v); }

  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::int64_t int64Value() const;
  std::int32_t intValue() const { return static_cast<std::int32_t>(static_cast<std::uint64_t>(int64Value())); }
  bool boolValue() const;
  double doubleValue() const;

  char type;
  Storage value;
};

// NSData / NSMutableData.
class Data final : public Object {
 public:
  explicit Data(std::string bytes, bool isMutable = false) : bytes(std::move(bytes)), isMutable(isMutable) {}
  static std::shared_ptr<Data> make(std::string bytes, bool isMutable = false) {
    return std::make_shared<Data>(std::move(bytes), isMutable);
  }
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::string bytes;
  bool isMutable;
};

// NSDate: an instant, seconds since 2001-01-01 00:00:00 UTC, fractions kept.
class Date final : public Object {
 public:
  explicit Date(double seconds) : seconds(seconds) {}
  static std::shared_ptr<Date> make(double seconds) { return std::make_shared<Date>(seconds); }
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  double seconds;
};

// NSTimeZone: a named zone, or the user's own zone (archived as
// NSLocalTimeZone). tzfile bytes found in an archive are kept as read.
class TimeZone final : public Object {
 public:
  explicit TimeZone(std::string name, bool isLocal = false) : name(std::move(name)), isLocal(isLocal) {}
  static std::shared_ptr<TimeZone> make(std::string name, bool isLocal = false) {
    return std::make_shared<TimeZone>(std::move(name), isLocal);
  }
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::string name;
  bool isLocal;
  std::optional<std::string> tzfile;
};

// NSCalendarDate: an instant with the time zone and format it was made with.
// The zone is kept so the date is written back as it was read; civil fields
// are always read in the zone the caller passes.
class CalendarDate final : public Object {
 public:
  static constexpr const char* kDefaultFormat = "%Y-%m-%d %H:%M:%S %z";
  CalendarDate(double seconds, std::shared_ptr<TimeZone> zone, std::string format = kDefaultFormat)
      : seconds(seconds), zone(std::move(zone)), format(std::move(format)) {}
  static std::shared_ptr<CalendarDate> make(double seconds, std::shared_ptr<TimeZone> zone) {
    return std::make_shared<CalendarDate>(seconds, std::move(zone));
  }
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  double seconds;
  std::shared_ptr<TimeZone> zone;  // may be null when an archive held none
  std::string format;
};

// NSURL: a URL string, optionally relative to a base URL.
class URL final : public Object {
 public:
  explicit URL(std::string relative, std::shared_ptr<URL> base = nullptr)
      : relative(std::move(relative)), base(std::move(base)) {}
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::string relative;
  std::shared_ptr<URL> base;
};

// NSNull: the object that stands for "nothing" inside collections.
class Null final : public Object {
 public:
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;
};

// NSArray / NSMutableArray. Elements may be null only when a file held nil.
class Array final : public Object {
 public:
  explicit Array(std::vector<ObjectRef> items = {}, bool isMutable = false)
      : items(std::move(items)), isMutable(isMutable) {}
  static std::shared_ptr<Array> make(std::vector<ObjectRef> items = {}, bool isMutable = false) {
    return std::make_shared<Array>(std::move(items), isMutable);
  }
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::vector<ObjectRef> items;
  bool isMutable;
};

// NSSet / NSMutableSet, kept in the order read (or inserted).
class Set final : public Object {
 public:
  explicit Set(std::vector<ObjectRef> items = {}, bool isMutable = false)
      : items(std::move(items)), isMutable(isMutable) {}
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::vector<ObjectRef> items;
  bool isMutable;
};

// NSDictionary / NSMutableDictionary. Entries keep their order: the order
// read from a file, or the insertion order, which is the order written.
class Dictionary final : public Object {
 public:
  using Entry = std::pair<ObjectRef, ObjectRef>;
  explicit Dictionary(bool isMutable = false) : isMutable(isMutable) {}
  static std::shared_ptr<Dictionary> make(bool isMutable = false) { return std::make_shared<Dictionary>(isMutable); }

  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  // The value under a string key, or null.
  ObjectRef get(std::string_view key) const;
  // Sets the value under a string key, replacing an existing entry in place.
  void set(std::string_view key, ObjectRef value);

  std::vector<Entry> entries;
  bool isMutable;
};

// An object of a class this program has no coder for: its class chain and
// its contents exactly as read, so it can be shown and written back.
class GenericObject final : public Object {
 public:
  GenericObject(ClassChain chain, std::vector<Group> groups) : chain(std::move(chain)), groups(std::move(groups)) {}
  ClassChain archiveClassChain() const override { return chain; }
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  ClassChain chain;
  std::vector<Group> groups;
};

// A reference, found inside an object, back to an object whose decoding was
// still in progress (a cycle). It refers to its target weakly so that a cyclic
// graph does not keep itself alive; it is written back as a reference.
class CycleReference final : public Object {
 public:
  ClassChain archiveClassChain() const override;
  void encodeWithCoder(Archiver& coder) const override;
  void writeJson(JsonWriter& json) const override;

  std::weak_ptr<Object> target;
  std::size_t objectNumber = 0;
};

}  // namespace halyard
