// The typed forms of a selection set: each row a value as a user types it
// and the set string it stands for, or the one-line error it gets.

#include <gtest/gtest.h>

#include "schedule/selection_set_text.h"

namespace halyard {
namespace {

// A set string of `length` with '1' at the given indexes.
std::string marked(std::size_t length, std::initializer_list<std::size_t> indexes) {
  std::string set(length, '0');
  for (std::size_t i : indexes) set[i] = '1';
  return set;
}

TEST(SelectionSetText, FriendlyFormsBecomeSetStrings) {
  const struct {
    const char* name;
    SetKind kind;
    const char* value;
    std::string expected;
  } rows[] = {
      {"minutes-list", SetKind::Minutes, "0,30", marked(60, {0, 30})},
      {"hours-range", SetKind::Hours, "9-11", marked(24, {9, 10, 11})},
      {"single-element-range", SetKind::Hours, "5-5", marked(24, {5})},
      {"weekdays-by-name", SetKind::DaysOfWeek, "mon-fri", marked(7, {1, 2, 3, 4, 5})},
      {"weekday-name-any-case-and-length", SetKind::DaysOfWeek, "SUNDAY,Sat", marked(7, {0, 6})},
      {"days-of-month-count-from-one", SetKind::DaysOfMonth, "1,31", marked(31, {0, 30})},
      {"months-count-from-one", SetKind::Months, "1,dec", marked(12, {0, 11})},
      {"month-names-range", SetKind::Months, "jan-mar", marked(12, {0, 1, 2})},
      {"star-is-all", SetKind::Hours, "*", std::string(24, '1')},
      {"all-is-all", SetKind::DaysOfWeek, "all", std::string(7, '1')},
      {"none-is-empty", SetKind::Minutes, "none", std::string(60, '0')},
      {"raw-set-string-kept", SetKind::DaysOfWeek, "0100010", "0100010"},
      {"short-number-is-not-a-raw-string", SetKind::Hours, "10", marked(24, {10})},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto set = parseSelectionSet(row.kind, row.value);
    ASSERT_TRUE(set) << set.error().describe();
    EXPECT_EQ(*set, row.expected);
  }
}

TEST(SelectionSetText, BadValuesNameTheOptionAndTheValue) {
  const struct {
    const char* name;
    SetKind kind;
    const char* value;
    const char* message;
  } rows[] = {
      {"minute-out-of-range", SetKind::Minutes, "60", "--minutes: '60' is not a minute (0-59)"},
      {"day-of-month-zero", SetKind::DaysOfMonth, "0", "--days-of-month: '0' is not a day of the month (1-31)"},
      {"name-too-short", SetKind::DaysOfWeek, "mo", "--days-of-week: 'mo' is not a day of the week (0-6 or sun-sat)"},
      {"unknown-month", SetKind::Months, "foo", "--months: 'foo' is not a month (1-12 or jan-dec)"},
      {"empty-part", SetKind::Hours, "1,,2", "--hours: '' is not an hour (0-23)"},
      {"trailing-comma", SetKind::Hours, "1,", "--hours: '' is not an hour (0-23)"},
      {"backwards-range", SetKind::Hours, "17-9", "--hours: the range '17-9' runs backwards"},
      {"raw-string-wrong-length", SetKind::DaysOfWeek, "0101",
       "--days-of-week: a set string must be 7 characters long, not 4"},
      {"digits-of-set-length-not-binary", SetKind::DaysOfWeek, "0123456",
       "--days-of-week: a set string may hold only the characters 0 and 1"},
      {"negative-number", SetKind::Minutes, "-5", "--minutes: '-5' is not a minute (0-59)"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto set = parseSelectionSet(row.kind, row.value);
    ASSERT_FALSE(set) << *set;
    EXPECT_EQ(set.error().describe(), row.message);
  }
}

}  // namespace
}  // namespace halyard
