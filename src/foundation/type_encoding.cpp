#include "foundation/type_encoding.h"

#include <charconv>

namespace halyard {
namespace {

constexpr std::string_view kSimpleCodes = "cCBsSiIlLqQfd*+:%#@!";

// Length of the single type starting at `types[start]`, or an error.
Expected<std::size_t> singleTypeLength(std::string_view types, std::size_t start) {
  const char code = types[start];
  if (kSimpleCodes.find(code) != std::string_view::npos) return std::size_t{1};
  if (code != '[' && code != '{') {
    return makeError(std::string("unknown type code '") + code + "' in type string");
  }
  const char close = code == '[' ? ']' : '}';
  std::size_t depth = 0;
  for (std::size_t i = start; i < types.size(); ++i) {
    const char c = types[i];
    if (c == '[' || c == '{') {
      if (++depth > kMaxTypeNesting) return makeError("type string nested too deeply");
    } else if (c == ']' || c == '}') {
      if (depth == 0) return makeError("unbalanced type string");
      if (--depth == 0) {
        if (c != close) return makeError("mismatched bracket in type string");
        return i - start + 1;
      }
    }
  }
  return makeError("unterminated array or struct type");
}

}  // namespace

Expected<std::vector<std::string>> splitTypeString(std::string_view types) {
  if (types.empty()) return makeError("empty type string");
  std::vector<std::string> out;
  std::size_t pos = 0;
  while (pos < types.size()) {
    auto length = singleTypeLength(types, pos);
    if (!length) return length.error();
    out.emplace_back(types.substr(pos, *length));
    pos += *length;
  }
  return out;
}

Expected<ArrayType> parseArrayType(std::string_view type) {
  if (type.size() < 3 || type.front() != '[' || type.back() != ']') return makeError("malformed array type");
  std::string_view inner = type.substr(1, type.size() - 2);
  std::size_t count = 0;
  auto [end, ec] = std::from_chars(inner.data(), inner.data() + inner.size(), count);
  if (ec != std::errc() || end == inner.data()) return makeError("array type without a valid count");
  std::string_view element = inner.substr(static_cast<std::size_t>(end - inner.data()));
  auto parts = splitTypeString(element);
  if (!parts) return parts.error();
  if (parts->size() != 1) return makeError("array type must have exactly one element type");
  return ArrayType{count, std::string(element)};
}

Expected<std::vector<std::string>> parseStructFields(std::string_view type) {
  if (type.size() < 2 || type.front() != '{' || type.back() != '}') return makeError("malformed struct type");
  std::string_view inner = type.substr(1, type.size() - 2);
  // The name runs up to '=' at the outer level; a struct may have no fields.
  std::size_t equals = std::string_view::npos;
  for (std::size_t i = 0; i < inner.size(); ++i) {
    if (inner[i] == '[' || inner[i] == '{') break;
    if (inner[i] == '=') {
      equals = i;
      break;
    }
  }
  std::string_view fields = equals == std::string_view::npos ? std::string_view() : inner.substr(equals + 1);
  if (fields.empty()) return std::vector<std::string>{};
  return splitTypeString(fields);
}

std::size_t minimumEncodedSize(std::string_view type, std::size_t cap) {
  if (type.empty() || type == "!") return 0;
  if (type.front() == '[') {
    auto array = parseArrayType(type);
    if (!array) return 0;
    std::size_t element = minimumEncodedSize(array->element, cap);
    if (element == 0 || array->count == 0) return 0;
    return array->count >= cap / element ? cap : array->count * element;
  }
  if (type.front() == '{') {
    auto fields = parseStructFields(type);
    if (!fields) return 0;
    std::size_t total = 0;
    for (const auto& field : *fields) total = std::min(cap, total + minimumEncodedSize(field, cap));
    return total;
  }
  return 1;
}

bool isUnsignedCode(char code) {
  return code == 'C' || code == 'B' || code == 'S' || code == 'I' || code == 'L' || code == 'Q';
}

bool isIntegerCode(char code) {
  return code == 'c' || code == 's' || code == 'i' || code == 'l' || code == 'q' || isUnsignedCode(code);
}

}  // namespace halyard
