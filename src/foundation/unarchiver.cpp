#include "foundation/unarchiver.h"

#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>

#include "foundation/type_encoding.h"
#include "foundation/typedstream_format.h"
#include "foundation/values.h"

namespace halyard {
namespace {

using namespace typedstream;

// Longest class chain accepted; real hierarchies are a handful deep.
constexpr std::size_t kMaxClassChain = 64;
// Array types whose elements take no bytes ('!', empty structs) could make a
// reader loop without consuming input; their counts are capped.
constexpr std::size_t kMaxEmptyElements = 1024;

}  // namespace

Unarchiver::Unarchiver(std::string_view bytes, const ClassRegistry& registry)
    : bytes_(bytes), registry_(registry), copyBudget_(16 * bytes.size() + 65536) {}

Unarchiver::~Unarchiver() = default;

Unarchiver::ClassEntry& Unarchiver::classAt(std::size_t number) { return classes_[objects_[number].index]; }

Status Unarchiver::chargeChainCopy(const ClassChain& chain, std::size_t at) {
  std::size_t bytes = 0;
  for (const ClassInfo& info : chain) bytes += info.name.size() + sizeof(ClassInfo);
  return chargeCopy(bytes, at);
}

Status Unarchiver::chargeCopy(std::size_t bytes, std::size_t at) {
  if (bytes > copyBudget_)
    return failureAt(at, "archive expands beyond a sane size (too many references to long strings)");
  copyBudget_ -= bytes;
  return success();
}

Status Unarchiver::readHeader() {
  auto version = readByte();
  if (!version) return version.error();
  if (*version != 4) return failureAt(0, "unsupported archive version " + std::to_string(*version) + " (expected 4)");
  auto signature = readUnsharedString();
  if (!signature) return signature.error();
  const auto* text = std::get_if<std::string>(&*signature);
  if (!text || *text != "streamtyped") {
    if (text && *text == "typedstream") return failureAt(1, "big-endian archives are not supported");
    return failureAt(1, "not an archive: missing the \"streamtyped\" signature");
  }
  const std::size_t systemAt = pos_;
  auto system = readInteger(false);
  if (!system) return system.error();
  if (*system != 1000) return failureAt(systemAt, "unsupported system version " + std::to_string(*system));
  return success();
}

Expected<ObjectRef> Unarchiver::unarchiveRootObject(std::string_view bytes, const ClassRegistry& registry) {
  Unarchiver reader(bytes, registry);
  if (auto header = reader.readHeader(); !header) return header.error();
  auto root = reader.decodeObject();
  if (!root) return root.error();
  if (!reader.atEnd()) return reader.failure("unexpected data after the root object");
  reader.resolveCycles();
  return root;
}

Expected<std::vector<Group>> Unarchiver::unarchiveGroups(std::string_view bytes, const ClassRegistry& registry) {
  Unarchiver reader(bytes, registry);
  if (auto header = reader.readHeader(); !header) return header.error();
  std::vector<Group> groups;
  while (!reader.atEnd()) {
    auto group = reader.decodeGroup();
    if (!group) return group.error();
    groups.push_back(std::move(*group));
  }
  reader.resolveCycles();
  return groups;
}

void Unarchiver::resolveCycles() {
  // Making a lazy object can add cycles, hence the index.
  for (std::size_t i = 0; i < cycles_.size(); ++i) {
    const auto cycle = cycles_[i];
    const Entry& entry = objects_[cycle->objectNumber];
    if (isLazy(entry.kind)) cycle->target = makeLazyObject(cycle->objectNumber);
    else if (entry.kind == Entry::Kind::Object) cycle->target = decodedObjects_[entry.index];
  }
}

// ---- primitive reads ----

Expected<std::uint8_t> Unarchiver::readByte() {
  if (pos_ >= bytes_.size()) return failure("unexpected end of data");
  return static_cast<std::uint8_t>(bytes_[pos_++]);
}

Expected<std::int8_t> Unarchiver::peekHead() const {
  if (pos_ >= bytes_.size()) return failure("unexpected end of data");
  return static_cast<std::int8_t>(bytes_[pos_]);
}

bool Unarchiver::atObjectEnd() const {
  return pos_ < bytes_.size() && static_cast<std::int8_t>(bytes_[pos_]) == kTagEnd;
}

Expected<std::string_view> Unarchiver::readRawBytes(std::size_t length) {
  if (length > bytes_.size() - pos_) {
    return failure("length " + std::to_string(length) + " runs past the end of the data");
  }
  const std::string_view out = bytes_.substr(pos_, length);
  pos_ += length;
  return out;
}

Expected<std::int64_t> Unarchiver::readInteger(bool isUnsigned) {
  auto head = readByte();
  if (!head) return head.error();
  return readIntegerAfterHead(static_cast<std::int8_t>(*head), isUnsigned);
}

Expected<std::int64_t> Unarchiver::readIntegerAfterHead(std::int8_t head, bool isUnsigned) {
  auto readLittleEndian = [this](int size) -> Expected<std::uint64_t> {
    auto raw = readRawBytes(static_cast<std::size_t>(size));
    if (!raw) return raw.error();
    std::uint64_t bits = 0;
    for (int i = size - 1; i >= 0; --i)
      bits = (bits << 8) | static_cast<std::uint8_t>((*raw)[static_cast<std::size_t>(i)]);
    return bits;
  };
  if (head >= kSmallestLiteral) {
    return isUnsigned ? std::int64_t{static_cast<std::uint8_t>(head)} : std::int64_t{head};
  }
  switch (head) {
    case kTagInt16: {
      auto bits = readLittleEndian(2);
      if (!bits) return bits.error();
      return isUnsigned ? std::int64_t(static_cast<std::uint16_t>(*bits))
                        : std::int64_t(static_cast<std::int16_t>(*bits));
    }
    case kTagInt32: {
      auto bits = readLittleEndian(4);
      if (!bits) return bits.error();
      return isUnsigned ? std::int64_t(static_cast<std::uint32_t>(*bits))
                        : std::int64_t(static_cast<std::int32_t>(*bits));
    }
    case kTagInt64: {
      auto bits = readLittleEndian(8);
      if (!bits) return bits.error();
      return static_cast<std::int64_t>(*bits);
    }
    default:
      char tag[8];
      std::snprintf(tag, sizeof tag, "0x%02x", static_cast<unsigned>(static_cast<std::uint8_t>(head)));
      return failureAt(pos_ - 1, std::string("expected an integer, found tag ") + tag);
  }
}

Expected<double> Unarchiver::readReal(bool isFloat) {
  auto head = readByte();
  if (!head) return head.error();
  if (static_cast<std::int8_t>(*head) != kTagReal) {
    auto integer = readIntegerAfterHead(static_cast<std::int8_t>(*head), false);
    if (!integer) return integer.error();
    return static_cast<double>(*integer);
  }
  auto raw = readRawBytes(isFloat ? 4 : 8);
  if (!raw) return raw.error();
  if (isFloat) {
    float f;
    std::memcpy(&f, raw->data(), sizeof f);
    return double{f};
  }
  double d;
  std::memcpy(&d, raw->data(), sizeof d);
  return d;
}

Expected<std::size_t> Unarchiver::readReferenceNumber(std::int8_t head) {
  const std::size_t at = pos_ - 1;
  auto value = readIntegerAfterHead(head, false);
  if (!value) return value.error();
  // A number past every table cannot name anything; refusing it here also
  // keeps the bias from overflowing an 8-byte number near its top.
  if (*value < -kReferenceBias || *value > std::numeric_limits<std::int32_t>::max()) {
    return failureAt(at, "invalid reference number");
  }
  return static_cast<std::size_t>(*value + kReferenceBias);
}

Expected<std::optional<std::string_view>> Unarchiver::readUnsharedText() {
  auto head = readByte();
  if (!head) return head.error();
  if (static_cast<std::int8_t>(*head) == kTagNil) return std::optional<std::string_view>{};
  const std::size_t at = pos_ - 1;
  auto length = readIntegerAfterHead(static_cast<std::int8_t>(*head), false);
  if (!length) return length.error();
  if (*length < 0) return failureAt(at, "negative string length");
  if (static_cast<std::uint64_t>(*length) > bytes_.size() - pos_) {
    return failure("length " + std::to_string(*length) + " runs past the end of the data");
  }
  const std::string_view text = bytes_.substr(pos_, static_cast<std::size_t>(*length));
  pos_ += text.size();
  return std::optional<std::string_view>{text};
}

Expected<TypedValue::Storage> Unarchiver::readUnsharedString() {
  auto text = readUnsharedText();
  if (!text) return text.error();
  if (!*text) return TypedValue::Storage{Nil{}};
  return TypedValue::Storage{std::string(**text)};
}

Expected<std::optional<std::size_t>> Unarchiver::readSharedStringIndex() {
  auto head = peekHead();
  if (!head) return head.error();
  if (*head == kTagNil) {
    ++pos_;
    return std::optional<std::size_t>{};
  }
  if (*head == kTagNew) {
    ++pos_;
    auto text = readUnsharedString();
    if (!text) return text.error();
    auto* literal = std::get_if<std::string>(&*text);
    if (!literal) return failure("nil literal in the string table");
    addSharedString(std::move(*literal));
    return std::optional<std::size_t>{sharedStrings_.size() - 1};
  }
  const std::size_t at = pos_;
  ++pos_;
  auto number = readReferenceNumber(*head);
  if (!number) return number.error();
  if (*number >= sharedStrings_.size()) {
    return failureAt(at, "reference to string " + std::to_string(*number) + " which is not yet defined");
  }
  return std::optional<std::size_t>{*number};
}

Expected<TypedValue::Storage> Unarchiver::readSharedString() {
  const std::size_t at = pos_;
  const std::size_t known = sharedStrings_.size();
  auto index = readSharedStringIndex();
  if (!index) return index.error();
  if (!*index) return TypedValue::Storage{Nil{}};
  const std::string& text = sharedStrings_[**index];
  if (**index < known) {
    if (auto charged = chargeCopy(text.size(), at); !charged) return charged.error();
  }
  return TypedValue::Storage{text};
}

// A C string of the object table: nil (a null pointer), a new one, or a
// reference to one read before. The pointer is good until the next C string
// is read.
Expected<const std::string*> Unarchiver::readCStringEntry() {
  auto head = readByte();
  if (!head) return head.error();
  const std::size_t at = pos_ - 1;
  const auto tag = static_cast<std::int8_t>(*head);
  if (tag == kTagNil) return nullptr;
  if (tag == kTagNew) {
    objects_.push_back(Entry{Entry::Kind::CString, static_cast<std::uint32_t>(cStrings_.size())});
    cStrings_.emplace_back();
    auto body = readSharedString();
    if (!body) return body.error();
    auto* text = std::get_if<std::string>(&*body);
    if (!text) return failureAt(at, "C string with a nil body");
    cStrings_.back() = std::move(*text);
    return &cStrings_.back();
  }
  auto number = readReferenceNumber(tag);
  if (!number) return number.error();
  if (*number >= objects_.size() || objects_[*number].kind != Entry::Kind::CString) {
    return failureAt(at, "reference " + std::to_string(*number) + " does not name a C string defined before");
  }
  const std::string& text = cStrings_[objects_[*number].index];
  if (auto charged = chargeCopy(text.size(), at); !charged) return charged.error();
  return &text;
}

Expected<TypedValue::Storage> Unarchiver::readCString() {
  auto text = readCStringEntry();
  if (!text) return text.error();
  if (!*text) return TypedValue::Storage{Nil{}};
  return TypedValue::Storage{**text};
}

// ---- classes and objects ----

std::shared_ptr<const ClassChain> Unarchiver::chainStartingAt(std::size_t number) {
  ClassEntry& entry = classAt(number);
  if (!entry.chainFromHere) {
    auto chain = std::make_shared<ClassChain>();
    for (std::optional<std::size_t> next = number; next; next = classAt(*next).superclass) {
      chain->push_back(classAt(*next).info);
    }
    entry.chainFromHere = std::move(chain);
    if (auto head = oneByteReferenceTo(number)) builtClasses_[*head] = objects_[number].index + 1;
  }
  return entry.chainFromHere;
}

// A chain is literal classes up to nil, or up to a reference to a class read
// before. The chain from each class upwards is built once and shared, so the
// many objects of one class do not each copy it.
Expected<std::shared_ptr<const ClassChain>> Unarchiver::readClassChain() {
  ClassChain fresh;
  const std::size_t firstOfChain = objects_.size();
  std::optional<std::size_t> previousNew;  // the last literal class, whose superclass comes next
  for (;;) {
    auto head = readByte();
    if (!head) return head.error();
    const std::size_t at = pos_ - 1;
    const auto tag = static_cast<std::int8_t>(*head);
    if (tag == kTagNil) break;
    if (tag == kTagNew) {
      if (fresh.size() >= kMaxClassChain) return failureAt(at, "class chain too long");
      const std::size_t number = objects_.size();
      objects_.push_back(Entry{Entry::Kind::Class, static_cast<std::uint32_t>(classes_.size())});
      classes_.emplace_back();
      if (previousNew) classAt(*previousNew).superclass = number;
      previousNew = number;
      auto name = readSharedString();
      if (!name) return name.error();
      const auto* text = std::get_if<std::string>(&*name);
      if (!text) return failureAt(at, "class with a nil name");
      auto version = readInteger(false);
      if (!version) return version.error();
      classAt(number).info = ClassInfo{*text, *version};
      classAt(number).shape = shapeOfClass(*text);
      classAt(number).isMutable = text->starts_with("NSMutable");
      fresh.push_back(classAt(number).info);
      continue;
    }
    auto number = readReferenceNumber(tag);
    if (!number) return number.error();
    if (*number >= objects_.size() || objects_[*number].kind != Entry::Kind::Class) {
      return failureAt(at, "reference " + std::to_string(*number) + " does not name a class defined before");
    }
    if (*number >= firstOfChain) return failureAt(at, "class chain refers back into itself");
    auto known = chainStartingAt(*number);
    if (fresh.empty()) return known;
    if (fresh.size() + known->size() > kMaxClassChain) return failureAt(at, "class chain too long");
    if (auto charged = chargeChainCopy(*known, at); !charged) return charged.error();
    classAt(*previousNew).superclass = *number;
    fresh.insert(fresh.end(), known->begin(), known->end());
    break;
  }
  return std::shared_ptr<const ClassChain>(std::make_shared<ClassChain>(std::move(fresh)));
}

Expected<TypedValue::Storage> Unarchiver::readClass() {
  auto head = peekHead();
  if (!head) return head.error();
  if (*head == kTagNil) {
    ++pos_;
    return TypedValue::Storage{Nil{}};
  }
  const std::size_t at = pos_;
  auto chain = readClassChain();
  if (!chain) return chain.error();
  if (auto charged = chargeChainCopy(**chain, at); !charged) return charged.error();
  return TypedValue::Storage{ClassChain(**chain)};
}

Expected<ObjectRef> Unarchiver::readObject() {
  auto head = readByte();
  if (!head) return head.error();
  const std::size_t at = pos_ - 1;
  const auto tag = static_cast<std::int8_t>(*head);
  if (tag == kTagNil) return ObjectRef{};
  if (tag == kTagNew) return readNewObject();
  auto number = readReferenceNumber(tag);
  if (!number) return number.error();
  return objectAtEntry(*number, at);
}

Expected<ObjectRef> Unarchiver::objectAtEntry(std::size_t number, std::size_t at) {
  if (number >= objects_.size()) {
    return failureAt(at, "reference to object " + std::to_string(number) + " which is not yet defined");
  }
  const Entry& entry = objects_[number];
  if (entry.kind == Entry::Kind::Object) return decodedObjects_[entry.index];
  if (isLazy(entry.kind)) return makeLazyObject(number);
  if (entry.kind == Entry::Kind::ObjectInProgress) {
    auto cycle = std::make_shared<CycleReference>();
    cycle->objectNumber = number;
    cycles_.push_back(cycle);
    return ObjectRef{cycle};
  }
  return failureAt(at, "reference " + std::to_string(number) + " does not name an object");
}

Expected<ObjectRef> Unarchiver::readNewObject() {
  const std::size_t at = pos_ - 1;
  if (depth_ >= kMaxDepth) return failureAt(at, "objects nested too deeply");
  const std::size_t number = objects_.size();
  objects_.push_back(Entry{Entry::Kind::ObjectInProgress, static_cast<std::uint32_t>(decodedObjects_.size())});
  decodedObjects_.emplace_back();
  auto chain = readClassChain();
  if (!chain) return chain.error();
  if ((*chain)->empty()) return failureAt(at, "object with a nil class");
  ++depth_;
  auto object = decodeObjectContents(**chain);
  --depth_;
  if (!object) return object.error();
  objects_[number].kind = Entry::Kind::Object;
  decodedObjects_[objects_[number].index] = *object;
  return object;
}

Expected<ObjectRef> Unarchiver::decodeObjectContents(const ClassChain& chain) {
  if (const ClassDecoder* decoder = registry_.find(chain.front().name)) {
    auto object = (*decoder)(*this, chain);
    if (!object) return object.error();
    // Contents a newer writer added after what the coder reads are skipped.
    if (auto skipped = skipRemainingGroups(); !skipped) return skipped.error();
    return object;
  }
  if (auto charged = chargeChainCopy(chain, pos_); !charged) return charged.error();
  std::vector<Group> groups;
  while (!atObjectEnd()) {
    auto group = decodeGroup();
    if (!group) return group.error();
    groups.push_back(std::move(*group));
  }
  ++pos_;  // the end mark
  return ObjectRef{std::make_shared<GenericObject>(chain, std::move(groups))};
}

Status Unarchiver::skipRemainingGroups() {
  while (!atObjectEnd()) {
    auto group = decodeGroup();
    if (!group) return group.error();
  }
  ++pos_;
  return success();
}

// ---- typed values ----

// A number of an integer code written in one byte: a raw byte for "c", "C"
// and "B", a one-byte literal for the wider codes. Nearly every count, flag
// and schedule type is one.
std::optional<Number::Storage> Unarchiver::numberInPlace(char code, std::uint8_t byte) {
  const auto head = static_cast<std::int8_t>(byte);
  switch (code) {
    case 'c':
      return Number::Storage{std::int64_t{head}};
    case 'C':
    case 'B':
      return Number::Storage{std::uint64_t{byte}};
    case 'S':
    case 'I':
    case 'L':
    case 'Q':
      if (head < kSmallestLiteral) return std::nullopt;
      return Number::Storage{std::uint64_t{byte}};
    case 's':
    case 'i':
    case 'l':
    case 'q':
      if (head < kSmallestLiteral) return std::nullopt;
      return Number::Storage{std::int64_t{head}};
    default:
      return std::nullopt;
  }
}

// One value of a one-code numeric type, held as a number holds it.
Expected<Number::Storage> Unarchiver::readNumberValue(char code) {
  if (code == 'f' || code == 'd') {
    auto v = readReal(code == 'f');
    if (!v) return v.error();
    return Number::Storage{*v};
  }
  auto head = readByte();
  if (!head) return head.error();
  if (auto number = numberInPlace(code, *head)) return *number;
  const bool isUnsigned = isUnsignedCode(code);
  auto v = readIntegerAfterHead(static_cast<std::int8_t>(*head), isUnsigned);
  if (!v) return v.error();
  return isUnsigned ? Number::Storage{static_cast<std::uint64_t>(*v)} : Number::Storage{*v};
}

Expected<TypedValue::Storage> Unarchiver::readValue(std::string_view type) {
  const char code = type.front();
  switch (code) {
    case 'c':
    case 'C':
    case 'B':
    case 's':
    case 'i':
    case 'l':
    case 'q':
    case 'S':
    case 'I':
    case 'L':
    case 'Q':
    case 'f':
    case 'd': {
      auto v = readNumberValue(code);
      if (!v) return v.error();
      return std::visit([](auto n) { return TypedValue::Storage{n}; }, *v);
    }
    case '+':
      return readUnsharedString();
    case '*':
      return readCString();
    case ':':
    case '%':
      return readSharedString();
    case '#':
      return readClass();
    case '@': {
      auto object = readObject();
      if (!object) return object.error();
      return TypedValue::Storage{std::move(*object)};
    }
    case '[':
      return readArray(type);
    case '{':
      return readStruct(type);
    case '!':
      return TypedValue::Storage{Nil{}};
    default:
      return failure(std::string("unknown type code '") + code + "'");
  }
}

Expected<TypedValue::Storage> Unarchiver::readArray(std::string_view type) {
  auto array = parseArrayType(type);
  if (!array) return failure(array.error().message);
  const std::size_t remaining = bytes_.size() - pos_;
  if (array->element == "c" || array->element == "C") {
    auto raw = readRawBytes(array->count);
    if (!raw) return raw.error();
    return TypedValue::Storage{std::string(*raw)};
  }
  const std::size_t elementSize = minimumEncodedSize(array->element, remaining + 1);
  const std::size_t limit = elementSize == 0 ? kMaxEmptyElements : remaining / elementSize;
  if (array->count > limit) {
    return failure("array count " + std::to_string(array->count) + " exceeds the data that remains");
  }
  if (depth_ >= kMaxDepth) return failure("values nested too deeply");
  ++depth_;
  std::vector<TypedValue> items;
  items.reserve(array->count);
  for (std::size_t i = 0; i < array->count; ++i) {
    auto item = readValue(array->element);
    if (!item) {
      --depth_;
      return item.error();
    }
    items.push_back(TypedValue{array->element, std::move(*item)});
  }
  --depth_;
  return TypedValue::Storage{std::move(items)};
}

Expected<TypedValue::Storage> Unarchiver::readStruct(std::string_view type) {
  auto fields = parseStructFields(type);
  if (!fields) return failure(fields.error().message);
  if (depth_ >= kMaxDepth) return failure("values nested too deeply");
  ++depth_;
  std::vector<TypedValue> items;
  for (const std::string& field : *fields) {
    auto item = readValue(field);
    if (!item) {
      --depth_;
      return item.error();
    }
    items.push_back(TypedValue{field, std::move(*item)});
  }
  --depth_;
  return TypedValue::Storage{std::move(items)};
}

}  // namespace halyard
