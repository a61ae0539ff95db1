#pragma once
// Archiver: writes the platform's sequential archive ("typedstream", version
// 4, little-endian) byte for byte as the platform does. Objects are written
// once and referenced afterwards; shared strings, classes and C strings are
// numbered in the two tables of the format.
//
//   Archiver archiver;
//   archiver.encodeRootObject(dictionary);
//   std::string bytes = archiver.takeBytes();

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "foundation/typed_value.h"

namespace halyard {

class Archiver {
 public:
  Archiver();

  // The archive of one root object, as `archivedDataWithRootObject:` makes it.
  static std::string archivedData(const ObjectRef& root);

  void encodeRootObject(const ObjectRef& object) { encodeObject(object); }
  // One group "@" holding the object (null writes nil).
  void encodeObject(const ObjectRef& object);
  // One group holding one value of its own type.
  void encodeValue(const TypedValue& value);
  // One group of several values whose types together make `types`.
  void encodeGroup(const Group& group);

  // Conveniences for the scalar groups that Foundation classes write.
  void encodeInt32(std::int32_t v) { encodeValue({"i", std::int64_t{v}}); }
  void encodeUInt32(std::uint32_t v) { encodeValue({"I", std::uint64_t{v}}); }
  void encodeDouble(double v) { encodeValue({"d", v}); }
  void encodeChar(std::int8_t v) { encodeValue({"c", std::int64_t{v}}); }
  void encodeCString(std::string text) { encodeValue({"*", std::move(text)}); }
  void encodeUnsharedString(std::string text) { encodeValue({"+", std::move(text)}); }
  // "[Nc]": raw bytes, the way NSData writes its contents.
  void encodeByteArray(const std::string& bytes);

  const std::string& bytes() const { return out_; }
  std::string takeBytes() { return std::move(out_); }

 private:
  void writeByte(std::uint8_t b) { out_.push_back(static_cast<char>(b)); }
  void writeInteger(std::int64_t v);
  void writeUnsignedInteger(std::uint64_t v);
  void writeReal(double v, bool isFloat);
  void writeRawString(std::string_view s);
  void writeReference(std::size_t number);
  // Writes the reference to `s` when `table` already numbers it; false when
  // `s` is new there.
  bool writeKnownReference(const std::unordered_map<std::string, std::size_t>& table, std::string_view s);
  void writeSharedString(std::string_view s);
  void writeCString(std::string_view s);
  void writeClassChain(const ClassChain& chain);
  void writeObject(const ObjectRef& object);
  void writeTypedValue(std::string_view type, const TypedValue::Storage& value);

  std::string out_;
  std::unordered_map<std::string, std::size_t> sharedStrings_;
  std::unordered_map<const Object*, std::size_t> objects_;
  // Objects written so far stay alive until the archiver goes, so that a
  // temporary made while encoding never shares an address with a later one.
  std::vector<ObjectRef> written_;
  std::unordered_map<std::string, std::size_t> classes_;
  std::unordered_map<std::string, std::size_t> cStrings_;
  std::size_t nextObjectNumber_ = 0;
};

}  // namespace halyard
