// Job selection: reading the schedule and the three checks that pick the due
// items of a beat. The checks never change an item.

#include "agent/halyard_daemon.h"
#include "agent/rules/calendar_checks.h"
#include "agent/rules/mounted_volume_jobs.h"
#include "foundation/file_io.h"
#include "foundation/log_sink.h"
#include "schedule/schedule_file.h"

namespace halyard::agent {

std::optional<ScheduleItems> HalyardDaemon::loadItems() const {
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
                  "); the runs that fall due while it cannot are not handed over.",
              LogPriority::Error);
    }
    scheduleUnreadable_ = true;
    return std::nullopt;
  }
  scheduleUnreadable_ = false;
  return std::move(data->items);
}

bool HalyardDaemon::checkForNewJobs(const std::optional<ScheduleItems>& items, ScheduleItems* dueList) const {
  const TimeInterval now = env_.clock.now();
  if (!_schedulerActive || !items || !dueList) return false;
  const ScheduleItems due = newJobs(*items, now, env_.clock.zone());
  dueList->insert(dueList->end(), due.begin(), due.end());
  return !due.empty();
}

bool HalyardDaemon::checkForMissedJobs(const std::optional<ScheduleItems>& items,
                                       std::optional<TimeInterval> lastChecked, ScheduleItems* dueList) const {
  if (!_schedulerActive || !items || !lastChecked || !dueList) return false;
  const ScheduleItems due = missedJobs(
      *items, *lastChecked, [this] { return env_.clock.now(); }, env_.clock.zone());
  dueList->insert(dueList->end(), due.begin(), due.end());
  return !due.empty();
}

bool HalyardDaemon::checkForMountedVolumeJobs(const std::optional<ScheduleItems>& items,
                                              std::vector<std::string>* mountedVolumes, ScheduleItems* dueList) const {
  if (!_schedulerActive || !items || !mountedVolumes || !dueList || mountedVolumes->empty()) return false;
  const auto fileManager =
      env_.fileManager ? env_.fileManager : fileservices::VTFileManager::sharedFileManager().shared_from_this();
  const ScheduleItems due = mountedVolumeJobs(*items, std::move(*mountedVolumes), fileManager, env_.clock.now());
  mountedVolumes->clear();
  dueList->insert(dueList->end(), due.begin(), due.end());
  return !due.empty();
}

}  // namespace halyard::agent
