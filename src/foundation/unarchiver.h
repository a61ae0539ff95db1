#pragma once
// Unarchiver: reads the platform's sequential archive ("typedstream"). Every
// input is treated as hostile: lengths and counts are checked against the
// bytes that remain before anything is allocated, nesting is limited, every
// reference is checked, and each failure is an Error with the byte offset.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/class_registry.h"
#include "foundation/expected.h"
#include "foundation/typed_value.h"

namespace halyard {

class CycleReference;

class Unarchiver {
 public:
  // Deepest nesting of objects, arrays and structs accepted.
  static constexpr std::size_t kMaxDepth = 200;

  explicit Unarchiver(std::string_view bytes, const ClassRegistry& registry = ClassRegistry::foundation());
  ~Unarchiver();
  Unarchiver(const Unarchiver&) = delete;
  Unarchiver& operator=(const Unarchiver&) = delete;

  // Checks the header; must succeed before anything else is read.
  Status readHeader();

  // The root object of an archive made by `archivedDataWithRootObject:`.
  static Expected<ObjectRef> unarchiveRootObject(std::string_view bytes,
                                                 const ClassRegistry& registry = ClassRegistry::foundation());
  // Every top-level group of an archive.
  static Expected<std::vector<Group>> unarchiveGroups(std::string_view bytes,
                                                      const ClassRegistry& registry = ClassRegistry::foundation());

  // For coders: one group that must hold exactly one object.
  Expected<ObjectRef> decodeObject();
  // For coders: one group that must have exactly the type string `type`.
  Expected<TypedValue> decodeValueOfType(std::string_view type);
  // Any one group.
  Expected<Group> decodeGroup();

  Expected<std::int64_t> decodeInt(std::string_view type);
  Expected<double> decodeDouble();
  // The contents of a "[Nc]" group.
  Expected<std::string> decodeByteArray();

  bool atEnd() const { return pos_ >= bytes_.size(); }
  // True when the next byte closes the current object's contents.
  bool atObjectEnd() const;
  std::size_t offset() const { return pos_; }
  Error failure(std::string reason) const { return makeError(std::move(reason), pos_); }
  Error failureAt(std::size_t offset, std::string reason) const { return makeError(std::move(reason), offset); }

 private:
  struct Entry;       // an object table entry
  struct ClassEntry;  // a class of the object table

  Expected<std::uint8_t> readByte();
  Expected<std::int8_t> peekHead() const;
  Expected<std::int64_t> readInteger(bool isUnsigned);
  Expected<std::int64_t> readIntegerAfterHead(std::int8_t head, bool isUnsigned);
  Expected<double> readReal(bool isFloat);
  Expected<std::string> readRawBytes(std::size_t length);
  Expected<TypedValue::Storage> readUnsharedString();
  // The table index of the shared string at the head; absent for nil.
  Expected<std::optional<std::size_t>> readSharedStringIndex();
  Expected<TypedValue::Storage> readSharedString();
  Expected<TypedValue::Storage> readCString();
  Expected<std::size_t> readReferenceNumber(std::int8_t head);
  Expected<std::shared_ptr<const ClassChain>> readClassChain();
  std::shared_ptr<const ClassChain> chainStartingAt(std::size_t number);
  ClassEntry& classAt(std::size_t number);
  Expected<TypedValue::Storage> readClass();
  Expected<ObjectRef> readObject();
  Expected<ObjectRef> readNewObject();
  Expected<TypedValue::Storage> readValue(std::string_view type);
  Expected<TypedValue::Storage> readArray(std::string_view type);
  Expected<TypedValue::Storage> readStruct(std::string_view type);
  Expected<Group> readGroupWithTypes(std::string types);
  Expected<ObjectRef> decodeObjectContents(const ClassChain& chain);
  Status skipRemainingGroups();
  void resolveCycles();
  // Guards against archives that reference a long string many times: the
  // text copied out of the tables may not exceed a fixed multiple of the input.
  Status chargeCopy(std::size_t bytes, std::size_t at);
  Status chargeChainCopy(const ClassChain& chain, std::size_t at);

  std::string_view bytes_;
  const ClassRegistry& registry_;
  std::size_t pos_ = 0;
  std::size_t depth_ = 0;
  std::size_t copyBudget_ = 0;
  std::vector<std::string> sharedStrings_;
  std::vector<Entry> objects_;
  std::vector<ObjectRef> decodedObjects_;
  std::vector<ClassEntry> classes_;
  std::vector<std::string> cStrings_;
  std::vector<std::shared_ptr<CycleReference>> cycles_;
};

}  // namespace halyard
