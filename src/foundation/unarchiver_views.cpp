// The unarchiver's views: strings, numbers and dictionaries read where they
// lie, for coders that know the shape of what they read. Every object read
// this way still takes its number in the object table (as a lazy entry), so
// a later reference to it finds it, made then.

#include "foundation/type_encoding.h"
#include "foundation/unarchiver.h"

namespace halyard {
namespace {

constexpr std::int8_t kTagNew = -124;  // 0x84
constexpr std::int8_t kTagNil = -123;  // 0x85
constexpr std::int8_t kSmallestLiteral = -110;
constexpr std::int64_t kReferenceBias = 110;

bool isMutableClass(const std::string& className) { return className.rfind("NSMutable", 0) == 0; }

}  // namespace

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
  auto code = readCString();
  if (!code) return code.error();
  const auto* type = std::get_if<std::string>(&*code);
  if (!type || type->size() != 1 || !(isIntegerCode((*type)[0]) || (*type)[0] == 'f' || (*type)[0] == 'd')) {
    return failureAt(at, "number with a type that is not a numeric code");
  }
  auto typed = readGroupTypeIf(*type);
  if (!typed) return typed.error();
  if (!*typed) return decodeValueOfType(*type).error();
  auto value = readValue(*type);
  if (!value) return value.error();
  NumberValue number{(*type)[0], {}};
  if (const auto* v = std::get_if<std::int64_t>(&*value)) number.value = *v;
  else if (const auto* u = std::get_if<std::uint64_t>(&*value)) number.value = *u;
  else number.value = std::get<double>(*value);
  return number;
}

Expected<ObjectView> Unarchiver::decodeObjectView() {
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
  const bool lazyScalar = *number < objects_.size() && objects_[*number].kind == Entry::Kind::Lazy &&
                          lazies_[objects_[*number].index].kind != ObjectView::Kind::Dictionary;
  if (lazyScalar) {
    const LazyObject& lazy = lazies_[objects_[*number].index];
    view.kind = lazy.kind;
    view.isMutable = lazy.isMutable;
    view.text = lazy.text;
    view.number = lazy.number;
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

const Unarchiver::ClassEntry* Unarchiver::knownClassAtHead() const {
  if (pos_ >= bytes_.size()) return nullptr;
  const auto head = static_cast<std::int8_t>(bytes_[pos_]);
  if (head < kSmallestLiteral) return nullptr;
  const auto number = static_cast<std::size_t>(head + kReferenceBias);
  if (number >= objects_.size() || objects_[number].kind != Entry::Kind::Class) return nullptr;
  const ClassEntry& entry = classes_[objects_[number].index];
  return entry.chainFromHere ? &entry : nullptr;
}

Expected<Unarchiver::ViewRead> Unarchiver::readNewObjectView(std::size_t at, const EntryVisitor* visit) {
  if (depth_ >= kMaxDepth) return failureAt(at, "objects nested too deeply");
  const std::size_t number = objects_.size();
  objects_.push_back(Entry{Entry::Kind::ObjectInProgress, static_cast<std::uint32_t>(decodedObjects_.size())});
  decodedObjects_.emplace_back();
  std::shared_ptr<const ClassChain> chain;
  Shape shape = Shape::Other;
  if (const ClassEntry* known = knownClassAtHead()) {
    ++pos_;
    chain = known->chainFromHere;
    shape = known->shape;
  } else {
    auto read = readClassChain();
    if (!read) return read.error();
    chain = std::move(*read);
    if (!chain->empty()) shape = shapeOfClass(chain->front().name);
  }
  if (chain->empty()) return failureAt(at, "object with a nil class");
  ++depth_;
  auto view = readContentsAsView(number, shape, *chain, visit);
  --depth_;
  if (!view) return view.error();
  return ViewRead{std::move(*view), static_cast<std::uint32_t>(number)};
}

Expected<ObjectView> Unarchiver::readContentsAsView(std::size_t number, Shape shape, const ClassChain& chain,
                                                    const EntryVisitor* visit) {
  const bool isMutable = isMutableClass(chain.front().name);
  const std::uint32_t slot = objects_[number].index;
  switch (shape) {
    case Shape::String: {
      auto text = decodeStringContents();
      if (!text) return text.error();
      if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
      keepAsLazy(number, LazyObject{ObjectView::Kind::String, isMutable, slot, *text, {}});
      return ObjectView{ObjectView::Kind::String, isMutable, *text, {}, nullptr};
    }
    case Shape::Number: {
      auto value = decodeNumberContents();
      if (!value) return value.error();
      if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
      keepAsLazy(number, LazyObject{ObjectView::Kind::Number, false, slot, {}, *value});
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
    if (auto group = readObjectGroupType(); !group) return group.error();
    auto member = readObjectView(nullptr);
    if (!member) return member.error();
    lazyMembers_.push_back(member->entry);
    if (i % 2 == 0) key = std::move(member->view);
    else if (key.kind == ObjectView::Kind::String) visit(key.text, std::move(member->view));
  }
  if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
  LazyObject lazy{ObjectView::Kind::Dictionary, isMutable, objects_[number].index, {}, {}};
  lazy.firstMember = firstMember;
  lazy.memberCount = static_cast<std::uint32_t>(objects);
  keepAsLazy(number, lazy);
  ObjectView view;
  view.kind = ObjectView::Kind::Dictionary;
  view.isMutable = isMutable;
  return view;
}

void Unarchiver::keepAsLazy(std::size_t number, LazyObject lazy) {
  objects_[number] = Entry{Entry::Kind::Lazy, static_cast<std::uint32_t>(lazies_.size())};
  lazies_.push_back(lazy);
}

// ---- making what was read as a view ----

// The members of a lazy dictionary are objects or lazy strings and numbers:
// a dictionary referred to while others are read is made at once.
ObjectRef Unarchiver::makeLazyObject(std::size_t number) {
  const LazyObject lazy = lazies_[objects_[number].index];
  ObjectRef object;
  switch (lazy.kind) {
    case ObjectView::Kind::String: object = String::make(std::string(lazy.text), lazy.isMutable); break;
    case ObjectView::Kind::Number: object = std::make_shared<Number>(lazy.number.type, lazy.number.value); break;
    default: {
      auto dictionary = Dictionary::make(lazy.isMutable);
      for (std::uint32_t i = 0; i + 1 < lazy.memberCount; i += 2) {
        dictionary->entries.emplace_back(memberObject(lazyMembers_[lazy.firstMember + i]),
                                         memberObject(lazyMembers_[lazy.firstMember + i + 1]));
      }
      object = dictionary;
    }
  }
  objects_[number] = Entry{Entry::Kind::Object, lazy.slot};
  decodedObjects_[lazy.slot] = object;
  return object;
}

ObjectRef Unarchiver::memberObject(std::uint32_t entry) {
  if (entry == kNoEntry) return nullptr;
  auto object = objectAtEntry(entry, pos_);
  return object ? *object : nullptr;
}

}  // namespace halyard
