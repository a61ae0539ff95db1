#pragma once
// Instants as the platform holds them: seconds since the reference date
// 2001-01-01 00:00:00 UTC, as a double with fractions kept.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <cctz/time_zone.h>

namespace halyard {

using TimeInterval = double;  // seconds

// Seconds between the Unix epoch and the reference date (also the epoch of
// property-list dates).
constexpr std::int64_t kReferenceDateUnixSeconds = 978307200;
// 4001-01-01 00:00:00 UTC and 0001-01-01 00:00:00 UTC, the platform's bounds.
constexpr TimeInterval kDistantFuture = 63113904000.0;
constexpr TimeInterval kDistantPast = -63114076800.0;

inline TimeInterval fromUnixSeconds(double unixSeconds) {
  return unixSeconds - static_cast<double>(kReferenceDateUnixSeconds);
}
inline double toUnixSeconds(TimeInterval t) { return t + static_cast<double>(kReferenceDateUnixSeconds); }

// The present instant from the system's wall clock, for the clocks handed to
// logic at the program's edges; logic itself takes the moment as an argument.
TimeInterval systemNow();

// The instant as a cctz time point, whole seconds (floor) and the fraction.
struct SplitInstant {
  cctz::time_point<cctz::seconds> seconds;
  double fraction;  // in [0, 1)
};
SplitInstant splitInstant(TimeInterval t);
TimeInterval joinInstant(cctz::time_point<cctz::seconds> seconds, double fraction);

// "2001-09-09 01:46:40 +0000" style, in the given zone, with fractions when
// present ("...40.523 +0000").
std::string formatInstant(TimeInterval t, const cctz::time_zone& zone);

// A zone by IANA name, from the system's zone database.
std::optional<cctz::time_zone> loadTimeZone(const std::string& name);

}  // namespace halyard
