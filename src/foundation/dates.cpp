#include "foundation/dates.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace halyard {

namespace {

// Instants further than this from the reference date (about 3 million years)
// have no civil form worth computing; they are clamped.
constexpr double kCivilRange = 1e14;

}  // namespace

SplitInstant splitInstant(TimeInterval t) {
  const double clamped = std::isnan(t) ? 0.0 : std::clamp(t, -kCivilRange, kCivilRange);
  const double unix = toUnixSeconds(clamped);
  const double whole = std::floor(unix);
  return {cctz::time_point<cctz::seconds>(cctz::seconds(static_cast<long long>(whole))), unix - whole};
}

TimeInterval joinInstant(cctz::time_point<cctz::seconds> seconds, double fraction) {
  return fromUnixSeconds(static_cast<double>(seconds.time_since_epoch().count()) + fraction);
}

std::string formatInstant(TimeInterval t, const cctz::time_zone& zone) {
  if (!std::isfinite(t) || std::fabs(t) > kCivilRange) return "out of range (" + std::to_string(t) + " s)";
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
