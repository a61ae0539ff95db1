#pragma once
// The calendar checks of a beat, as the agent runs them: the new check at
// second 0 and the missed check over a gap. Each answers the due items in
// schedule order; the caller decides whether the scheduler lets them run.

#include <functional>

#include <cctz/time_zone.h>

#include "agent/scheduled_items.h"

namespace halyard::agent {

// The items the minute check selects at `now` (its civil minute in `zone`).
ScheduleItems newJobs(const ScheduleItems& items, TimeInterval now, const cctz::time_zone& zone);

// The items that have a run date between `lastChecked` and the present,
// which `now` answers afresh for each item.
ScheduleItems missedJobs(const ScheduleItems& items, TimeInterval lastChecked, const std::function<TimeInterval()>& now,
                         const cctz::time_zone& zone);

}  // namespace halyard::agent
