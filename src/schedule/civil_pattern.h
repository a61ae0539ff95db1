#pragma once
// A run pattern's selection sets as bit masks over the civil fields they can
// select, for finding matching civil minutes by skipping whole months, days
// and hours instead of testing minute after minute.
//
// Civil minutes are counted from 1970-01-01 00:00 on the proleptic Gregorian
// calendar; no time zone is involved at this level.

#include <cstdint>
#include <optional>

#include "schedule/run_dates.h"

namespace halyard {

class CivilPattern {
 public:
  // Absent when the searches answer absent before looking at any date: the
  // item is inactive, or one of its sets is non-empty with nothing selected.
  static std::optional<CivilPattern> from(const RunPattern& pattern);

  // Whether any civil minute at all matches. The Gregorian calendar repeats
  // itself, weekdays included, every 400 years (146097 days, a whole number
  // of weeks), and every month length meets every weekday for its first day
  // within such a cycle, so this is settled once from the masks.
  bool canEverMatch() const { return canEverMatch_; }

  // The first matching civil minute in [from, until), or absent.
  std::optional<std::int64_t> firstAtOrAfter(std::int64_t from, std::int64_t until) const;
  // The last matching civil minute in (downTo, from], or absent.
  std::optional<std::int64_t> lastAtOrBefore(std::int64_t from, std::int64_t downTo) const;

 private:
  // The days of a month (bit d-1 for day d) that the day rule accepts, for a
  // month of `length` days whose first day falls on `firstWeekday`.
  std::uint32_t dayMask(int length, int firstWeekday) const;
  bool anyDayEverMatches() const;

  std::uint64_t minutes_ = 0;      // bit = minute 0..59
  std::uint32_t hours_ = 0;        // bit = hour 0..23
  std::uint32_t months_ = 0;       // bit = month index 0..11
  std::uint32_t daysOfMonth_ = 0;  // bit = day index 0..30
  std::uint32_t daysOfWeek_ = 0;   // bit = weekday 0..6, 0 = Sunday
  bool bothDayRule_ = false;       // a day set is full: weekday AND day of month
  bool canEverMatch_ = false;
};

}  // namespace halyard
