// The present moment from the system clock, in the user's zone (TZ, else
// /etc/localtime), archived as the local time zone under its IANA name.

#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "foundation/file_io.h"
#include "schedule/local_zone_name.h"
#include "schedule/schedule_file.h"

namespace halyard {

std::string localZoneName() {
  const char* tz = std::getenv("TZ");
  char link[PATH_MAX];
  const ssize_t length = ::readlink("/etc/localtime", link, sizeof link);
  auto timezoneFile = readWholeFile("/etc/timezone");
  return ianaZoneName(tz ? std::optional<std::string_view>(tz) : std::nullopt,
                      length > 0 ? std::optional<std::string_view>(std::string_view(link, length)) : std::nullopt,
                      timezoneFile ? std::optional<std::string_view>(*timezoneFile) : std::nullopt);
}

CalendarClock systemCalendarClock() {
  return [] { return CalendarDate::make(systemNow(), TimeZone::make(localZoneName(), true)); };
}

}  // namespace halyard
