// Decoders of the Foundation classes, as the platform's classes write them.

#include "foundation/class_registry.h"
#include "foundation/unarchiver.h"
#include "foundation/values.h"

namespace halyard {
namespace {

bool isMutableVariant(const ClassChain& chain) { return chain.front().name.rfind("NSMutable", 0) == 0; }

Expected<std::vector<ObjectRef>> decodeObjects(Unarchiver& coder, std::size_t count, std::size_t perElement) {
  std::vector<ObjectRef> items;
  for (std::size_t i = 0; i < count * perElement; ++i) {
    if (coder.atEnd() || coder.atObjectEnd()) {
      return coder.failure("collection ends after " + std::to_string(i) + " of " + std::to_string(count * perElement) +
                           " objects");
    }
    auto item = coder.decodeObject();
    if (!item) return item.error();
    items.push_back(std::move(*item));
  }
  return items;
}

Expected<ObjectRef> decodeString(Unarchiver& coder, const ClassChain& chain) {
  auto text = coder.decodeStringContents();
  if (!text) return text.error();
  return ObjectRef{String::make(std::string(*text), isMutableVariant(chain))};
}

Expected<ObjectRef> decodeNumber(Unarchiver& coder, const ClassChain&) {
  auto number = coder.decodeNumberContents();
  if (!number) return number.error();
  return ObjectRef{std::make_shared<Number>(number->type, number->value)};
}

Expected<ObjectRef> decodeData(Unarchiver& coder, const ClassChain& chain) {
  auto count = coder.decodeCount("i");
  if (!count) return count.error();
  const std::size_t at = coder.offset();
  auto bytes = coder.decodeByteArray();
  if (!bytes) return bytes.error();
  if (bytes->size() != *count) return coder.failureAt(at, "data length does not match its count");
  return ObjectRef{Data::make(std::move(*bytes), isMutableVariant(chain))};
}

Expected<ObjectRef> decodeDate(Unarchiver& coder, const ClassChain&) {
  auto seconds = coder.decodeDouble();
  if (!seconds) return seconds.error();
  return ObjectRef{Date::make(*seconds)};
}

// The zone's name is the first string in its contents, wherever a writer put
// it; tzfile bytes, when present, are the first data.
void findZoneContents(const TypedValue::Storage& value, TimeZone& zone, bool& named) {
  if (auto object = std::get_if<ObjectRef>(&value)) {
    if (auto text = objectAs<String>(*object); text && !named) {
      zone.name = text->text;
      named = true;
    } else if (auto data = objectAs<Data>(*object); data && !zone.tzfile) {
      zone.tzfile = data->bytes;
    }
  } else if (auto items = std::get_if<std::vector<TypedValue>>(&value)) {
    for (const auto& item : *items) findZoneContents(item.value, zone, named);
  }
}

Expected<ObjectRef> decodeTimeZone(Unarchiver& coder, const ClassChain& chain) {
  auto zone = TimeZone::make("", chain.front().name == "NSLocalTimeZone");
  bool named = false;
  while (!coder.atEnd() && !coder.atObjectEnd()) {
    auto isObject = coder.nextGroupHasType("@");
    if (!isObject) return isObject.error();
    if (*isObject) {
      // The common case: the zone's name as a string object, read in place.
      auto object = coder.decodeObjectView();
      if (!object) return object.error();
      if (object->kind != ObjectView::Kind::String || named) {
        findZoneContents(object->object, *zone, named);
      } else {
        zone->name = object->text;
        named = true;
      }
      continue;
    }
    auto group = coder.decodeGroup();
    if (!group) return group.error();
    for (const auto& value : group->values) findZoneContents(value.value, *zone, named);
  }
  return ObjectRef{zone};
}

// The instant, then the zone and the format in either order (writers differ).
Expected<ObjectRef> decodeCalendarDate(Unarchiver& coder, const ClassChain&) {
  auto seconds = coder.decodeDouble();
  if (!seconds) return seconds.error();
  auto date = std::make_shared<CalendarDate>(*seconds, nullptr);
  for (int i = 0; i < 2 && !coder.atEnd() && !coder.atObjectEnd(); ++i) {
    auto object = coder.decodeObjectView();
    if (!object) return object.error();
    if (auto zone = objectAs<TimeZone>(object->object)) date->zone = zone;
    else if (object->kind == ObjectView::Kind::String) date->format = object->text;
  }
  return ObjectRef{date};
}

Expected<ObjectRef> decodeURL(Unarchiver& coder, const ClassChain&) {
  auto relative = coder.decodeInt("c");
  if (!relative) return relative.error();
  std::shared_ptr<URL> base;
  if (*relative != 0) {
    const std::size_t at = coder.offset();
    auto object = coder.decodeObject();
    if (!object) return object.error();
    base = objectAs<URL>(*object);
    if (*object && !base) return coder.failureAt(at, "URL base is not a URL");
  }
  const std::size_t at = coder.offset();
  auto text = coder.decodeObject();
  if (!text) return text.error();
  auto string = objectAs<String>(*text);
  if (*text && !string) return coder.failureAt(at, "URL string is not a string");
  return ObjectRef{std::make_shared<URL>(string ? string->text : std::string(), base)};
}

Expected<ObjectRef> decodeNull(Unarchiver&, const ClassChain&) { return ObjectRef{std::make_shared<Null>()}; }

// NSArray counts its elements as 'i', NSSet as 'I'; the rest is the same.
template <class List>
Expected<ObjectRef> decodeList(Unarchiver& coder, const ClassChain& chain, std::string_view countType) {
  auto count = coder.decodeCount(countType);
  if (!count) return count.error();
  auto items = decodeObjects(coder, *count, 1);
  if (!items) return items.error();
  return ObjectRef{std::make_shared<List>(std::move(*items), isMutableVariant(chain))};
}

Expected<ObjectRef> decodeArray(Unarchiver& coder, const ClassChain& chain) {
  return decodeList<Array>(coder, chain, "i");
}

Expected<ObjectRef> decodeSet(Unarchiver& coder, const ClassChain& chain) { return decodeList<Set>(coder, chain, "I"); }

Expected<ObjectRef> decodeDictionary(Unarchiver& coder, const ClassChain& chain) {
  auto count = coder.decodeCount("i");
  if (!count) return count.error();
  auto items = decodeObjects(coder, *count, 2);
  if (!items) return items.error();
  auto dictionary = Dictionary::make(isMutableVariant(chain));
  for (std::size_t i = 0; i + 1 < items->size(); i += 2) {
    dictionary->entries.emplace_back(std::move((*items)[i]), std::move((*items)[i + 1]));
  }
  return ObjectRef{dictionary};
}

ClassRegistry makeFoundationRegistry() {
  const std::pair<const char*, ClassDecoder> decoders[] = {
      {"NSString", decodeString},
      {"NSMutableString", decodeString},
      {"NSNumber", decodeNumber},
      {"NSData", decodeData},
      {"NSMutableData", decodeData},
      {"NSDate", decodeDate},
      {"NSCalendarDate", decodeCalendarDate},
      {"NSTimeZone", decodeTimeZone},
      {"NSLocalTimeZone", decodeTimeZone},
      {"NSURL", decodeURL},
      {"NSAbsoluteURL", decodeURL},  // the class's old name
      {"NSNull", decodeNull},
      {"NSArray", decodeArray},
      {"NSMutableArray", decodeArray},
      {"NSSet", decodeSet},
      {"NSMutableSet", decodeSet},
      {"NSDictionary", decodeDictionary},
      {"NSMutableDictionary", decodeDictionary},
  };
  ClassRegistry registry;
  for (const auto& [name, decoder] : decoders) registry.add(name, decoder);
  return registry;
}

}  // namespace

const ClassRegistry& ClassRegistry::foundation() {
  static const ClassRegistry registry = makeFoundationRegistry();
  return registry;
}

void ClassRegistry::add(std::string className, ClassDecoder decoder) {
  decoders_[std::move(className)] = std::move(decoder);
}

const ClassDecoder* ClassRegistry::find(std::string_view className) const {
  auto found = decoders_.find(className);
  return found == decoders_.end() ? nullptr : &found->second;
}

}  // namespace halyard
