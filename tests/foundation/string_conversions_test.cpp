// The platform's number conversions of a string (intValue, boolValue,
// doubleValue), read when a number arrives as text: leading white space
// skipped, the longest number prefix taken, the rest ignored, 0 or false
// for no number, integers saturated at the 32-bit bounds.

#include <cstdint>

#include <gtest/gtest.h>

#include "foundation/values.h"

namespace halyard {
namespace {

template <typename T, std::size_t N>
void expectConversions(T (String::*convert)() const, const std::pair<const char*, T> (&rows)[N]) {
  for (const auto& [text, expected] : rows) {
    SCOPED_TRACE(std::string("\"") + text + "\"");
    EXPECT_EQ((String(text).*convert)(), expected);
  }
}

TEST(StringConversions, IntValue) {
  const std::pair<const char*, std::int32_t> rows[] = {{"42", 42},
                                                       {"  -17 apples", -17},
                                                       {"+7", 7},
                                                       {"3.9", 3},
                                                       {"", 0},
                                                       {"abc", 0},
                                                       {"2147483647", INT32_MAX},
                                                       {"2147483648", INT32_MAX},
                                                       {"-2147483649", INT32_MIN},
                                                       {"99999999999999999999999", INT32_MAX}};
  expectConversions(&String::intValue, rows);
}

TEST(StringConversions, BoolValue) {
  const std::pair<const char*, bool> rows[] = {
      {"YES", true},  {"yes", true}, {"true", true},  {"T", true},    {" \t y", true},  {"1", true},
      {"-5", true},   {"007", true}, {"+0009", true}, {"NO", false},  {"false", false}, {"0", false},
      {"000", false}, {"", false},   {"  ", false},   {"0x1", false}, {"no 1", false},  {"+-0", false},
  };
  expectConversions(&String::boolValue, rows);
}

TEST(StringConversions, DoubleValue) {
  const std::pair<const char*, double> rows[] = {{"12.5", 12.5}, {"  -3e2 m", -300.0}, {".25", 0.25}, {"7", 7.0},
                                                 {"", 0.0},      {"abc", 0.0}};
  expectConversions(&String::doubleValue, rows);
}

}  // namespace
}  // namespace halyard
