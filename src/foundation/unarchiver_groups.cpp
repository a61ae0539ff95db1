// The unarchiver's group reads for coders: a group's type string, then the
// values it announces, as the decoders of the archived classes ask for them.

#include "foundation/type_encoding.h"
#include "foundation/typedstream_format.h"
#include "foundation/unarchiver.h"

namespace halyard {

using namespace typedstream;

namespace {

// A count or flag from a number value or a typed value of an integer code.
template <class Storage>
std::optional<std::int64_t> integerIn(const Storage& storage) {
  if (auto v = std::get_if<std::int64_t>(&storage)) return *v;
  if (auto v = std::get_if<std::uint64_t>(&storage)) return static_cast<std::int64_t>(*v);
  return std::nullopt;
}

}  // namespace

Expected<Group> Unarchiver::readGroupWithTypes(std::string types) {
  auto split = splitTypeString(types);
  if (!split) return failure(split.error().message);
  Group group{std::move(types), {}};
  for (const std::string& type : *split) {
    auto value = readValue(type);
    if (!value) return value.error();
    group.values.push_back(TypedValue{type, std::move(*value)});
  }
  return group;
}

Expected<Group> Unarchiver::decodeGroup() {
  const std::size_t at = pos_;
  auto types = readSharedString();
  if (!types) return types.error();
  auto* text = std::get_if<std::string>(&*types);
  if (!text) return failureAt(at, "group with a nil type string");
  return readGroupWithTypes(std::move(*text));
}

// Coders ask for one value of a one-code type far more often than anything
// else; such a group is read straight from the table's type string, without
// copying it or building a group.
// Nearly every type string is a one-byte reference to a string read before;
// that case is settled without the general reader.
Expected<bool> Unarchiver::readGroupTypeIf(std::string_view type) {
  const std::size_t at = pos_;
  if (at < bytes_.size()) {
    const auto head = static_cast<std::int8_t>(bytes_[at]);
    const auto number = static_cast<std::size_t>(head + kReferenceBias);
    if (head >= kSmallestLiteral && number < sharedStrings_.size()) {
      const std::string& known = sharedStrings_[number];
      const bool same =
          known.size() == type.size() && (type.size() == 1 ? known[0] == type[0] : std::string_view(known) == type);
      if (!same) return false;
      ++pos_;
      return true;
    }
  }
  const std::size_t known = sharedStrings_.size();
  auto index = readSharedStringIndex();
  if (!index) return index.error();
  if (*index && sharedStrings_[**index] == type) return true;
  pos_ = at;
  forgetSharedStringsFrom(known);
  return false;
}

Expected<TypedValue> Unarchiver::decodeValueOfType(std::string_view type) {
  const std::size_t at = pos_;
  if (atEnd()) return failure("unexpected end of data");
  if (atObjectEnd())
    return failureAt(at, "expected a group of type \"" + std::string(type) + "\", found the end of the object");
  if (type.size() == 1) {
    auto found = readGroupTypeIf(type);
    if (!found) return found.error();
    if (*found) {
      auto value = readValue(type);
      if (!value) return value.error();
      return TypedValue{std::string(type), std::move(*value)};
    }
  }
  auto group = decodeGroup();
  if (!group) return group.error();
  if (group->types != type || group->values.size() != 1) {
    return failureAt(at, "expected a group of type \"" + std::string(type) + "\", found \"" + group->types + "\"");
  }
  return std::move(group->values.front());
}

Expected<ObjectRef> Unarchiver::decodeObject() {
  auto value = decodeValueOfType("@");
  if (!value) return value.error();
  return std::get<ObjectRef>(value->value);
}

// Counts and flags: nearly always a group of one integer code whose type is
// a one-byte reference, read without building a typed value.
Expected<std::int64_t> Unarchiver::decodeInt(std::string_view type) {
  if (type.size() == 1 && isIntegerCode(type[0]) && !atEnd() && !atObjectEnd()) {
    auto found = readGroupTypeIf(type);
    if (!found) return found.error();
    if (*found) {
      auto value = readNumberValue(type[0]);
      if (!value) return value.error();
      return *integerIn(*value);
    }
  }
  auto value = decodeValueOfType(type);
  if (!value) return value.error();
  if (auto integer = integerIn(value->value)) return *integer;
  return failure("expected an integer of type \"" + std::string(type) + "\"");
}

// A date's instant: nearly always a "d" group whose type is a one-byte
// reference, read without building a typed value.
Expected<double> Unarchiver::decodeDouble() {
  if (!atEnd() && !atObjectEnd()) {
    auto found = readGroupTypeIf("d");
    if (!found) return found.error();
    if (*found) return readReal(false);
  }
  auto value = decodeValueOfType("d");
  if (!value) return value.error();
  return std::get<double>(value->value);
}

Expected<std::string> Unarchiver::decodeByteArray() {
  const std::size_t at = pos_;
  auto group = decodeGroup();
  if (!group) return group.error();
  if (group->values.size() != 1) return failureAt(at, "expected one byte array");
  auto* bytes = std::get_if<std::string>(&group->values.front().value);
  const std::string& type = group->values.front().type;
  if (!bytes || type.size() < 3 || type.front() != '[' ||
      (type[type.size() - 2] != 'c' && type[type.size() - 2] != 'C')) {
    return failureAt(at, "expected a byte array, found \"" + group->types + "\"");
  }
  return std::move(*bytes);
}

}  // namespace halyard
