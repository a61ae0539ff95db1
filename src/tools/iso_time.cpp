#include "tools/iso_time.h"

#include <chrono>
#include <cmath>

namespace halyard::tools {
namespace {

// Four-digit years only: a year beyond them is a typing slip, and in
// microseconds it would not fit the clock's 64 bits.
bool withinFourDigitYears(const std::string& input, const char* format, const cctz::time_zone& zone) {
  cctz::time_point<cctz::seconds> when;
  if (!cctz::parse(format, input, zone, &when)) return false;
  const cctz::civil_second utc = cctz::convert(when, cctz::utc_time_zone());
  return utc.year() >= 1 && utc.year() <= 9999;
}

}  // namespace

Expected<TimeInterval> parseIsoInstant(std::string_view text, const cctz::time_zone& zone) {
  std::string input(text);
  if (!input.empty() && (input.back() == 'Z' || input.back() == 'z')) input.replace(input.size() - 1, 1, "+00:00");
  for (const char* format : {"%Y-%m-%dT%H:%M:%E*S%Ez", "%Y-%m-%dT%H:%M:%E*S", "%Y-%m-%dT%H:%M%Ez", "%Y-%m-%dT%H:%M"}) {
    if (!withinFourDigitYears(input, format, zone)) continue;
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
  // then the milliseconds of that; counted in milliseconds, every instant a
  // date can hold fits the clock's 64 bits.
  const auto millis = std::chrono::milliseconds(std::llround(split.fraction * 1e6) / 1000);
  return cctz::format("%Y-%m-%dT%H:%M:%E3S%Ez", split.seconds + millis, zone);
}

}  // namespace halyard::tools
