// What `halyardctl schedule` prints: items as text or JSON, and the coming
// hand-overs by the agent's minute check ("never" when no minute can ever
// be selected), with whether a sleep across them is caught up.

#include <algorithm>
#include <cmath>
#include <iostream>

#include "agent/rules/exactly_once.h"
#include "foundation/json_writer.h"
#include "schedule/minute_check.h"
#include "tools/cmd_schedule.h"

namespace halyard::tools::schedule {
namespace {

const char* const kSetNames[kSetCount] = {"months", "daysOfMonth", "daysOfWeek", "hours", "minutes"};

std::string setText(const std::string* set) { return set ? *set : std::string(); }

std::array<std::string, kSetCount> setsOf(const KSScheduledItem& item) {
  return {setText(item.scheduledMonths()), setText(item.scheduledDaysOfMonth()), setText(item.scheduledDaysOfWeek()),
          setText(item.scheduledHours()), setText(item.scheduledMinutes())};
}

std::string dateText(const std::shared_ptr<const CalendarDate>& date, const cctz::time_zone& zone) {
  return date ? formatInstant(date->seconds, zone) : "none";
}

void writeDate(JsonWriter& json, const char* key, const std::shared_ptr<const CalendarDate>& date,
               const cctz::time_zone& zone) {
  json.key(key);
  if (date) json.string(formatInstant(date->seconds, zone));
  else json.null();
}

void writeItemJson(JsonWriter& json, std::size_t index, const KSScheduledItem& item, const cctz::time_zone& zone) {
  json.beginObject();
  json.key("index").unsignedInteger(index + 1);
  json.key("description");
  if (item.description()) json.string(*item.description());
  else json.null();
  json.key("documentPath");
  if (item.documentPathName()) json.string(*item.documentPathName());
  else json.null();
  json.key("hasAlias").boolean(item.documentAlias() != nullptr);
  json.key("scheduleType").integer(item.scheduleType());
  json.key("active").boolean(item.active());
  json.key("runOnce").boolean(item.runOnce());
  json.key("forceToRun").boolean(item.forceToRun());
  writeDate(json, "startDate", item.startDate(), zone);
  json.key("startDateSeconds");
  if (item.startDate()) json.real(item.startDate()->seconds);
  else json.null();
  writeDate(json, "lastRunDate", item.lastRunDate(), zone);
  const auto sets = setsOf(item);
  for (std::size_t i = 0; i < kSetCount; ++i) {
    json.key(kSetNames[i]).string(sets[i]);
  }
  json.key("leftTargetMounts").integer(item.scheduledLeftTargetMounts());
  json.key("rightTargetMounts").integer(item.scheduledRightTargetMounts());
  json.endObject();
}

void printItemText(std::size_t index, const KSScheduledItem& item, bool detailed, const cctz::time_zone& zone) {
  const std::string description = item.description().value_or("");
  if (!detailed) {
    std::cout << index + 1 << ". [" << (item.active() ? "x" : " ") << "] type " << item.scheduleType() << "  "
              << description << "  (" << item.documentPathName().value_or("no document") << ")\n";
    return;
  }
  const auto sets = setsOf(item);
  std::cout << "Item " << index + 1 << "\n"
            << "  description:    " << description << "\n"
            << "  document:       " << item.documentPathName().value_or("none") << "\n"
            << "  type:           " << item.scheduleType() << "\n"
            << "  active:         " << (item.active() ? "yes" : "no") << "\n"
            << "  run once:       " << (item.runOnce() ? "yes" : "no") << "\n"
            << "  start date:     " << dateText(item.startDate(), zone) << "\n"
            << "  last run:       " << dateText(item.lastRunDate(), zone) << "\n"
            << "  months:         " << sets[0] << "\n"
            << "  days of month:  " << sets[1] << "\n"
            << "  days of week:   " << sets[2] << "\n"
            << "  hours:          " << sets[3] << "\n"
            << "  minutes:        " << sets[4] << "\n"
            << "  mount triggers: left " << item.scheduledLeftTargetMounts() << ", right "
            << item.scheduledRightTargetMounts() << "\n";
}

struct Run {
  TimeInterval date;
  std::size_t index;
};

// The heartbeat's beat at second 0 comes a few milliseconds after the second
// turns; a type-3 item starting on the whole minute runs at that beat.
constexpr TimeInterval kBeatAfterSecond = 0.005;

// Up to `count` minutes at which the agent's minute check will hand the item
// over, from the whole minute `start`; in exactly-once mode a repeated
// minute at its first pass only.
void collectRuns(const KSScheduledItem& item, std::size_t index, const NextRunsRequest& request, TimeInterval start,
                 const cctz::time_zone& zone, std::vector<Run>& runs) {
  const MinuteCheckSearch search(item);
  TimeInterval after = start + kBeatAfterSecond;
  for (int i = 0; i < request.count;) {
    auto beat = search.next(after, kDistantFuture, zone);
    if (!beat) return;
    after = *beat + 60.0;
    if (request.exactlyOnce && agent::firstPassOf(*beat, zone) < *beat) continue;
    runs.push_back({std::floor(*beat), index});
    ++i;
  }
}

// Why no run missed while the machine slept can be caught up, or nothing
// when runs can be: the missed check finds a run by the item's run dates,
// which need every set to have something selected, whatever the type.
std::optional<std::string> whyNeverCaughtUp(const KSScheduledItem& item) {
  if (!item.active()) return "the item is inactive";
  if (item.type() == ScheduleType::OnVolumeMount) return "a volume-mount item runs only when its volume is mounted";
  const std::pair<bool, const char*> emptySets[] = {{item.noMinuteIsSelected(), "minute"},
                                                    {item.noHourIsSelected(), "hour"},
                                                    {item.noDayOfWeekIsSelected(), "day of week"},
                                                    {item.noDayOfMonthIsSelected(), "day of month"},
                                                    {item.noMonthIsSelected(), "month"}};
  for (const auto& [empty, name] : emptySets) {
    if (empty) return std::string("no ") + name + " is selected, and the missed check needs one in every set";
  }
  if (!item.startDate()) return "the item has no start date, and the missed check needs one";
  return std::nullopt;
}

// Whether a sleep from just before the run to half a minute after it is
// caught up at the wake: the missed check's search, from the last beat
// before the run, finds it.
bool caughtUpAfterSleep(const KSScheduledItem& item, TimeInterval run, const cctz::time_zone& zone) {
  const TimeInterval wake = run + 30.5;
  return item.previousScheduledDateBefore(wake, run - 0.5, wake, zone).has_value();
}

// Why the missed check does not find this run of an item it can catch up.
std::string whyRunNotCaughtUp(const KSScheduledItem& item, TimeInterval run, const cctz::time_zone& zone) {
  if (item.startDate() && item.startDate()->seconds > run) {
    return "the missed check looks back no further than the start date, " +
           formatInstant(item.startDate()->seconds, zone);
  }
  if (item.everyDayOfMonthIsSelected() || item.everyDayOfWeekIsSelected()) {
    return "the missed check takes a day only when both its day of week and its day of month are selected";
  }
  return "the missed check's run dates do not include it";
}

// What a sleep across the runs listed for one item does.
std::string catchUpLine(const KSScheduledItem& item, const std::vector<Run>& runs, const cctz::time_zone& zone) {
  if (const auto reason = whyNeverCaughtUp(item)) return "not caught up, " + *reason;
  std::vector<TimeInterval> missed;
  for (const Run& run : runs) {
    if (!caughtUpAfterSleep(item, run.date, zone)) missed.push_back(run.date);
  }
  if (missed.empty()) return "caught up at the wake";
  const std::string reason = whyRunNotCaughtUp(item, missed.front(), zone);
  if (missed.size() == runs.size()) return "not caught up, " + reason;
  return "caught up at the wake, except at " + formatInstant(missed.front(), zone) +
         (missed.size() > 1 ? " and " + std::to_string(missed.size() - 1) + " more of the runs above" : "") + ": " +
         reason;
}

}  // namespace

void printItems(const ScheduleItems& items, std::size_t first, std::size_t last, bool json, bool detailed,
                const cctz::time_zone& zone) {
  if (!json) {
    if (items.empty()) std::cout << "no scheduled items\n";
    for (std::size_t i = first; i < last; ++i) printItemText(i, *items[i], detailed, zone);
    return;
  }
  JsonWriter writer;
  if (!detailed) writer.beginArray();
  for (std::size_t i = first; i < last; ++i) writeItemJson(writer, i, *items[i], zone);
  if (!detailed) writer.endArray();
  std::cout << writer.take() << "\n";
}

void printNextRuns(const ScheduleItems& items, const NextRunsRequest& request, TimeInterval now,
                   const cctz::time_zone& zone) {
  const std::optional<std::size_t> index = request.index;
  const int count = request.count;
  // Runs are asked from now when its second of the minute is 0, else from
  // the next minute: add one minute, subtract the seconds (the fraction stays).
  const double unix = toUnixSeconds(now);
  const double second = std::floor(unix - 60.0 * std::floor(unix / 60.0));
  const TimeInterval start = second == 0 ? now : now + 60.0 - second;
  std::vector<Run> runs;
  for (std::size_t i = index.value_or(0); i < (index ? *index + 1 : items.size()); ++i) {
    collectRuns(*items[i], i, request, start, zone, runs);
  }
  // The schedule's next runs: earliest first, and at the same minute the
  // item earlier in the schedule first.
  std::stable_sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.date < b.date; });
  if (runs.size() > static_cast<std::size_t>(count)) runs.resize(static_cast<std::size_t>(count));
  if (request.json) {
    JsonWriter writer;
    writer.beginArray();
    for (const Run& run : runs) {
      writer.beginObject();
      writer.key("index");
      writer.unsignedInteger(run.index + 1);
      writer.key("description");
      writer.string(items[run.index]->description().value_or(""));
      writer.key("date");
      writer.string(formatInstant(run.date, zone));
      writer.key("seconds");
      writer.real(run.date);
      writer.endObject();
    }
    writer.endArray();
    std::cout << writer.take() << "\n";
    return;
  }
  if (runs.empty()) std::cout << "never\n";
  for (const Run& run : runs) {
    std::cout << formatInstant(run.date, zone) << "  " << run.index + 1 << ". "
              << items[run.index]->description().value_or("") << "\n";
  }
  if (!index || (runs.empty() && !whyNeverCaughtUp(*items[*index]))) return;
  std::cout << "a run missed during a sleep: " << catchUpLine(*items[*index], runs, zone) << "\n";
}

}  // namespace halyard::tools::schedule
