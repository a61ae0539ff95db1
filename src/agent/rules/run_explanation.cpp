#include "agent/rules/run_explanation.h"

#include <algorithm>

#include "agent/rules/exactly_once.h"
#include "schedule/minute_check.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent {
namespace {

constexpr const char* kWeekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
constexpr const char* kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                   "July",    "August",   "September", "October", "November", "December"};

std::string typeRule(ScheduleType type) {
  switch (type) {
    case ScheduleType::FromStartDate:
      return "type 3: minute, hour and month selected, after the start date";
    case ScheduleType::Daily:
      return "type 4: minute, hour and month selected, every day";
    case ScheduleType::Weekly:
      return "type 5: minute, hour, month and day of week selected";
    case ScheduleType::Monthly:
      return "type 7: minute, hour, month and day of month selected";
    default:
      return "";
  }
}

bool isSelected(const std::string* set, std::size_t index) {
  return set && index < set->size() && (*set)[index] == '1';
}
bool isEmpty(const std::string* set) { return !set || set->find('1') == std::string::npos; }

// The first set (of those the type reads) that does not select the moment.
std::optional<std::string> unselectedSet(const KSScheduledItem& item, const cctz::civil_second& at) {
  const int weekday = (static_cast<int>(cctz::get_weekday(cctz::civil_day(at))) + 1) % 7;
  struct Check {
    const std::string* set;
    std::size_t index;
    std::string what, plural;
  } checks[] = {
      {item.scheduledMinutes(), static_cast<std::size_t>(at.minute()), "minute " + std::to_string(at.minute()),
       "minute"},
      {item.scheduledHours(), static_cast<std::size_t>(at.hour()), "hour " + std::to_string(at.hour()), "hour"},
      {item.scheduledMonths(), static_cast<std::size_t>(at.month() - 1), kMonths[at.month() - 1], "month"},
      {item.scheduledDaysOfWeek(), static_cast<std::size_t>(weekday), kWeekdays[weekday], "day of week"},
      {item.scheduledDaysOfMonth(), static_cast<std::size_t>(at.day() - 1), "day " + std::to_string(at.day()),
       "day of month"},
  };
  const std::size_t count = item.type() == ScheduleType::Weekly ? 4 : 3;
  for (std::size_t i = 0; i < count; ++i) {
    if (isEmpty(checks[i].set)) return "no " + checks[i].plural + " is selected";
    if (!isSelected(checks[i].set, checks[i].index)) return checks[i].what + " is not selected";
  }
  if (item.type() == ScheduleType::Monthly) {
    if (isEmpty(checks[4].set)) return "no day of month is selected (type 7 reads only the days of month)";
    if (!isSelected(checks[4].set, checks[4].index)) return checks[4].what + " is not among its days of month";
  }
  return std::nullopt;
}

RunExplanation volumeMountRule(const KSScheduledItem& item, TimeInterval at) {
  std::string rule = "a volume-mount item (type 6) runs when a target volume is mounted, never by the minute";
  const std::pair<const char*, std::pair<bool, ObjectRef>> sides[] = {
      {"left", {item.scheduledLeftTargetMounts() != 0, item.leftTargetVolumeSpecifier()}},
      {"right", {item.scheduledRightTargetMounts() != 0, item.rightTargetVolumeSpecifier()}}};
  bool any = false;
  for (const auto& [side, trigger] : sides) {
    if (!trigger.first) continue;
    any = true;
    auto volume = objectAs<VolumeSpecifier>(trigger.second);
    rule += std::string("; its ") + side + " target volume " +
            (!volume                 ? "is not recorded"
             : volume->isMounted(at) ? "is mounted"
                                     : "is missing (not mounted)");
  }
  if (!any) rule += "; neither mount trigger is set, so it never runs";
  return {false, rule};
}

}  // namespace

RunExplanation explainMinuteCheck(const KSScheduledItem& item, TimeInterval at, const cctz::time_zone& zone,
                                  const ExplanationContext& context) {
  if (!context.schedulerActive) return {false, "the scheduler is suspended: no check hands anything over"};
  if (!item.active()) return {false, "the item is inactive"};
  if (item.type() == ScheduleType::OnVolumeMount) return volumeMountRule(item, at);
  if (!isNamedScheduleType(item.type())) {
    return {false, "type " + std::to_string(item.scheduleType()) +
                       " is none of 3 to 7: the minute check never selects it (a missed check after a sleep can)"};
  }
  if (context.skippedMinute) {
    return {false, context.exactlyOnce ? "that minute does not occur: the zone's clocks skip it, and the "
                                         "exactly-once mode hands what it selects over right after the change"
                                       : "that minute does not occur: the zone's clocks skip it"};
  }
  const cctz::civil_second civil = cctz::convert(splitInstant(at).seconds, zone);
  if (item.type() == ScheduleType::FromStartDate) {
    const auto start = item.startDate();
    if (!start) return {false, "a type-3 item without a start date never runs by the minute"};
    if (!(start->seconds < at))
      return {false, "its start date " + formatInstant(start->seconds, zone) + " is not yet past"};
  }
  if (auto unselected = unselectedSet(item, civil)) return {false, *unselected};
  std::string rule = "the minute check hands it over (" + typeRule(item.type()) + ")";
  const auto lookup =
      zone.lookup(cctz::civil_second(civil.year(), civil.month(), civil.day(), civil.hour(), civil.minute(), 0));
  if (lookup.kind != cctz::time_zone::civil_lookup::REPEATED) return {true, rule};
  if (!context.exactlyOnce) {
    const auto start = item.startDate();
    const bool firstPassBeforeStart =
        item.type() == ScheduleType::FromStartDate && start && !(start->seconds < firstPassOf(at, zone));
    return {true, rule + (firstPassBeforeStart ? "; this minute occurs twice that night, and it runs at this second "
                                                 "pass only: the first comes before its start date"
                                               : "; this minute occurs twice that night, and it runs at both")};
  }
  if (firstPassOf(at, zone) < at) {
    return {false,
            "this minute occurs twice that night, and the exactly-once mode hands it over at its first "
            "pass only, an hour earlier"};
  }
  return {true, rule +
                    "; this minute occurs twice that night, and the exactly-once mode hands it over at this "
                    "first pass only"};
}

std::optional<TimeInterval> lastMinuteCheckHandOver(const KSScheduledItem& item, TimeInterval now,
                                                    const cctz::time_zone& zone, bool exactlyOnce) {
  auto pattern = minuteCheckPattern(item);
  if (!pattern) return std::nullopt;
  const auto start = item.startDate();
  if (item.type() == ScheduleType::FromStartDate && !start) return std::nullopt;
  const TimeInterval yearAgo = now - 366 * 86400.0;
  pattern->startDate = item.type() == ScheduleType::FromStartDate ? std::max(start->seconds, yearAgo) : yearAgo;
  const auto found = previousScheduledDateBefore(*pattern, now, std::nullopt, now, zone);
  if (!found || *found <= *pattern->startDate) return std::nullopt;
  return exactlyOnce ? firstPassOf(*found, zone) : *found;
}

}  // namespace halyard::agent
