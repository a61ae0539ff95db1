#pragma once
// The run-date searches as the plain minute-by-minute walk: one candidate
// per minute, its civil fields read in the zone, tested against the selection
// strings as they are. The reference the fast searches are held to; test and
// benchmark code only.

#include <cctz/civil_time.h>
#include <cctz/time_zone.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "schedule/run_dates.h"

namespace halyard::testing {

// Reads the civil fields of instants the way the walk does (whole seconds,
// floor). The zone's offset is kept over the transition window around the
// last instant read, where the zone's table gives one; the calendar day too.
class CivilFieldReader {
 public:
  struct Fields {
    int minute, hour, weekday, day, month;  // weekday 0 = Sunday
  };

  explicit CivilFieldReader(const cctz::time_zone& zone) : zone_(zone) {}

  Fields at(TimeInterval t) {
    const auto whole = static_cast<std::int64_t>(std::floor(t)) + 978307200;
    const std::int64_t local = whole + offset(whole);
    const std::int64_t dayNumber = local / 86400 - (local % 86400 < 0 ? 1 : 0);
    if (dayNumber != dayNumber_) readDay(dayNumber);
    const auto secondOfDay = static_cast<int>(local - dayNumber * 86400);
    return {secondOfDay % 3600 / 60, secondOfDay / 3600, weekday_, day_, month_};
  }

 private:
  using Instant = cctz::time_point<cctz::seconds>;

  int offset(std::int64_t unixSeconds) {
    if (unixSeconds >= windowBegin_ && unixSeconds < windowEnd_) return windowOffset_;
    const Instant instant{cctz::seconds(unixSeconds)};
    const int offset = zone_.lookup(instant).offset;
    cctz::time_zone::civil_transition next, previous;
    if (zone_.next_transition(instant, &next)) {
      windowEnd_ = zone_.lookup(next.to).trans.time_since_epoch().count();
      windowBegin_ = zone_.prev_transition(instant + cctz::seconds(1), &previous)
                         ? zone_.lookup(previous.to).trans.time_since_epoch().count()
                         : std::numeric_limits<std::int64_t>::min();
      windowOffset_ = offset;
    }
    return offset;
  }

  void readDay(std::int64_t dayNumber) {
    const cctz::civil_day day = cctz::civil_day(1970, 1, 1) + dayNumber;
    dayNumber_ = dayNumber;
    day_ = day.day();
    month_ = day.month();
    weekday_ = (static_cast<int>(cctz::get_weekday(day)) + 1) % 7;  // cctz counts from Monday
  }

  const cctz::time_zone& zone_;
  std::int64_t windowBegin_ = 1, windowEnd_ = 0;
  int windowOffset_ = 0;
  std::int64_t dayNumber_ = std::numeric_limits<std::int64_t>::min();
  int day_ = 0, month_ = 0, weekday_ = 0;
};

class MinuteWalk {
 public:
  MinuteWalk(const RunPattern& pattern, const cctz::time_zone& zone) : pattern_(pattern), reader_(zone) {}

  std::optional<TimeInterval> next(std::optional<TimeInterval> after, std::optional<TimeInterval> before,
                                   TimeInterval now) {
    if (!precondition() || !pattern_.startDate) return std::nullopt;
    const TimeInterval from = after.value_or(now);
    const TimeInterval limit = before.value_or(kDistantFuture);
    TimeInterval candidate = *pattern_.startDate < from ? from : *pattern_.startDate;
    while (limit > candidate && !matches(candidate)) candidate += 60.0;
    if (limit < candidate) return std::nullopt;
    return candidate;
  }

  std::optional<TimeInterval> previous(std::optional<TimeInterval> before, std::optional<TimeInterval> after,
                                       TimeInterval now) {
    std::optional<TimeInterval> lower = pattern_.startDate;
    if (after) lower = (lower && *after < *lower) ? *lower : *after;
    if (!precondition() || !lower) return std::nullopt;  // no lower bound: no previous run (documented choice)
    const TimeInterval until = before.value_or(now);
    TimeInterval candidate = now > until ? until : now;
    while (*lower < candidate && !matches(candidate)) candidate -= 60.0;
    if (*lower > candidate) return std::nullopt;
    return candidate;
  }

 private:
  static bool marked(const std::string& set, int index) {
    return index >= 0 && index < static_cast<int>(set.size()) && set[index] == '1';
  }
  static bool allAre(const std::string& set, char c) {
    return !set.empty() && set.find_first_not_of(c) == std::string::npos;
  }

  bool precondition() const {
    return pattern_.active && !allAre(pattern_.minutes, '0') && !allAre(pattern_.hours, '0') &&
           !allAre(pattern_.daysOfWeek, '0') && !allAre(pattern_.daysOfMonth, '0') && !allAre(pattern_.months, '0');
  }

  bool matches(TimeInterval candidate) {
    const CivilFieldReader::Fields f = reader_.at(candidate);
    const bool timeAndMonth =
        marked(pattern_.minutes, f.minute) && marked(pattern_.hours, f.hour) && marked(pattern_.months, f.month - 1);
    if (!timeAndMonth) return false;
    if (everyDayOfMonth_ || everyDayOfWeek_) {
      return marked(pattern_.daysOfWeek, f.weekday) && marked(pattern_.daysOfMonth, f.day - 1);
    }
    return marked(pattern_.daysOfWeek, f.weekday) || marked(pattern_.daysOfMonth, f.day - 1);
  }

  const RunPattern& pattern_;
  CivilFieldReader reader_;
  const bool everyDayOfMonth_ = allAre(pattern_.daysOfMonth, '1');
  const bool everyDayOfWeek_ = allAre(pattern_.daysOfWeek, '1');
};

}  // namespace halyard::testing
