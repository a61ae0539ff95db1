#include "agent/rules/exactly_once.h"

#include <algorithm>

#include "schedule/civil_calendar.h"
#include "schedule/civil_pattern.h"
#include "schedule/minute_check.h"

namespace halyard::agent {
namespace {

CivilMinute toCivilMinute(const cctz::civil_second& civil) {
  return civil::daysFromCivil(civil.year(), civil.month(), civil.day()) * civil::kMinutesPerDay + civil.hour() * 60 +
         civil.minute();
}

// A type-3 item is never handed over before its start date, whatever the
// civil minutes say: in an hour that autumn repeats, a start in the second
// pass reads earlier than the minutes of the first.
bool begunBy(const KSScheduledItem& item, TimeInterval now) {
  if (item.type() != ScheduleType::FromStartDate) return true;
  const auto start = item.startDate();
  return start && start->seconds < now;
}

}  // namespace

CivilMinute civilMinuteAt(TimeInterval t, const cctz::time_zone& zone) {
  return toCivilMinute(cctz::convert(splitInstant(t).seconds, zone));
}

TimeInterval firstPassOf(TimeInterval t, const cctz::time_zone& zone) {
  const SplitInstant split = splitInstant(t);
  const auto lookup = zone.lookup(cctz::convert(split.seconds, zone));
  if (lookup.kind != cctz::time_zone::civil_lookup::REPEATED) return t;
  return joinInstant(std::min(lookup.pre, lookup.post), split.fraction);
}

bool selectsCivilMinuteIn(const KSScheduledItem& item, CivilMinute first, CivilMinute last,
                          const cctz::time_zone& zone) {
  const auto pattern = minuteCheckPattern(item);
  if (!pattern) return false;
  if (item.type() == ScheduleType::FromStartDate) {
    const auto start = item.startDate();
    if (!start) return false;
    // The first civil minute that begins at or after the start's civil
    // reading: the minute check hands a whole-minute start over at that very
    // minute, since its beat comes a little after the start.
    const SplitInstant split = splitInstant(start->seconds);
    const cctz::civil_second reading = cctz::convert(split.seconds, zone);
    const bool onWholeMinute = reading.second() == 0 && split.fraction == 0;
    first = std::max(first, toCivilMinute(reading) + (onWholeMinute ? 0 : 1));
  }
  if (first > last) return false;
  const auto civilPattern = CivilPattern::from(*pattern);
  return civilPattern && civilPattern->firstAtOrAfter(first, last + 1).has_value();
}

void ExactlyOnceWindow::startAt(TimeInterval start, const cctz::time_zone& zone) {
  if (covered_) return;
  const cctz::civil_second reading = cctz::convert(splitInstant(start).seconds, zone);
  covered_ = toCivilMinute(reading) - (reading.second() == 0 ? 1 : 0);
}

ScheduleItems ExactlyOnceWindow::check(const ScheduleItems& items, TimeInterval now, const cctz::time_zone& zone,
                                       bool active) {
  const CivilMinute current = civilMinuteAt(now, zone);
  const CivilMinute first = covered_ ? *covered_ + 1 : current;
  ScheduleItems due;
  if (active) {
    for (const auto& item : items) {
      if (item && begunBy(*item, now) && selectsCivilMinuteIn(*item, first, current, zone)) due.push_back(item);
    }
  }
  covered_ = std::max(covered_.value_or(current), current);
  return due;
}

}  // namespace halyard::agent
