#pragma once
// The minute check by the type table: which items the agent's check at
// second 0 of a minute selects, and the coming minutes it will select one.
// The run-date searches read the day sets by their own rule and ignore the
// type; the minute check reads only the day set its type names (none for
// types 3 and 4), so the two can differ: a new item (type 5, no day of month
// selected) runs every selected weekday yet has no run date.

#include <optional>

#include <cctz/civil_time.h>
#include <cctz/time_zone.h>

#include "schedule/civil_pattern.h"
#include "schedule/scheduled_item.h"

namespace halyard {

// Whether the item takes part in the calendar checks (new and missed):
// active and not a volume-mount item.
bool runsOnCalendar(const KSScheduledItem& item);

// Whether the check at `now`, whose civil moment is `at`, selects the item:
// minute, hour and month selected, then the day set its type names. A type-3
// item is selected only once its start date lies strictly before `now`.
// The seconds of `at` play no part.
bool minuteCheckSelects(const KSScheduledItem& item, const cctz::civil_second& at, TimeInterval now);

// The item's sets as the minute check reads them, as a run pattern (the day
// sets its type ignores made full, no start date); absent when the minute
// check never selects the item (inactive, a volume-mount or unnamed type).
std::optional<RunPattern> minuteCheckPattern(const KSScheduledItem& item);

// The coming minutes the minute check selects an item at, for asking again
// and again: what it reads of the item is taken once.
class MinuteCheckSearch {
 public:
  explicit MinuteCheckSearch(const KSScheduledItem& item);
  // The first of the moments after + 60 s * k (k >= 0) before `before` at
  // which the minute check selects the item; absent when there is none.
  std::optional<TimeInterval> next(TimeInterval after, TimeInterval before, const cctz::time_zone& zone) const;

 private:
  std::optional<CivilPattern> pattern_;
  bool fromStartDate_ = false;
  std::optional<TimeInterval> start_;
};

// MinuteCheckSearch(item).next(after, before, zone), once.
std::optional<TimeInterval> nextMinuteCheckSelection(const KSScheduledItem& item, TimeInterval after,
                                                     TimeInterval before, const cctz::time_zone& zone);

}  // namespace halyard
