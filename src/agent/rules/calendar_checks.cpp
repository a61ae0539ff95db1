#include "agent/rules/calendar_checks.h"

#include "schedule/minute_check.h"

namespace halyard::agent {

ScheduleItems newJobs(const ScheduleItems& items, TimeInterval now, const cctz::time_zone& zone) {
  const cctz::civil_second at = cctz::convert(splitInstant(now).seconds, zone);
  ScheduleItems due;
  for (const auto& item : items) {
    if (item && minuteCheckSelects(*item, at, now)) due.push_back(item);
  }
  return due;
}

ScheduleItems missedJobs(const ScheduleItems& items, TimeInterval lastChecked, const std::function<TimeInterval()>& now,
                         const cctz::time_zone& zone) {
  ScheduleItems due;
  for (const auto& item : items) {
    if (!item || !runsOnCalendar(*item)) continue;
    const TimeInterval present = now();
    if (item->previousScheduledDateBefore(present, lastChecked, present, zone)) due.push_back(item);
  }
  return due;
}

}  // namespace halyard::agent
