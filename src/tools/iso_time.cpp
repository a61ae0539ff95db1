#include "tools/iso_time.h"

#include <chrono>
#include <cmath>

namespace halyard::tools {

Expected<TimeInterval> parseIsoInstant(std::string_view text, const cctz::time_zone& zone) {
  std::string input(text);
  if (!input.empty() && (input.back() == 'Z' || input.back() == 'z')) input.replace(input.size() - 1, 1, "+00:00");
  for (const char* format : {"%Y-%m-%dT%H:%M:%E*S%Ez", "%Y-%m-%dT%H:%M:%E*S", "%Y-%m-%dT%H:%M%Ez", "%Y-%m-%dT%H:%M"}) {
    cctz::time_point<std::chrono::microseconds> when;
    if (!cctz::parse(format, input, zone, &when)) continue;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(when);
    const auto micros = (when - seconds).count();
    return joinInstant(seconds, static_cast<double>(micros) / 1e6);
  }
  return makeError("'" + std::string(text) + "' is not an ISO 8601 time (YYYY-MM-DDTHH:MM[:SS[.fff]][±HH:MM])");
}

std::string formatIsoInstant(TimeInterval t, const cctz::time_zone& zone) {
  const SplitInstant split = splitInstant(t);
  // To the microsecond first (a fraction read as 0.05 is held as 0.04999...),
  // then the milliseconds of that.
  const auto micros = std::chrono::microseconds(std::llround(split.fraction * 1e6));
  return cctz::format("%Y-%m-%dT%H:%M:%E3S%Ez", split.seconds + micros, zone);
}

}  // namespace halyard::tools
