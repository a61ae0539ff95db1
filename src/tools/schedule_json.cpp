#include "tools/schedule_json.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "foundation/json_writer.h"
#include "tools/iso_time.h"
#include "tools/json_reader.h"

namespace halyard::tools {
namespace {

struct SetField {
  const char* name;
  std::size_t length;
  void (KSScheduledItem::*set)(KSScheduledItem::SetString);
  std::string* (KSScheduledItem::*get)();
};

constexpr SetField kSetFields[] = {
    {"months", 12, &KSScheduledItem::setScheduledMonths, &KSScheduledItem::scheduledMonths},
    {"daysOfMonth", 31, &KSScheduledItem::setScheduledDaysOfMonth, &KSScheduledItem::scheduledDaysOfMonth},
    {"daysOfWeek", 7, &KSScheduledItem::setScheduledDaysOfWeek, &KSScheduledItem::scheduledDaysOfWeek},
    {"hours", 24, &KSScheduledItem::setScheduledHours, &KSScheduledItem::scheduledHours},
    {"minutes", 60, &KSScheduledItem::setScheduledMinutes, &KSScheduledItem::scheduledMinutes},
};

constexpr std::string_view kKnownFields[] = {"description", "active",     "scheduleType", "start",  "months",
                                             "daysOfMonth", "daysOfWeek", "hours",        "minutes"};

class ItemReader {
 public:
  ItemReader(std::size_t number, const cctz::time_zone& zone) : number_(number), zone_(zone) {}

  Status read(const JsonValue& json, KSScheduledItem& item) const {
    if (json.kind != JsonValue::Kind::Object)
      return makeError(where() + "is " + describeKind(json.kind) + ", not an object");
    for (const auto& [name, value] : json.members) {
      if (std::find(std::begin(kKnownFields), std::end(kKnownFields), name) == std::end(kKnownFields)) {
        return fieldError(name, "is not a field of an item");
      }
    }
    if (auto status = readScalars(json, item); !status) return status;
    for (const SetField& field : kSetFields) {
      const JsonValue* value = json.member(field.name);
      if (!value) continue;
      if (auto status = checkSet(field, *value); !status) return status;
      (item.*field.set)(value->text);
    }
    return success();
  }

 private:
  std::string where() const { return "item " + std::to_string(number_) + " "; }
  Error fieldError(std::string_view field, const std::string& what) const {
    return makeError(where() + "field \"" + std::string(field) + "\" " + what);
  }
  Status expect(std::string_view field, const JsonValue& value, JsonValue::Kind kind) const {
    if (value.kind == kind) return success();
    return fieldError(field, std::string("is ") + describeKind(value.kind) + ", not " + describeKind(kind));
  }

  Status readScalars(const JsonValue& json, KSScheduledItem& item) const {
    if (const JsonValue* value = json.member("description")) {
      if (auto status = expect("description", *value, JsonValue::Kind::String); !status) return status;
      item.setDescription(value->text);
    }
    if (const JsonValue* value = json.member("active")) {
      if (auto status = expect("active", *value, JsonValue::Kind::Boolean); !status) return status;
      item.setActive(value->boolean);
    }
    if (const JsonValue* value = json.member("scheduleType")) {
      if (auto status = expect("scheduleType", *value, JsonValue::Kind::Number); !status) return status;
      const double type = value->number;
      if (type != std::floor(type) || type < std::numeric_limits<std::int32_t>::min() ||
          type > std::numeric_limits<std::int32_t>::max()) {
        return fieldError("scheduleType", "is not a whole number");
      }
      item.setScheduleType(static_cast<std::int32_t>(type));
    }
    if (const JsonValue* value = json.member("start")) return readStart(*value, item);
    return success();
  }

  Status readStart(const JsonValue& value, KSScheduledItem& item) const {
    if (value.kind == JsonValue::Kind::Null) {
      item.setStartDate(nullptr);
      return success();
    }
    if (auto status = expect("start", value, JsonValue::Kind::String); !status) return status;
    auto start = parseIsoInstant(value.text, zone_);
    if (!start) return fieldError("start", start.error().describe());
    item.setStartDate(CalendarDate::make(*start, TimeZone::make(zone_.name(), true)));
    return success();
  }

  Status checkSet(const SetField& field, const JsonValue& value) const {
    if (auto status = expect(field.name, value, JsonValue::Kind::String); !status) return status;
    if (value.text.size() != field.length) {
      return fieldError(
          field.name, "has " + std::to_string(value.text.size()) + " characters, not " + std::to_string(field.length));
    }
    if (value.text.find_first_not_of("01") != std::string::npos) {
      return fieldError(field.name, "holds a character other than \"0\" and \"1\"");
    }
    return success();
  }

  std::size_t number_;
  const cctz::time_zone& zone_;
};

}  // namespace

Expected<ScheduleItems> readScheduleJson(std::string_view text, const cctz::time_zone& zone,
                                         const CalendarClock& clock) {
  auto json = parseJson(text);
  if (!json) return json.error();
  if (json->kind != JsonValue::Kind::Array)
    return makeError(std::string("the schedule is ") + describeKind(json->kind) + ", not a list of items");
  ScheduleItems items;
  for (std::size_t i = 0; i < json->elements.size(); ++i) {
    auto item = std::make_shared<KSScheduledItem>(clock());
    if (auto read = ItemReader(i + 1, zone).read(json->elements[i], *item); !read) return read.error();
    items.push_back(std::move(item));
  }
  return items;
}

std::string writeScheduleJson(const ScheduleItems& items, const cctz::time_zone& zone) {
  JsonWriter json;
  json.beginArray();
  for (const auto& item : items) {
    json.beginObject();
    json.key("description").string(item->description().value_or(""));
    json.key("active").boolean(item->active());
    json.key("scheduleType").integer(item->scheduleType());
    json.key("start");
    if (item->startDate()) json.string(formatIsoInstant(item->startDate()->seconds, zone));
    else json.null();
    for (const SetField& field : kSetFields) {
      const std::string* set = ((*item).*field.get)();
      json.key(field.name).string(set ? *set : "");
    }
    json.endObject();
  }
  json.endArray();
  return json.take() + "\n";
}

}  // namespace halyard::tools
