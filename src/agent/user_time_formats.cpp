#include "agent/user_time_formats.h"

namespace halyard::agent {

std::string stdTimeFormat(std::string format) {
  // Date parts a user's time format may carry.
  static const char* const kDateDirectives[] = {"%a", "%A", "%b", "%B", "%d", "%e", "%j", "%m", "%w", "%y", "%Y"};
  for (const char* directive : kDateDirectives) {
    for (auto at = format.find(directive); at != std::string::npos; at = format.find(directive, at)) {
      format.erase(at, 2);
    }
  }
  format.erase(0, format.find_first_not_of(' '));
  return format;
}

std::string preferredDateFormatter(const std::string& shortDateFormat, const std::string& timeFormat) {
  return shortDateFormat + " " + timeFormat;
}

}  // namespace halyard::agent
