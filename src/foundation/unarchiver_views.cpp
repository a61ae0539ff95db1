// The unarchiver's views: strings, numbers and dictionaries read where they
// lie, for coders that know the shape of what they read. Every object read
// this way still takes its number in the object table (as a lazy entry), so
// a later reference to it finds it, made then.

#include "foundation/type_encoding.h"
#include "foundation/typedstream_format.h"
#include "foundation/unarchiver.h"

namespace halyard {

using namespace typedstream;

Unarchiver::Shape Unarchiver::shapeOfClass(std::string_view className) {
  using namespace std::string_view_literals;
  if (className == "NSString"sv || className == "NSMutableString"sv) return Shape::String;
  if (className == "NSNumber"sv) return Shape::Number;
  if (className == "NSDictionary"sv || className == "NSMutableDictionary"sv) return Shape::Dictionary;
  return Shape::Other;
}

Expected<std::size_t> Unarchiver::decodeCount(std::string_view type) {
  const std::size_t at = pos_;
  auto count = decodeInt(type);
  if (!count) return count.error();
  if (*count < 0) return failureAt(at, "negative element count");
  if (static_cast<std::uint64_t>(*count) > 0x7fffffff) {
    return failureAt(at, "element count " + std::to_string(*count) + " is too large");
  }
  return static_cast<std::size_t>(*count);
}

Expected<std::string_view> Unarchiver::decodeStringContents() {
  auto found = readGroupTypeIf("+");
  if (!found) return found.error();
  if (!*found) return decodeValueOfType("+").error();  // names what stands there instead
  auto text = readUnsharedText();
  if (!text) return text.error();
  return text->value_or(std::string_view());
}

// A number is its type code as a C string, then one group of that type.
Expected<NumberValue> Unarchiver::decodeNumberContents() {
  const std::size_t at = pos_;
  auto found = readGroupTypeIf("*");
  if (!found) return found.error();
  if (!*found) return decodeValueOfType("*").error();
  auto code = readCStringEntry();
  if (!code) return code.error();
  const std::string* type = *code;
  if (!type || type->size() != 1 || !(isIntegerCode((*type)[0]) || (*type)[0] == 'f' || (*type)[0] == 'd')) {
    return failureAt(at, "number with a type that is not a numeric code");
  }
  const char numeric = (*type)[0];
  auto typed = readGroupTypeIf(std::string_view(&numeric, 1));
  if (!typed) return typed.error();
  if (!*typed) return decodeValueOfType(std::string_view(&numeric, 1)).error();
  auto value = readNumberValue(numeric);
  if (!value) return value.error();
  return NumberValue{numeric, *value};
}

Expected<bool> Unarchiver::nextGroupHasType(std::string_view type) {
  const std::size_t at = pos_;
  const std::size_t knownStrings = sharedStrings_.size();
  auto found = readGroupTypeIf(type);
  pos_ = at;
  forgetSharedStringsFrom(knownStrings);
  return found;
}

Expected<ObjectView> Unarchiver::decodeObjectView() {
  if (ViewRead plain{}; readPlainMember(plain)) return std::move(plain.view);
  if (auto group = readObjectGroupType(); !group) return group.error();
  auto read = readObjectView(nullptr);
  if (!read) return read.error();
  return std::move(read->view);
}

Expected<ObjectView> Unarchiver::decodeDictionaryEntries(const EntryVisitor& visit) {
  if (auto group = readObjectGroupType(); !group) return group.error();
  auto read = readObjectView(&visit);
  if (!read) return read.error();
  return std::move(read->view);
}

// Anything but an "@" group here is an error, which the generic reader names.
Status Unarchiver::readObjectGroupType() {
  if (!atEnd() && !atObjectEnd()) {
    auto found = readGroupTypeIf("@");
    if (!found) return found.error();
    if (*found) return success();
  }
  return decodeValueOfType("@").error();
}

// ---- reading views ----

Expected<Unarchiver::ViewRead> Unarchiver::readObjectView(const EntryVisitor* visit) {
  auto head = readByte();
  if (!head) return head.error();
  const std::size_t at = pos_ - 1;
  const auto tag = static_cast<std::int8_t>(*head);
  if (tag == kTagNil) return ViewRead{ObjectView{}, kNoEntry};
  if (tag == kTagNew) return readNewObjectView(at, visit);
  return readReferencedView(tag, at, visit);
}

// A reference to a string shows the text it refers to: its copies count
// against the budget, since the reader will copy the text out.
Expected<Unarchiver::ViewRead> Unarchiver::readReferencedView(std::int8_t head, std::size_t at,
                                                              const EntryVisitor* visit) {
  auto number = readReferenceNumber(head);
  if (!number) return number.error();
  ObjectView view;
  const bool lazyScalar = *number < objects_.size() && isLazy(objects_[*number].kind) &&
                          objects_[*number].kind != Entry::Kind::LazyDictionary;
  if (lazyScalar) {
    view = lazyScalarView(objects_[*number]);
  } else {
    auto object = objectAtEntry(*number, at);
    if (!object) return object.error();
    view = ObjectView::of(std::move(*object));
  }
  if (auto charged = chargeCopy(view.text.size(), at); !charged) return charged.error();
  const auto dictionary = visit ? objectAs<Dictionary>(view.object) : nullptr;
  if (dictionary) {
    for (const auto& [key, value] : dictionary->entries) {
      const ObjectView keyView = ObjectView::of(key);
      if (keyView.kind == ObjectView::Kind::String) (*visit)(keyView.text, ObjectView::of(value));
    }
    view.kind = ObjectView::Kind::Dictionary;
  }
  return ViewRead{std::move(view), static_cast<std::uint32_t>(*number)};
}

const Unarchiver::ClassEntry* Unarchiver::knownClassAt(std::size_t at) const {
  if (at >= bytes_.size()) return nullptr;
  const std::uint32_t known = builtClasses_[static_cast<std::uint8_t>(bytes_[at])];
  return known ? &classes_[known - 1] : nullptr;
}

Expected<Unarchiver::ViewRead> Unarchiver::readNewObjectView(std::size_t at, const EntryVisitor* visit) {
  if (depth_ >= kMaxDepth) return failureAt(at, "objects nested too deeply");
  const std::size_t number = objects_.size();
  objects_.push_back(Entry{Entry::Kind::ObjectInProgress, static_cast<std::uint32_t>(decodedObjects_.size())});
  decodedObjects_.emplace_back();
  std::shared_ptr<const ClassChain> readChain;  // holds a chain read in full
  const ClassChain* chain = nullptr;
  Shape shape = Shape::Other;
  bool isMutable = false;
  if (const ClassEntry* known = knownClassAt(pos_)) {
    ++pos_;
    chain = known->chainFromHere.get();
    shape = known->shape;
    isMutable = known->isMutable;
  } else {
    auto read = readClassChain();
    if (!read) return read.error();
    readChain = std::move(*read);
    chain = readChain.get();
    if (!chain->empty()) {
      shape = shapeOfClass(chain->front().name);
      isMutable = chain->front().name.starts_with("NSMutable");
    }
  }
  if (chain->empty()) return failureAt(at, "object with a nil class");
  ++depth_;
  auto view = readContentsAsView(number, shape, isMutable, *chain, visit);
  --depth_;
  if (!view) return view.error();
  return ViewRead{std::move(*view), static_cast<std::uint32_t>(number)};
}

Expected<ObjectView> Unarchiver::readContentsAsView(std::size_t number, Shape shape, bool isMutable,
                                                    const ClassChain& chain, const EntryVisitor* visit) {
  const std::uint32_t slot = objects_[number].index;
  switch (shape) {
    case Shape::String: {
      const std::size_t contentsAt = pos_;
      auto text = decodeStringContents();
      if (!text) return text.error();
      if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
      if (contentsAt <= UINT32_MAX) {
        keepAsLazy(number, isMutable ? Entry::Kind::LazyMutableString : Entry::Kind::LazyString, contentsAt);
        return ObjectView{ObjectView::Kind::String, isMutable, *text, {}, nullptr};
      }
      // Too far in for the table to find it again: made now.
      objects_[number].kind = Entry::Kind::Object;
      decodedObjects_[slot] = String::make(std::string(*text), isMutable);
      return ObjectView::of(decodedObjects_[slot]);
    }
    case Shape::Number: {
      auto value = decodeNumberContents();
      if (!value) return value.error();
      if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
      keepAsLazy(number, Entry::Kind::LazyNumber, lazyNumbers_.size());
      lazyNumbers_.push_back(*value);
      return ObjectView{ObjectView::Kind::Number, false, {}, *value, nullptr};
    }
    case Shape::Dictionary:
      if (visit) return readDictionaryMembers(number, isMutable, *visit);
      [[fallthrough]];
    case Shape::Other:
      break;
  }
  auto object = decodeObjectContents(chain);
  if (!object) return object.error();
  objects_[number].kind = Entry::Kind::Object;
  decodedObjects_[slot] = *object;
  return ObjectView::of(std::move(*object));
}

// A dictionary's contents: its count, then key and value objects, each in
// its own "@" group.
Expected<ObjectView> Unarchiver::readDictionaryMembers(std::size_t number, bool isMutable, const EntryVisitor& visit) {
  auto count = decodeCount("i");
  if (!count) return count.error();
  const std::size_t objects = *count * 2;
  const auto firstMember = static_cast<std::uint32_t>(lazyMembers_.size());
  ObjectView key;
  for (std::size_t i = 0; i < objects; ++i) {
    if (atEnd() || atObjectEnd()) {
      return failure("collection ends after " + std::to_string(i) + " of " + std::to_string(objects) + " objects");
    }
    ViewRead member{};
    if (!readPlainMember(member)) {
      if (auto group = readObjectGroupType(); !group) return group.error();
      auto read = readObjectView(nullptr);
      if (!read) return read.error();
      member = std::move(*read);
    }
    lazyMembers_.push_back(member.entry);
    if (i % 2 == 0) key = std::move(member.view);
    else if (key.kind == ObjectView::Kind::String) visit(key.text, member.view);
  }
  if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
  keepAsLazy(number, Entry::Kind::LazyDictionary, lazyDictionaries_.size());
  lazyDictionaries_.push_back(LazyDictionary{firstMember, static_cast<std::uint32_t>(objects), isMutable});
  ObjectView view;
  view.kind = ObjectView::Kind::Dictionary;
  view.isMutable = isMutable;
  return view;
}

void Unarchiver::keepAsLazy(std::size_t number, Entry::Kind kind, std::size_t index) {
  if (objects_[number].index + 1 == decodedObjects_.size()) decodedObjects_.pop_back();
  objects_[number] = Entry{kind, static_cast<std::uint32_t>(index)};
}

// ---- making what was read as a view ----

// The contents are read again as they were read the first time; a type
// string they added to the string table then is not added twice.
std::string_view Unarchiver::lazyText(const Entry& entry) {
  const std::size_t resumeAt = pos_;
  const std::size_t knownStrings = sharedStrings_.size();
  pos_ = entry.index;
  auto text = decodeStringContents();
  pos_ = resumeAt;
  forgetSharedStringsFrom(knownStrings);
  return text ? *text : std::string_view();
}

ObjectView Unarchiver::lazyScalarView(const Entry& entry) {
  ObjectView view;
  if (entry.kind == Entry::Kind::LazyNumber) {
    view.kind = ObjectView::Kind::Number;
    view.number = lazyNumbers_[entry.index];
  } else {
    view.kind = ObjectView::Kind::String;
    view.isMutable = entry.kind == Entry::Kind::LazyMutableString;
    view.text = lazyText(entry);
  }
  return view;
}

// The members of a lazy dictionary are objects or lazy strings and numbers:
// a dictionary referred to while others are read is made at once.
ObjectRef Unarchiver::makeLazyObject(std::size_t number) {
  const Entry entry = objects_[number];
  ObjectRef object;
  if (entry.kind == Entry::Kind::LazyDictionary) {
    const LazyDictionary lazy = lazyDictionaries_[entry.index];
    auto dictionary = Dictionary::make(lazy.isMutable);
    for (std::uint32_t i = 0; i + 1 < lazy.memberCount; i += 2) {
      dictionary->entries.emplace_back(memberObject(lazyMembers_[lazy.firstMember + i]),
                                       memberObject(lazyMembers_[lazy.firstMember + i + 1]));
    }
    object = dictionary;
  } else {
    const ObjectView view = lazyScalarView(entry);
    if (view.kind == ObjectView::Kind::Number) object = std::make_shared<Number>(view.number.type, view.number.value);
    else object = String::make(std::string(view.text), view.isMutable);
  }
  objects_[number] = Entry{Entry::Kind::Object, static_cast<std::uint32_t>(decodedObjects_.size())};
  decodedObjects_.push_back(object);
  return object;
}

ObjectRef Unarchiver::memberObject(std::uint32_t entry) {
  if (entry == kNoEntry) return nullptr;
  auto object = objectAtEntry(entry, pos_);
  return object ? *object : nullptr;
}

}  // namespace halyard
