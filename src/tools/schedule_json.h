#pragma once
// Scheduled items in their JSON item form, as `schedule import`, `schedule
// export --json` and `simulate --schedule-json` use it: a list of
//   {"description", "active", "scheduleType", "start" (ISO 8601 or null),
//    "months", "daysOfMonth", "daysOfWeek", "hours", "minutes"}
// with each set a string of exactly its length made of "0" and "1". A field
// left out keeps the value of a new item.

#include <string>
#include <string_view>

#include <cctz/time_zone.h>

#include "foundation/expected.h"
#include "schedule/schedule_file.h"

namespace halyard::tools {

// The items of a JSON text. An error names the item (from 1) and the field.
// Start dates without an offset are wall time in `zone`; `clock` gives a
// new item's start date.
Expected<ScheduleItems> readScheduleJson(std::string_view text, const cctz::time_zone& zone,
                                         const CalendarClock& clock);

// The items in item form, start dates in `zone`.
std::string writeScheduleJson(const ScheduleItems& items, const cctz::time_zone& zone);

}  // namespace halyard::tools
