#pragma once
// Unarchiver: reads the platform's sequential archive ("typedstream"). Every
// input is treated as hostile: lengths and counts are checked against the
// bytes that remain before anything is allocated, nesting is limited, every
// reference is checked, and each failure is an Error with the byte offset.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/class_registry.h"
#include "foundation/expected.h"
#include "foundation/object_view.h"
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
  // A collection's element count, checked to be neither negative nor huge.
  Expected<std::size_t> decodeCount(std::string_view type);
  // The contents of a string object, as it lies in the archive (a nil
  // string reads as empty), and of a number object.
  Expected<std::string_view> decodeStringContents();
  Expected<NumberValue> decodeNumberContents();

  // One "@" group, strings and numbers as views.
  Expected<ObjectView> decodeObjectView();
  // Whether the next group has exactly the type string `type`; reads nothing.
  Expected<bool> nextGroupHasType(std::string_view type);
  // Gets each entry of a dictionary whose keys are strings.
  using EntryVisitor = std::function<void(std::string_view key, const ObjectView& value)>;
  // For coders of classes archived as one dictionary: one "@" group. When it
  // holds a dictionary, each entry with a string key goes to `visit` (strings
  // and numbers as views that make no objects) and the answer has kind
  // Dictionary; otherwise the answer is the view of what the group holds.
  // Objects read as views take their places in the object table all the
  // same, and are made only if something later refers to them.
  Expected<ObjectView> decodeDictionaryEntries(const EntryVisitor& visit);

  bool atEnd() const { return pos_ >= bytes_.size(); }
  // True when the next byte closes the current object's contents.
  bool atObjectEnd() const;
  std::size_t offset() const { return pos_; }
  Error failure(std::string reason) const { return makeError(std::move(reason), pos_); }
  Error failureAt(std::size_t offset, std::string reason) const { return makeError(std::move(reason), offset); }

 private:
  // An entry of the object table, kept small because hostile archives can
  // make one for every few bytes: its kind and where it lives in the table
  // of that kind.
  struct Entry {
    // An object read as a view is kept lazy, made only when referred to: a
    // string by the offset of its contents (read again then), a number in
    // lazyNumbers_, a dictionary in lazyDictionaries_.
    enum class Kind : std::uint8_t {
      ObjectInProgress,
      Object,
      LazyString,
      LazyMutableString,
      LazyNumber,
      LazyDictionary,
      Class,
      CString
    } kind;
    std::uint32_t index;
  };
  // The Foundation classes that views read without making an object.
  enum class Shape : std::uint8_t { Other, String, Number, Dictionary };
  static Shape shapeOfClass(std::string_view className);
  // A class of the object table.
  struct ClassEntry {
    ClassInfo info;
    Shape shape = Shape::Other;
    bool isMutable = false;                           // an NSMutable... class
    std::optional<std::size_t> superclass;            // the object number of its superclass
    std::shared_ptr<const ClassChain> chainFromHere;  // its chain, once built
  };
  // A dictionary read as views: its entries are object table entries (kNoEntry
  // for nil), key then value, in lazyMembers_.
  struct LazyDictionary {
    std::uint32_t firstMember;
    std::uint32_t memberCount;
    bool isMutable;
  };
  static bool isLazy(Entry::Kind kind) {
    return kind >= Entry::Kind::LazyString && kind <= Entry::Kind::LazyDictionary;
  }
  // A view and the object table entry it stands for (kNoEntry for nil).
  struct ViewRead {
    ObjectView view;
    std::uint32_t entry;
  };
  static constexpr std::uint32_t kNoEntry = UINT32_MAX;

  Expected<std::uint8_t> readByte();
  Expected<std::int8_t> peekHead() const;
  Expected<std::int64_t> readInteger(bool isUnsigned);
  Expected<std::int64_t> readIntegerAfterHead(std::int8_t head, bool isUnsigned);
  Expected<double> readReal(bool isFloat);
  // The next `length` bytes where they lie.
  Expected<std::string_view> readRawBytes(std::size_t length);
  Expected<TypedValue::Storage> readUnsharedString();
  // An unshared string's bytes where they lie; absent for nil.
  Expected<std::optional<std::string_view>> readUnsharedText();
  // Reads the type string of the next group when it is exactly `type`;
  // otherwise reads nothing and answers false.
  Expected<bool> readGroupTypeIf(std::string_view type);
  // The table index of the shared string at the head; absent for nil.
  Expected<std::optional<std::size_t>> readSharedStringIndex();
  Expected<TypedValue::Storage> readSharedString();
  Expected<TypedValue::Storage> readCString();
  Expected<const std::string*> readCStringEntry();
  Expected<std::size_t> readReferenceNumber(std::int8_t head);
  Expected<std::shared_ptr<const ClassChain>> readClassChain();
  std::shared_ptr<const ClassChain> chainStartingAt(std::size_t number);
  ClassEntry& classAt(std::size_t number);
  Expected<TypedValue::Storage> readClass();
  Expected<ObjectRef> readObject();
  Expected<ObjectRef> readNewObject();
  Expected<TypedValue::Storage> readValue(std::string_view type);
  Expected<Number::Storage> readNumberValue(char code);  // code: one of "cCBsilqSILQfd"
  static std::optional<Number::Storage> numberInPlace(char code, std::uint8_t byte);
  Expected<TypedValue::Storage> readArray(std::string_view type);
  Expected<TypedValue::Storage> readStruct(std::string_view type);
  Expected<Group> readGroupWithTypes(std::string types);
  Expected<ObjectRef> decodeObjectContents(const ClassChain& chain);
  // The object an entry of the table stands for, made now if it was read as
  // a view; a reference into an object still being read is a cycle.
  Expected<ObjectRef> objectAtEntry(std::size_t number, std::size_t at);
  ObjectRef makeLazyObject(std::size_t number);
  ObjectRef memberObject(std::uint32_t entry);
  Status readObjectGroupType();
  Expected<ViewRead> readObjectView(const EntryVisitor* visit);
  Expected<ViewRead> readReferencedView(std::int8_t head, std::size_t at, const EntryVisitor* visit);
  Expected<ViewRead> readNewObjectView(std::size_t at, const EntryVisitor* visit);
  // The class at `at` when it is a one-byte reference to a class whose chain
  // is built (nearly every object after the first of its class).
  const ClassEntry* knownClassAt(std::size_t at) const;
  // The common forms of a dictionary member, read straight from the bytes
  // (unarchiver_plain.cpp) into a fresh `out`; false, with nothing read, for
  // any other form.
  bool readPlainMember(ViewRead& out);
  // The one-character type string ("@", "+", "*", a number's code) that the
  // byte at `at` names as a one-byte reference; 0 for anything else.
  char oneCharTypeAt(std::size_t at) const { return at < bytes_.size() ? oneCharTypes_[std::uint8_t(bytes_[at])] : 0; }
  bool readPlainString(std::size_t at, bool isMutable, ViewRead& out);
  bool readPlainNumber(std::size_t at, ViewRead& out);
  Expected<ObjectView> readContentsAsView(std::size_t number, Shape shape, bool isMutable, const ClassChain& chain,
                                          const EntryVisitor* visit);
  ObjectView lazyScalarView(const Entry& entry);
  Expected<ObjectView> readDictionaryMembers(std::size_t number, bool isMutable, const EntryVisitor& visit);
  // Stands the entry `number` for a lazy object; its slot among the decoded
  // objects is given back when nothing was decoded after it.
  void keepAsLazy(std::size_t number, Entry::Kind kind, std::size_t index);
  // The text of a lazy string, read again from its contents.
  std::string_view lazyText(const Entry& entry);
  // The string table grows and shrinks only through these, which keep
  // oneCharTypes_ in step with it (unarchiver_plain.cpp, with the tables).
  static std::optional<std::uint8_t> oneByteReferenceTo(std::size_t index);
  void addSharedString(std::string text);
  void forgetSharedStringsFrom(std::size_t count);
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
  // By head byte: the one-character shared string that byte refers to, so
  // the plain lane tests a group's type with one load.
  std::array<char, 256> oneCharTypes_{};
  // By head byte: 1 + the index in classes_ of the class that byte refers to
  // once its chain is built; 0 for anything else.
  std::array<std::uint32_t, 256> builtClasses_{};
  std::vector<Entry> objects_;
  std::vector<ObjectRef> decodedObjects_;
  std::vector<ClassEntry> classes_;
  std::vector<std::string> cStrings_;
  std::vector<std::shared_ptr<CycleReference>> cycles_;
  std::vector<NumberValue> lazyNumbers_;
  std::vector<LazyDictionary> lazyDictionaries_;
  std::vector<std::uint32_t> lazyMembers_;
};

}  // namespace halyard
