#pragma once
// The user's time and short-date formats (the %-directive language of
// strftime), as the status menu shows the next run's date: the short date
// followed by the time of day.
//
//   const UserTimeFormats formats = readUserTimeFormats();
//   std::string format = preferredDateFormatter(formats.shortDate, stdTimeFormat(formats.time));

#include <string>

namespace halyard::agent {

struct UserTimeFormats {
  std::string time;       // e.g. "%H:%M:%S", or "%r" for a 12-hour clock
  std::string shortDate;  // e.g. "%m/%d/%y"
};

// The formats of the user's LC_TIME locale (from the environment, as the C
// library reads it).
UserTimeFormats readUserTimeFormats();

// The user's time format with every date directive taken out ("%a", "%A",
// "%b", "%B", "%d", "%e", "%j", "%m", "%w", "%y", "%Y", in this order, by
// literal search) and the leading spaces removed.
std::string stdTimeFormat(std::string userTimeFormat);

// "<short date> <time>".
std::string preferredDateFormatter(const std::string& shortDateFormat, const std::string& timeFormat);

}  // namespace halyard::agent
