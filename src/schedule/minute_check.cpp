#include "schedule/minute_check.h"

#include <cmath>
#include <stdexcept>
#include <string>

namespace halyard {
namespace {

// A selection test on a set too short for the index counts as not selected:
// a schedule file may hold anything.
template <class Test>
bool selected(Test&& test) {
  try {
    return test();
  } catch (const std::exception&) {
    return false;
  }
}

bool dayRuleSelects(const KSScheduledItem& item, const cctz::civil_second& at) {
  switch (item.type()) {
    case ScheduleType::FromStartDate:
    case ScheduleType::Daily:
      return true;
    case ScheduleType::Weekly: {
      // cctz counts from Monday; the sets count from Sunday.
      const int fromMonday = static_cast<int>(cctz::get_weekday(cctz::civil_day(at)));
      const auto weekday = static_cast<std::uint32_t>((fromMonday + 1) % 7);
      return selected([&] { return item.dayOfWeekIsSelected(weekday); });
    }
    case ScheduleType::Monthly:
      return selected([&] { return item.dayOfMonthIsSelected(static_cast<std::uint32_t>(at.day() - 1)); });
    default:
      return false;
  }
}

}  // namespace

bool runsOnCalendar(const KSScheduledItem& item) { return item.active() && item.type() != ScheduleType::OnVolumeMount; }

bool minuteCheckSelects(const KSScheduledItem& item, const cctz::civil_second& at, TimeInterval now) {
  if (!runsOnCalendar(item)) return false;
  if (item.type() == ScheduleType::FromStartDate) {
    const auto start = item.startDate();
    if (!start || !(start->seconds < now)) return false;
  }
  const auto minute = static_cast<std::uint32_t>(at.minute());
  const auto hour = static_cast<std::uint32_t>(at.hour());
  const auto month = static_cast<std::uint32_t>(at.month() - 1);
  const bool calendarMatches = selected(
      [&] { return item.minuteIsSelected(minute) && item.hourIsSelected(hour) && item.monthIsSelected(month); });
  return calendarMatches && dayRuleSelects(item, at);
}

std::optional<RunPattern> minuteCheckPattern(const KSScheduledItem& item) {
  const ScheduleType type = item.type();
  if (!runsOnCalendar(item) || !isNamedScheduleType(type)) return std::nullopt;
  RunPattern pattern = item.runPattern();
  pattern.startDate.reset();
  // A full day set makes the searches' day rule "weekday AND day of month".
  if (type != ScheduleType::Weekly) pattern.daysOfWeek = std::string(7, '1');
  if (type != ScheduleType::Monthly) pattern.daysOfMonth = std::string(31, '1');
  return pattern;
}

MinuteCheckSearch::MinuteCheckSearch(const KSScheduledItem& item)
    : fromStartDate_(item.type() == ScheduleType::FromStartDate) {
  if (const auto pattern = minuteCheckPattern(item)) pattern_ = CivilPattern::from(*pattern);
  if (const auto start = item.startDate()) start_ = start->seconds;
}

std::optional<TimeInterval> MinuteCheckSearch::next(TimeInterval after, TimeInterval before,
                                                    const cctz::time_zone& zone) const {
  if (!pattern_) return std::nullopt;
  TimeInterval first = after;
  if (fromStartDate_) {
    if (!start_) return std::nullopt;
    // The first moment of the series strictly after the start date.
    if (*start_ >= first) first += 60.0 * (std::floor((*start_ - first) / 60.0) + 1);
  }
  const auto found = firstMatchFrom(*pattern_, first, before, zone);
  if (!found || *found >= before) return std::nullopt;
  return found;
}

std::optional<TimeInterval> nextMinuteCheckSelection(const KSScheduledItem& item, TimeInterval after,
                                                     TimeInterval before, const cctz::time_zone& zone) {
  return MinuteCheckSearch(item).next(after, before, zone);
}

}  // namespace halyard
