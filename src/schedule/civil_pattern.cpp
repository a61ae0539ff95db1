#include "schedule/civil_pattern.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>

#include "schedule/civil_calendar.h"

namespace halyard {
namespace {

using civil::kMinutesPerDay;

std::uint64_t lowBits(int count) { return (std::uint64_t{1} << count) - 1; }

// Bit i set when byte i of the eight equals `c` (bytes in memory order).
std::uint64_t bytesEqual(std::uint64_t word, unsigned char c) {
  static_assert(std::endian::native == std::endian::little);
  constexpr std::uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
  const std::uint64_t x = word ^ (0x0101010101010101ULL * c);
  const std::uint64_t zeroBytes = ~(((x & kLow7) + kLow7) | x | kLow7);  // high bit of each zero byte
  return ((zeroBytes >> 7) * 0x0102040810204080ULL) >> 56;
}

// One selection string read eight characters at a time: the "1"s among its
// first `width` characters, and whether it is non-empty and all "0" or all "1".
struct SetScan {
  std::uint64_t bits = 0;
  bool allCleared = false;
  bool allMarked = false;

  SetScan(const std::string& set, int width) : allCleared(!set.empty()), allMarked(!set.empty()) {
    for (std::size_t at = 0; at < set.size(); at += 8) {
      const std::size_t length = std::min<std::size_t>(8, set.size() - at);
      std::uint64_t word = 0;
      if (length == 8) {
        std::memcpy(&word, set.data() + at, 8);  // a fixed size the compiler turns into one load
      } else {
        std::memcpy(&word, set.data() + at, length);
      }
      const std::uint64_t present = lowBits(static_cast<int>(length));
      const std::uint64_t ones = bytesEqual(word, '1') & present;
      allMarked = allMarked && ones == present;
      allCleared = allCleared && (bytesEqual(word, '0') & present) == present;
      if (at < static_cast<std::size_t>(width)) bits |= ones << at;
    }
    bits &= lowBits(width);
  }
};

// A position on the civil calendar, walked by the matcher.
struct Cursor {
  std::int64_t year;
  int month;
  int day;
  std::int64_t dayNumber;
  int hour;
  int minute;

  static Cursor at(std::int64_t civilMinute) {
    const std::int64_t dayNumber = civil::floorDiv(civilMinute, kMinutesPerDay);
    const int minuteOfDay = static_cast<int>(civilMinute - dayNumber * kMinutesPerDay);
    const civil::Date date = civil::civilFromDays(dayNumber);
    return {date.year, date.month, date.day, dayNumber, minuteOfDay / 60, minuteOfDay % 60};
  }

  std::int64_t minuteNumber() const { return dayNumber * kMinutesPerDay + hour * 60 + minute; }
  int firstWeekdayOfMonth() const { return civil::weekday(dayNumber - (day - 1)); }

