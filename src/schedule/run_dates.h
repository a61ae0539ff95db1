#pragma once
// Run dates of a scheduled item: the next run at or after a moment, and the
// most recent run before one, answered exactly as a minute-by-minute walk
// over the item's selection sets would answer, without walking.
//
// Every call takes the present moment and the time zone whose civil fields
// (minute, hour, day of week, day of month, month) are matched.

#include <optional>
#include <string>

#include <cctz/time_zone.h>

#include "foundation/dates.h"

namespace halyard {

// What the run-date searches read of an item: its active flag, start date and
// the five selection sets ("0"/"1" strings; a character other than '1' is not
// selected; the strings may have any length).
struct RunPattern {
  bool active = true;
  std::optional<TimeInterval> startDate;
  std::string months;       // index = month - 1
  std::string daysOfMonth;  // index = day - 1
  std::string daysOfWeek;   // index 0 = Sunday
  std::string hours;
  std::string minutes;
};

// The first matching moment at or after `after` (absent: now), bounded by
// `before` (absent: the distant future); absent when there is none.
std::optional<TimeInterval> nextScheduledDateAfter(const RunPattern& pattern, std::optional<TimeInterval> after,
                                                   std::optional<TimeInterval> before, TimeInterval now,
                                                   const cctz::time_zone& zone);

class CivilPattern;

// The forward walk from `first` itself, bounded by `before`, for a pattern
// whose sets are already read: what nextScheduledDateAfter answers when the
// start date is not later than `first`.
std::optional<TimeInterval> firstMatchFrom(const CivilPattern& pattern, TimeInterval first, TimeInterval before,
                                           const cctz::time_zone& zone);

// The most recent matching moment at or before `before` (absent: now), not
// earlier than `after` (absent: the start date); absent when there is none.
std::optional<TimeInterval> previousScheduledDateBefore(const RunPattern& pattern, std::optional<TimeInterval> before,
                                                        std::optional<TimeInterval> after, TimeInterval now,
                                                        const cctz::time_zone& zone);

}  // namespace halyard
