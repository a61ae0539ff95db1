// Job selection: reading the schedule and the three checks that pick the due
// items of a beat. The checks never change an item.

#include <stdexcept>

#include "agent/halyard_daemon.h"
#include "foundation/file_io.h"
#include "foundation/log_sink.h"
#include "schedule/schedule_file.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent {

namespace {

constexpr std::int32_t kVolumeMountType = 6;

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

bool runsOnCalendar(const KSScheduledItem& item) { return item.active() && item.scheduleType() != kVolumeMountType; }

// The calendar part of the new check for one item at the civil moment `at`.
bool matchesMinute(const KSScheduledItem& item, const cctz::civil_second& at, TimeInterval now) {
  const std::int32_t type = item.scheduleType();
  if (type == 3) {
    const auto start = item.startDate();
    if (!start || !(start->seconds < now)) return false;
  }
  const auto minute = static_cast<std::uint32_t>(at.minute());
  const auto hour = static_cast<std::uint32_t>(at.hour());
  const auto month = static_cast<std::uint32_t>(at.month() - 1);
  const bool calendarMatches = selected(
      [&] { return item.minuteIsSelected(minute) && item.hourIsSelected(hour) && item.monthIsSelected(month); });
  if (!calendarMatches) return false;
  switch (type) {
    case 3:
    case 4:
      return true;
    case 5: {
      // cctz counts from Monday; the sets count from Sunday.
      const int fromMonday = static_cast<int>(cctz::get_weekday(cctz::civil_day(at)));
      const auto weekday = static_cast<std::uint32_t>((fromMonday + 1) % 7);
      return selected([&] { return item.dayOfWeekIsSelected(weekday); });
    }
    case 7:
      return selected([&] { return item.dayOfMonthIsSelected(static_cast<std::uint32_t>(at.day() - 1)); });
    default:
      return false;
  }
}

// Whether the volume mounted at `path` is one the item waits for. An item
// waiting for both sides runs only when the second of them is mounted.
bool mountTriggersRun(const KSScheduledItem& item, const std::string& path,
                      const std::shared_ptr<fileservices::VTFileManager>& fileManager, TimeInterval now) {
  if (!item.active() || item.scheduleType() != kVolumeMountType) return false;
  const bool onLeft = item.scheduledLeftTargetMounts() != 0;
  const bool onRight = item.scheduledRightTargetMounts() != 0;
  if (!onLeft && !onRight) return false;
  const auto mounted = VolumeSpecifier::volumeSpecifierWithPath(path, fileManager);
  const auto left = objectAs<VolumeSpecifier>(item.leftTargetVolumeSpecifier());
  const auto right = objectAs<VolumeSpecifier>(item.rightTargetVolumeSpecifier());
  const bool leftMatch = onLeft && left && left->isEqual(mounted);
  const bool rightMatch = onRight && right && right->isEqual(mounted);
  if (!leftMatch && !rightMatch) return false;
  if (onLeft && onRight) return left && right && left->isMounted(now) && right->isMounted(now);
  return true;
}

}  // namespace

std::optional<ScheduledItems> HalyardDaemon::loadItems() const {
  // Items archived without a start date take the beat's moment.
  const CalendarClock calendarClock = [this] {
    return CalendarDate::make(env_.clock.now(), TimeZone::make(env_.clock.zone().name(), true));
  };
  // No file: nothing is scheduled yet.
  auto bytes = readWholeFile(env_.paths.scheduleFile);
  if (!bytes) return std::nullopt;
  auto data = decodeScheduleData(*bytes, scheduleClassRegistry(calendarClock));
  if (!data) {
    if (!scheduleUnreadable_) {
      logLine("<Error:> The schedule \"" + env_.paths.scheduleFile + "\" cannot be read (" + data.error().describe() +
                  "); its items wait until it can.",
              LogPriority::Error);
    }
    scheduleUnreadable_ = true;
    return std::nullopt;
  }
  scheduleUnreadable_ = false;
  return std::move(data->items);
}

bool HalyardDaemon::checkForNewJobs(const std::optional<ScheduledItems>& items, ScheduledItems* dueList) const {
  const TimeInterval now = env_.clock.now();
  if (!_schedulerActive || !items || !dueList) return false;
  const cctz::civil_second at = cctz::convert(splitInstant(now).seconds, env_.clock.zone());
  bool added = false;
  for (const auto& item : *items) {
    if (!item || !runsOnCalendar(*item) || !matchesMinute(*item, at, now)) continue;
    dueList->push_back(item);
    added = true;
  }
  return added;
}

bool HalyardDaemon::checkForMissedJobs(const std::optional<ScheduledItems>& items,
                                       std::optional<TimeInterval> lastChecked, ScheduledItems* dueList) const {
  if (!_schedulerActive || !items || !lastChecked || !dueList) return false;
  bool added = false;
  for (const auto& item : *items) {
    if (!item || !runsOnCalendar(*item)) continue;
    const TimeInterval now = env_.clock.now();
    if (item->previousScheduledDateBefore(now, lastChecked, now, env_.clock.zone())) {
      dueList->push_back(item);
      added = true;
    }
  }
  return added;
}

bool HalyardDaemon::checkForMountedVolumeJobs(const std::optional<ScheduledItems>& items,
                                              std::vector<std::string>* mountedVolumes,
                                              ScheduledItems* dueList) const {
  if (!_schedulerActive || !items || !mountedVolumes || !dueList || mountedVolumes->empty()) return false;
  const auto fileManager =
      env_.fileManager ? env_.fileManager : fileservices::VTFileManager::sharedFileManager().shared_from_this();
  const ScheduledItems due = mountedVolumeJobs(*items, std::move(*mountedVolumes), fileManager, env_.clock.now());
  mountedVolumes->clear();
  dueList->insert(dueList->end(), due.begin(), due.end());
  return !due.empty();
}

ScheduledItems mountedVolumeJobs(const ScheduledItems& items, std::vector<std::string> paths,
                                 const std::shared_ptr<fileservices::VTFileManager>& fileManager, TimeInterval now) {
  ScheduledItems due;
  // From the last path to the first; a path is removed with every repetition.
  while (!paths.empty()) {
    const std::string path = paths.back();
    for (const auto& item : items) {
      if (item && mountTriggersRun(*item, path, fileManager, now)) due.push_back(item);
    }
    std::erase(paths, path);
  }
  return due;
}

}  // namespace halyard::agent
