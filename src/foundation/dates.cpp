#include "foundation/dates.h"

#include <cmath>
#include <cstdio>

namespace halyard {

SplitInstant splitInstant(TimeInterval t) {
  const double unix = toUnixSeconds(t);
  const double whole = std::floor(unix);
  return {cctz::time_point<cctz::seconds>(cctz::seconds(static_cast<long long>(whole))), unix - whole};
}

TimeInterval joinInstant(cctz::time_point<cctz::seconds> seconds, double fraction) {
  return fromUnixSeconds(static_cast<double>(seconds.time_since_epoch().count()) + fraction) ;
}

std::string formatInstant(TimeInterval t, const cctz::time_zone& zone) {
  if (!std::isfinite(t)) return "invalid date";
  const SplitInstant split = splitInstant(t);
  std::string text = cctz::format("%Y-%m-%d %H:%M:%S", split.seconds, zone);
  if (split.fraction > 0) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%.3f", split.fraction);
    text += std::string(buffer).substr(1);  // ".523"
  }
  return text + cctz::format(" %z", split.seconds, zone);
}

std::optional<cctz::time_zone> loadTimeZone(const std::string& name) {
  cctz::time_zone zone;
  if (!cctz::load_time_zone(name, &zone)) return std::nullopt;
  return zone;
}

}  // namespace halyard
