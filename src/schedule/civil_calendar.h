#pragma once
// Proleptic Gregorian day arithmetic on day numbers counted from 1970-01-01,
// valid for any 64-bit year (the algorithms of H. Hinnant's "chrono-compatible
// low-level date algorithms").

#include <cstdint>

namespace halyard::civil {

inline constexpr std::int64_t kMinutesPerDay = 1440;

constexpr std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
  const std::int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

constexpr std::int64_t floorMod(std::int64_t a, std::int64_t b) { return a - floorDiv(a, b) * b; }

struct Date {
  std::int64_t year;
  int month;  // 1..12
  int day;    // 1..31
};

constexpr std::int64_t daysFromCivil(std::int64_t year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = floorDiv(year, 400);
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

constexpr Date civilFromDays(std::int64_t days) {
  days += 719468;
  const std::int64_t era = floorDiv(days, 146097);
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

constexpr bool isLeapYear(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int daysInMonth(std::int64_t year, int month) {
  constexpr int kLengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kLengths[month - 1];
}

// 0 = Sunday; 1970-01-01 was a Thursday.
constexpr int weekday(std::int64_t days) { return static_cast<int>(floorMod(days + 4, 7)); }

}  // namespace halyard::civil
