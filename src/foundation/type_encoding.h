#pragma once
// Objective-C type encodings as the archive format uses them: a type string
// such as "iI" or "{CGSize=dd}" split into its single types, and the parts of
// array and struct types.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/expected.h"

namespace halyard {

// Deepest nesting of array and struct types accepted in one type string.
constexpr std::size_t kMaxTypeNesting = 32;

// Splits a type string into its single types ("iI" -> {"i", "I"}).
Expected<std::vector<std::string>> splitTypeString(std::string_view types);

struct ArrayType {
  std::size_t count;
  std::string element;
};
// "[12c]" -> {12, "c"}.
Expected<ArrayType> parseArrayType(std::string_view type);

// "{CGSize=dd}" -> {"d", "d"}; the struct's name is not needed to read it.
Expected<std::vector<std::string>> parseStructFields(std::string_view type);

// The fewest bytes a value of this single type can take in an archive
// (0 for '!' and for empty structs), saturated at `cap`.
std::size_t minimumEncodedSize(std::string_view type, std::size_t cap);

// True for the codes read as integers: s S i I l L q Q, and c C B.
bool isIntegerCode(char code);
bool isUnsignedCode(char code);

}  // namespace halyard
