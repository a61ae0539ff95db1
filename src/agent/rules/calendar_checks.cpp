#include "agent/rules/calendar_checks.h"

#include "schedule/minute_check.h"

namespace halyard::agent {

ScheduledItems newJobs(const ScheduledItems& items, TimeInterval now, const cctz::time_zone& zone) {
  const cctz::civil_second at = cctz::convert(splitInstant(now).seconds, zone);
  ScheduledItems due;
  for (const auto& item : items) {
    if (item && minuteCheckSelects(*item, at, now)) due.push_back(item);
  }
  return due;
}

ScheduledItems missedJobs(const ScheduledItems& items, TimeInterval lastChecked,
                          const std::function<TimeInterval()>& now, const cctz::time_zone& zone) {
  ScheduledItems due;
  for (const auto& item : items) {
    if (!item || !runsOnCalendar(*item)) continue;
    const TimeInterval present = now();
    if (item->previousScheduledDateBefore(present, lastChecked, present, zone)) due.push_back(item);
  }
  return due;
}

}  // namespace halyard::agent
