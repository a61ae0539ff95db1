// The unarchiver's plain lane: the members of a dictionary read as views
// (a scheduled item's keys and values) nearly always take one of two forms,
// read here straight from the bytes:
//   string: "@" 0x84 <class> "+" <length> <text> 0x86
//   number: "@" 0x84 <class> "*" <C string> <code> <value> 0x86
// where "@", "+", "*", <code> are one-byte references to type strings read
// before, <class> a one-byte reference to a string or number class whose
// chain is built, <C string> a one-byte reference to a C string of one
// integer code, and <length> and <value> one-byte literals. Each form leaves
// the tables as the general reader would; anything else, malformed input
// included, is left to the general reader with nothing read, so its checks
// and messages stay the only ones. The tables that let it test a type or a
// class with one load are kept here too.

#include <algorithm>

#include "foundation/typedstream_format.h"
#include "foundation/unarchiver.h"

namespace halyard {

using namespace typedstream;

namespace {

bool isLiteral(std::int8_t head) { return head >= kSmallestLiteral; }

}  // namespace

// The head byte of a one-byte reference to table entry `index`, when there is one.
std::optional<std::uint8_t> Unarchiver::oneByteReferenceTo(std::size_t index) {
  if (index > static_cast<std::size_t>(127 - kSmallestLiteral)) return std::nullopt;
  return static_cast<std::uint8_t>(static_cast<std::int64_t>(index) - kReferenceBias);
}

void Unarchiver::addSharedString(std::string text) {
  if (auto head = oneByteReferenceTo(sharedStrings_.size()); head && text.size() == 1) oneCharTypes_[*head] = text[0];
  sharedStrings_.push_back(std::move(text));
}

void Unarchiver::forgetSharedStringsFrom(std::size_t count) {
  for (std::size_t index = count; index < sharedStrings_.size(); ++index) {
    if (auto head = oneByteReferenceTo(index)) oneCharTypes_[*head] = 0;
  }
  sharedStrings_.resize(std::min(count, sharedStrings_.size()));
}

bool Unarchiver::readPlainMember(ViewRead& out) {
  if (oneCharTypeAt(pos_) != '@' || depth_ >= kMaxDepth) return false;
  const std::size_t at = pos_ + 1;
  if (at + 1 >= bytes_.size() || static_cast<std::int8_t>(bytes_[at]) != kTagNew) return false;
  const ClassEntry* known = knownClassAt(at + 1);
  if (!known) return false;
  if (known->shape == Shape::String) return readPlainString(at + 2, known->isMutable, out);
  if (known->shape == Shape::Number) return readPlainNumber(at + 2, out);
  return false;
}

// `at` is where the contents start: the "+" group.
bool Unarchiver::readPlainString(std::size_t at, bool isMutable, ViewRead& out) {
  if (oneCharTypeAt(at) != '+' || at + 1 >= bytes_.size() || at > UINT32_MAX) return false;
  const auto length = static_cast<std::int8_t>(bytes_[at + 1]);
  if (length < 0) return false;
  const std::size_t textAt = at + 2, endAt = textAt + static_cast<std::size_t>(length);
  if (endAt >= bytes_.size() || static_cast<std::int8_t>(bytes_[endAt]) != kTagEnd) return false;
  const auto kind = isMutable ? Entry::Kind::LazyMutableString : Entry::Kind::LazyString;
  out.entry = static_cast<std::uint32_t>(objects_.size());
  objects_.push_back(Entry{kind, static_cast<std::uint32_t>(at)});
  out.view.kind = ObjectView::Kind::String;
  out.view.isMutable = isMutable;
  out.view.text = bytes_.substr(textAt, endAt - textAt);
  pos_ = endAt + 1;
  return true;
}

// `at` is where the contents start: the "*" group. Only an integer written
// in one byte takes this lane; anything longer, and every real number, is
// left to the general reader.
bool Unarchiver::readPlainNumber(std::size_t at, ViewRead& out) {
  if (oneCharTypeAt(at) != '*' || at + 4 >= bytes_.size() || copyBudget_ < 1) return false;
  const auto cString = static_cast<std::int8_t>(bytes_[at + 1]);
  const auto cStringNumber = static_cast<std::size_t>(cString + kReferenceBias);
  if (!isLiteral(cString) || cStringNumber >= objects_.size() || objects_[cStringNumber].kind != Entry::Kind::CString) {
    return false;
  }
  const std::string& code = cStrings_[objects_[cStringNumber].index];
  const char c = oneCharTypeAt(at + 2);
  if (code.size() != 1 || code[0] != c || static_cast<std::int8_t>(bytes_[at + 4]) != kTagEnd) return false;
  const auto value = numberInPlace(c, static_cast<std::uint8_t>(bytes_[at + 3]));
  if (!value) return false;
  const NumberValue number{c, *value};
  copyBudget_ -= 1;  // the C string's reference, as the general reader charges it
  out.entry = static_cast<std::uint32_t>(objects_.size());
  objects_.push_back(Entry{Entry::Kind::LazyNumber, static_cast<std::uint32_t>(lazyNumbers_.size())});
  lazyNumbers_.push_back(number);
  out.view.kind = ObjectView::Kind::Number;
  out.view.number = number;
  pos_ = at + 5;
  return true;
}

}  // namespace halyard
