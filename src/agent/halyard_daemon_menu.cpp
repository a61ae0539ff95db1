// The status menu's side of the daemon: the menu's model each time it opens,
// the formats of the next run's date, and the suspend/resume command.

#include <filesystem>

#include "agent/halyard_daemon.h"

namespace halyard::agent {

namespace {

bool fileExists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

UserTimeFormats userFormats(const DaemonEnvironment& env) {
  return env.userTimeFormats ? env.userTimeFormats() : readUserTimeFormats();
}

}  // namespace

StatusMenuModel HalyardDaemon::menuNeedsUpdate() {
  const std::optional<ScheduleItems> items = loadItems();
  return makeStatusMenuModel({.items = items,
                              .schedulerActive = _schedulerActive,
                              .now = env_.clock.now(),
                              .zone = env_.clock.zone(),
                              .dateFormat = preferredDateFormatter(),
                              .fileExists = fileExists,
                              .byMinuteCheck = env_.preferences.boolForKey(prefs::kExactlyOnceScheduling)});
}

const std::string& HalyardDaemon::stdTimeFormat() {
  if (!_stdTimeFormat) _stdTimeFormat = agent::stdTimeFormat(userFormats(env_).time);
  return *_stdTimeFormat;
}

std::string HalyardDaemon::preferredDateFormatter() {
  return agent::preferredDateFormatter(userFormats(env_).shortDate, stdTimeFormat());
}

void HalyardDaemon::toggleSchedulerState() {
  _schedulerActive = !_schedulerActive;
  env_.preferences.setBool(prefs::kSchedulerActive, _schedulerActive);
  updateIdleSleepVeto(env_.clock.now(), true);
  env_.bus.post(notifications::kSchedulerStateChanged, {{notifications::kStateKey, _schedulerActive}});
}

}  // namespace halyard::agent