  void toMonthStart(std::int64_t newYear, int newMonth) {
    year = newYear;
    month = newMonth;
    day = 1;
    dayNumber = civil::daysFromCivil(year, month, 1);
    hour = 0;
    minute = 0;
  }
  void toMonthEnd(std::int64_t newYear, int newMonth) {
    year = newYear;
    month = newMonth;
    day = civil::daysInMonth(year, month);
    dayNumber = civil::daysFromCivil(year, month, day);
    hour = 23;
    minute = 59;
  }
  void toNextMonth() { month == 12 ? toMonthStart(year + 1, 1) : toMonthStart(year, month + 1); }
  void toPreviousMonth() { month == 1 ? toMonthEnd(year - 1, 12) : toMonthEnd(year, month - 1); }
  void toNextDay() {
    if (day == civil::daysInMonth(year, month)) return toNextMonth();
    ++day;
    ++dayNumber;
    hour = 0;
    minute = 0;
  }
  void toPreviousDay() {
    if (day == 1) return toPreviousMonth();
    --day;
    --dayNumber;
    hour = 23;
    minute = 59;
  }
};

}  // namespace

std::optional<CivilPattern> CivilPattern::from(const RunPattern& pattern) {
  if (!pattern.active) return std::nullopt;
  const SetScan minutes(pattern.minutes, 60), hours(pattern.hours, 24), daysOfWeek(pattern.daysOfWeek, 7),
      daysOfMonth(pattern.daysOfMonth, 31), months(pattern.months, 12);
  for (const SetScan* set : {&minutes, &hours, &daysOfWeek, &daysOfMonth, &months}) {
    if (set->allCleared) return std::nullopt;
  }
  CivilPattern civilPattern;
  civilPattern.minutes_ = minutes.bits;
  civilPattern.hours_ = static_cast<std::uint32_t>(hours.bits);
  civilPattern.months_ = static_cast<std::uint32_t>(months.bits);
  civilPattern.daysOfMonth_ = static_cast<std::uint32_t>(daysOfMonth.bits);
  civilPattern.daysOfWeek_ = static_cast<std::uint32_t>(daysOfWeek.bits);
  civilPattern.bothDayRule_ = daysOfMonth.allMarked || daysOfWeek.allMarked;
  civilPattern.canEverMatch_ =
      civilPattern.minutes_ != 0 && civilPattern.hours_ != 0 && civilPattern.anyDayEverMatches();
  return civilPattern;
}

std::uint32_t CivilPattern::dayMask(int length, int firstWeekday) const {
  // Bit i of `week` = the weekday of day i + 1, for one week, then repeated.
  const std::uint32_t week = ((daysOfWeek_ >> firstWeekday) | (daysOfWeek_ << (7 - firstWeekday))) & 0x7F;
  const std::uint32_t weekdays = week | week << 7 | week << 14 | week << 21 | week << 28;
  const std::uint32_t days = bothDayRule_ ? (daysOfMonth_ & weekdays) : (daysOfMonth_ | weekdays);
  return days & static_cast<std::uint32_t>(lowBits(length));
}

bool CivilPattern::anyDayEverMatches() const {
  // Either day rule holds on some day of every month once a weekday counts
  // alone (every month has every weekday).
  if (!bothDayRule_ && daysOfWeek_ != 0) return months_ != 0;
  for (int month = 1; month <= 12; ++month) {
    if ((months_ >> (month - 1) & 1) == 0) continue;
    // 2000 is a leap year and 2001 is not: both lengths of February.
    for (const std::int64_t year : {2000, 2001}) {
      for (int firstWeekday = 0; firstWeekday < 7; ++firstWeekday) {
        if (dayMask(civil::daysInMonth(year, month), firstWeekday) != 0) return true;
      }
    }
  }
  return false;
}

std::optional<std::int64_t> CivilPattern::firstAtOrAfter(std::int64_t from, std::int64_t until) const {
  if (!canEverMatch_) return std::nullopt;
  Cursor c = Cursor::at(from);
  while (c.dayNumber * kMinutesPerDay < until) {
    if ((months_ >> (c.month - 1) & 1) == 0) {
      const std::uint32_t later = months_ >> c.month;
      later != 0 ? c.toMonthStart(c.year, c.month + 1 + std::countr_zero(later))
                 : c.toMonthStart(c.year + 1, 1 + std::countr_zero(months_));
      continue;
    }
    const std::uint32_t days = dayMask(civil::daysInMonth(c.year, c.month), c.firstWeekdayOfMonth()) >> (c.day - 1);
    if (days == 0) {
      c.toNextMonth();
      continue;
    }
    if (const int skip = std::countr_zero(days); skip != 0) {
      c.day += skip;
      c.dayNumber += skip;
      c.hour = c.minute = 0;
    }
    const std::uint32_t hours = hours_ >> c.hour;
    if (hours == 0) {
      c.toNextDay();
      continue;
    }
    if (const int skip = std::countr_zero(hours); skip != 0) {
      c.hour += skip;
      c.minute = 0;
    }
    const std::uint64_t minutes = minutes_ >> c.minute;
    if (minutes == 0) {
      if (c.hour == 23) {
        c.toNextDay();
      } else {
        ++c.hour;
        c.minute = 0;
      }
      continue;
    }
    c.minute += std::countr_zero(minutes);
    const std::int64_t found = c.minuteNumber();
    return found < until ? std::optional(found) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::int64_t> CivilPattern::lastAtOrBefore(std::int64_t from, std::int64_t downTo) const {
  if (!canEverMatch_) return std::nullopt;
  Cursor c = Cursor::at(from);
  while ((c.dayNumber + 1) * kMinutesPerDay - 1 > downTo) {
    if ((months_ >> (c.month - 1) & 1) == 0) {
      const std::uint32_t earlier = months_ & static_cast<std::uint32_t>(lowBits(c.month - 1));
      earlier != 0 ? c.toMonthEnd(c.year, std::bit_width(earlier)) : c.toMonthEnd(c.year - 1, std::bit_width(months_));
      continue;
    }
    const std::uint32_t days = dayMask(civil::daysInMonth(c.year, c.month), c.firstWeekdayOfMonth()) &
                               static_cast<std::uint32_t>(lowBits(c.day));
    if (days == 0) {
      c.toPreviousMonth();
      continue;
    }
    if (const int best = std::bit_width(days); best != c.day) {
      c.dayNumber -= c.day - best;
      c.day = best;
      c.hour = 23;
      c.minute = 59;
    }
    const std::uint32_t hours = hours_ & static_cast<std::uint32_t>(lowBits(c.hour + 1));
    if (hours == 0) {
      c.toPreviousDay();
      continue;
    }
    if (const int best = std::bit_width(hours) - 1; best != c.hour) {
      c.hour = best;
      c.minute = 59;
    }
    const std::uint64_t minutes = minutes_ & lowBits(c.minute + 1);
    if (minutes == 0) {
      if (c.hour == 0) {
        c.toPreviousDay();
      } else {
        --c.hour;
        c.minute = 59;
      }
      continue;
    }
    c.minute = std::bit_width(minutes) - 1;
    const std::int64_t found = c.minuteNumber();
    return found > downTo ? std::optional(found) : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace halyard
