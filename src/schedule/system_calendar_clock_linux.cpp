// The present moment from the system clock, in the user's zone (TZ, else
// /etc/localtime), archived as the local time zone.

#include <chrono>

#include "schedule/schedule_file.h"

namespace halyard {

CalendarClock systemCalendarClock() {
  return [] {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const double unixSeconds = std::chrono::duration<double>(sinceEpoch).count();
    return CalendarDate::make(fromUnixSeconds(unixSeconds), TimeZone::make(cctz::local_time_zone().name(), true));
  };
}

}  // namespace halyard
