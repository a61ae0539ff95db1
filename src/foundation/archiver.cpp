#include "foundation/archiver.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "foundation/type_encoding.h"
#include "foundation/typedstream_format.h"
#include "foundation/values.h"

namespace halyard {
namespace {

using namespace typedstream;

// Integral values are written in integer form; -0.0, NaN, infinities and
// values outside the 64-bit range keep the IEEE form.
bool hasIntegerForm(double v) {
  if (!std::isfinite(v) || v != std::trunc(v)) return false;
  if (v == 0.0 && std::signbit(v)) return false;
  return v >= -9223372036854775808.0 && v < 9223372036854775808.0;
}

// The writer's type strings come from the coders or from a decoded archive
// that the reader has already checked, so a bad one is the caller's fault:
// it is told rather than written as nothing.
[[noreturn]] void badType(std::string_view type, const Error& why) {
  throw std::invalid_argument("archive writer: bad type string \"" + std::string(type) + "\": " + why.describe());
}

}  // namespace

Archiver::Archiver() {
  writeByte(4);
  writeRawString("streamtyped");
  writeInteger(1000);
}

std::string Archiver::archivedData(const ObjectRef& root) {
  Archiver archiver;
  archiver.encodeRootObject(root);
  return archiver.takeBytes();
}

void Archiver::writeInteger(std::int64_t v) {
  auto appendLittleEndian = [this](std::uint64_t bits, int size) {
    for (int i = 0; i < size; ++i) writeByte(static_cast<std::uint8_t>(bits >> (8 * i)));
  };
  if (v >= kSmallestLiteral && v <= 127) {
    writeByte(static_cast<std::uint8_t>(static_cast<std::int8_t>(v)));
  } else if (v >= std::numeric_limits<std::int16_t>::min() && v <= std::numeric_limits<std::int16_t>::max()) {
    writeByte(tagByte(kTagInt16));
    appendLittleEndian(static_cast<std::uint64_t>(v), 2);
  } else if (v >= std::numeric_limits<std::int32_t>::min() && v <= std::numeric_limits<std::int32_t>::max()) {
    writeByte(tagByte(kTagInt32));
    appendLittleEndian(static_cast<std::uint64_t>(v), 4);
  } else {
    writeByte(tagByte(kTagInt64));
    appendLittleEndian(static_cast<std::uint64_t>(v), 8);
  }
}

void Archiver::writeUnsignedInteger(std::uint64_t v) {
  // The signed ranges decide the form, so that any reader, whatever sign it
  // gives the tagged forms, reads the same value below 2^31 (the counts).
  if (v <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    writeInteger(static_cast<std::int64_t>(v));
    return;
  }
  writeByte(tagByte(kTagInt64));
  for (int i = 0; i < 8; ++i) writeByte(static_cast<std::uint8_t>(v >> (8 * i)));
}

void Archiver::writeReal(double v, bool isFloat) {
  if (hasIntegerForm(v)) {
    writeInteger(static_cast<std::int64_t>(v));
    return;
  }
  writeByte(tagByte(kTagReal));
  if (isFloat) {
    float f = static_cast<float>(v);
    std::uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    for (int i = 0; i < 4; ++i) writeByte(static_cast<std::uint8_t>(bits >> (8 * i)));
  } else {
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    for (int i = 0; i < 8; ++i) writeByte(static_cast<std::uint8_t>(bits >> (8 * i)));
  }
}

void Archiver::writeRawString(std::string_view s) {
  writeInteger(static_cast<std::int64_t>(s.size()));
  out_.append(s);
}

void Archiver::writeReference(std::size_t number) { writeInteger(static_cast<std::int64_t>(number) - kReferenceBias); }

bool Archiver::writeKnownReference(const std::unordered_map<std::string, std::size_t>& table, std::string_view s) {
  auto found = table.find(std::string(s));
  if (found == table.end()) return false;
  writeReference(found->second);
  return true;
}

void Archiver::writeSharedString(std::string_view s) {
  if (writeKnownReference(sharedStrings_, s)) return;
  writeByte(tagByte(kTagNew));
  writeRawString(s);
  sharedStrings_.emplace(std::string(s), sharedStrings_.size());
}

void Archiver::writeCString(std::string_view s) {
  if (writeKnownReference(cStrings_, s)) return;
  writeByte(tagByte(kTagNew));
  cStrings_.emplace(std::string(s), nextObjectNumber_++);
  writeSharedString(s);
}

void Archiver::writeClassChain(const ClassChain& chain) {
  const std::size_t firstOfChain = nextObjectNumber_;
  for (const ClassInfo& info : chain) {
    auto found = classes_.find(info.name);
    if (found != classes_.end()) {
      // A name repeated inside one chain would make the class its own
      // superclass; the chain ends there instead.
      if (found->second >= firstOfChain) break;
      writeReference(found->second);
      return;
    }
    writeByte(tagByte(kTagNew));
    classes_.emplace(info.name, nextObjectNumber_++);
    writeSharedString(info.name);
    writeInteger(info.version);
  }
  writeByte(tagByte(kTagNil));
}

void Archiver::writeObject(const ObjectRef& object) {
  if (auto cycle = objectAs<CycleReference>(object)) {
    // A back-reference to an object being written is a reference by number;
    // one whose target is gone has nothing to point at and is nil.
    auto target = cycle->target.lock();
    auto found = target ? objects_.find(target.get()) : objects_.end();
    if (found == objects_.end()) {
      writeByte(tagByte(kTagNil));
    } else {
      writeReference(found->second);
    }
    return;
  }
  if (!object) {
    writeByte(tagByte(kTagNil));
    return;
  }
  auto found = objects_.find(object.get());
  if (found != objects_.end()) {
    writeReference(found->second);
    return;
  }
  writeByte(tagByte(kTagNew));
  objects_.emplace(object.get(), nextObjectNumber_++);
  written_.push_back(object);
  writeClassChain(object->archiveClassChain());
  object->encodeWithCoder(*this);
  writeByte(tagByte(kTagEnd));
}

void Archiver::writeTypedValue(std::string_view type, const TypedValue::Storage& value) {
  if (type.empty()) badType(type, makeError("empty type string"));
  const char code = type.front();
  auto asSigned = [&]() -> std::int64_t {
    if (auto v = std::get_if<std::int64_t>(&value)) return *v;
    if (auto v = std::get_if<std::uint64_t>(&value)) return static_cast<std::int64_t>(*v);
    if (auto v = std::get_if<double>(&value)) return static_cast<std::int64_t>(*v);
    return 0;
  };
  auto text = [&]() -> const std::string* { return std::get_if<std::string>(&value); };
  switch (code) {
    case 'c':
    case 'C':
    case 'B':
      writeByte(static_cast<std::uint8_t>(asSigned()));
      return;
    case 's':
    case 'i':
    case 'l':
    case 'q':
      writeInteger(asSigned());
      return;
    case 'S':
    case 'I':
    case 'L':
    case 'Q':
      writeUnsignedInteger(static_cast<std::uint64_t>(asSigned()));
      return;
    case 'f':
    case 'd': {
      double v = std::holds_alternative<double>(value) ? std::get<double>(value) : static_cast<double>(asSigned());
      writeReal(v, code == 'f');
      return;
    }
    case '+':
      if (text()) writeRawString(*text());
      else writeByte(tagByte(kTagNil));
      return;
    case '*':
      if (text()) writeCString(*text());
      else writeByte(tagByte(kTagNil));
      return;
    case ':':
    case '%':
      if (text()) writeSharedString(*text());
      else writeByte(tagByte(kTagNil));
      return;
    case '#':
      if (auto chain = std::get_if<ClassChain>(&value); chain && !chain->empty()) writeClassChain(*chain);
      else writeByte(tagByte(kTagNil));
      return;
    case '@':
      writeObject(std::holds_alternative<ObjectRef>(value) ? std::get<ObjectRef>(value) : nullptr);
      return;
    case '[': {
      auto array = parseArrayType(type);
      if (!array) badType(type, array.error());
      if (array->element == "c" || array->element == "C") {
        std::string bytes = text() ? *text() : std::string();
        bytes.resize(array->count, '\0');
        out_.append(bytes);
        return;
      }
      const auto* items = std::get_if<std::vector<TypedValue>>(&value);
      for (std::size_t i = 0; i < array->count; ++i) {
        writeTypedValue(array->element, items && i < items->size() ? (*items)[i].value : TypedValue::Storage{});
      }
      return;
    }
    case '{': {
      auto fields = parseStructFields(type);
      if (!fields) badType(type, fields.error());
      const auto* items = std::get_if<std::vector<TypedValue>>(&value);
      for (std::size_t i = 0; i < fields->size(); ++i) {
        writeTypedValue((*fields)[i], items && i < items->size() ? (*items)[i].value : TypedValue::Storage{});
      }
      return;
    }
    case '!':
      return;  // no data
    default:
      badType(type, makeError("unknown type code"));
  }
}

void Archiver::encodeObject(const ObjectRef& object) {
  writeSharedString("@");
  writeObject(object);
}

void Archiver::encodeValue(const TypedValue& value) {
  // One value, one type: the reader would take "ii" for a group of two. A
  // one-letter type is one type; its letter is checked as it is written.
  if (value.type.size() > 1) {
    auto types = splitTypeString(value.type);
    if (!types) badType(value.type, types.error());
    if (types->size() != 1) badType(value.type, makeError("one value needs exactly one type"));
  }
  writeSharedString(value.type);
  writeTypedValue(value.type, value.value);
}

void Archiver::encodeGroup(const Group& group) {
  writeSharedString(group.types);
  auto types = splitTypeString(group.types);
  if (!types) badType(group.types, types.error());
  for (std::size_t i = 0; i < types->size(); ++i) {
    writeTypedValue((*types)[i], i < group.values.size() ? group.values[i].value : TypedValue::Storage{});
  }
}

void Archiver::encodeByteArray(const std::string& bytes) {
  // Appended piece by piece: "[" + std::to_string(...) trips GCC 12's
  // -Wrestrict false positive at -O3.
  std::string type = "[";
  type += std::to_string(bytes.size());
  type += "c]";
  encodeValue({type, bytes});
}

}  // namespace halyard
