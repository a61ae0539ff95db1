#include "agent/halyard_daemon.h"

#include <cmath>
#include <iostream>

#include "agent/desktop_entry.h"
#include "agent/rules/mounted_volume_jobs.h"
#include "agent/saved_check.h"
#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "schedule/schedule_file.h"

namespace halyard::agent {

AgentPaths AgentPaths::forCurrentUser() {
  AgentPaths paths;
  paths.scheduleFile = scheduleFilePath();
  paths.launchPathFile =
      expandUserFolder(localizedString("GLOBAL_APP_SUPPORT_PATH")) + "/" + localizedString("LAUNCHPATH_NAME");
  const char* user = std::getenv("USER");
  paths.volumesRoot = std::string("/media/") + (user ? user : "");
  paths.savedCheckFile = savedCheckPath();
  paths.dataDirs = xdgDataDirs();
  paths.helperToolFolders = HelperToolFolders::forCurrentUser();
  return paths;
}

HalyardDaemon::HalyardDaemon(DaemonEnvironment environment)
    : env_(std::move(environment)), startedAt_(env_.clock.now()) {
  env_.bus.observe(this, notifications::kSchedulerStateChanged,
                   [this](const QVariantMap& info) { schedulerStateChanged(info); });
  env_.bus.observe(this, notifications::kStatusMenuStateChanged,
                   [this](const QVariantMap& info) { statusMenuStateChanged(info); });
  env_.bus.observe(this, notifications::kWakeToSynchChange,
                   [this](const QVariantMap& info) { wakeToSynchStateChanged(info); });
  _notifyMonitor = std::make_unique<NotificationMonitor>(env_.bus, env_.mounts, env_.paths.volumesRoot);
  if (auto active = env_.preferences.boolValue(prefs::kSchedulerActive)) {
    _schedulerActive = *active;
  } else {
    _schedulerActive = true;
    env_.preferences.setBool(prefs::kSchedulerActive, true);
  }
  (void)loadItems();  // proves the schedule readable early; the result is not kept
  takeUpSavedCheck();
  exactlyOnce_.startAt(env_.clock.now(), env_.clock.zone());
}

void HalyardDaemon::takeUpSavedCheck() {
  if (env_.paths.savedCheckFile.empty() || !env_.preferences.boolForKey(prefs::kCatchUpMissedRuns)) return;
  const auto saved = readSavedCheck(env_.paths.savedCheckFile);
  if (!saved) return;
  // The first beat then sees the time the agent was away as a gap.
  _lastCheckDate = saved->lastCheckDate;
  exactlyOnce_.setCovered(saved->coveredMinute);
}

void HalyardDaemon::saveCheck() {
  if (env_.paths.savedCheckFile.empty() || !_lastCheckDate || !env_.preferences.boolForKey(prefs::kCatchUpMissedRuns)) {
    return;
  }
  if (auto saved = writeSavedCheck(env_.paths.savedCheckFile, {*_lastCheckDate, exactlyOnce_.covered()}); !saved) {
    logLine("<Error:> " + saved.error().describe(), LogPriority::Error);
  }
}

bool HalyardDaemon::runCalendarCheck(HeartbeatMode mode, const std::optional<ScheduleItems>& items,
                                     ScheduleItems* due) {
  if (env_.preferences.boolForKey(prefs::kExactlyOnceScheduling)) {
    *due = exactlyOnce_.check(items.value_or(ScheduleItems{}), env_.clock.now(), env_.clock.zone(),
                              _schedulerActive && items);
    return !due->empty();
  }
  if (mode == HeartbeatMode::Missed) return checkForMissedJobs(items, _lastCheckDate, due);
  return checkForNewJobs(items, due);
}

HalyardDaemon::~HalyardDaemon() { env_.bus.removeObserver(this); }

void HalyardDaemon::awakeFromNib() {
  if (!env_.steppedBeats) {
    _heartbeatTimer =
        std::make_unique<HeartbeatTimer>(env_.clock, [this](TimeInterval lateness) { heartbeat(lateness); });
    _heartbeatTimer->start();
  }
  if (!env_.preferences.boolValue(prefs::kShowStatusMenu)) env_.preferences.setBool(prefs::kShowStatusMenu, true);
  if (env_.preferences.boolForKey(prefs::kShowStatusMenu) && env_.statusItem) {
    env_.statusItem->installStatusItem(_schedulerActive);
  }
  env_.bus.post(notifications::kSchedulerStateChanged, {{notifications::kStateKey, _schedulerActive}});
  if (env_.preferences.boolForKey(prefs::kWakeSystemToSynch) && !validHelperToolExists()) {
    showInvalidHelperToolAlert();
    env_.preferences.setBool(prefs::kWakeSystemToSynch, false);
  }
  logLine(kRunningMessage);
}

void HalyardDaemon::shutdown() {
  env_.bus.removeObserver(this);
  _heartbeatTimer.reset();
  _notifyMonitor.reset();
  if (env_.statusItem && env_.statusItem->isInstalled()) env_.statusItem->removeStatusItem();
  logLine(kTerminatedMessage);
}

void HalyardDaemon::heartbeat(std::optional<TimeInterval> lateness) {
  if (!_notifyMonitor) return;  // shut down
  env_.clock.followZone();
  const TimeInterval now = env_.clock.now();
  timings_.beatLateness.record(now, lateness.value_or(now - std::floor(now)));
  const HeartbeatMode mode =
      chooseHeartbeatMode({_awokeFromSleep, _lastCheckDate, now, secondOfMinute(now, env_.clock.zone()),
                           !_notifyMonitor->mountedVolumes().empty()});
  if (mode != HeartbeatMode::None) runCheck(mode);
  updateIdleSleepVeto(now, secondOfMinute(now, env_.clock.zone()) == 0);
  if (_notifyMonitor->shouldQuit() && env_.terminate) env_.terminate();
}

void HalyardDaemon::runCheck(HeartbeatMode mode) {
  const TimeInterval started = env_.clock.now();
  std::optional<ScheduleItems> items = loadItems();
  ScheduleItems due;
  bool added = false;
  switch (mode) {
    case HeartbeatMode::Missed:
      _awokeFromSleep = false;
      [[fallthrough]];
    case HeartbeatMode::New:
      added = runCalendarCheck(mode, items, &due);
      break;
    case HeartbeatMode::MountedVolume:
      startMountedVolumeCheck(started, std::move(items), std::move(_notifyMonitor->mountedVolumes()));
      _notifyMonitor->mountedVolumes().clear();
      break;
    case HeartbeatMode::None:
      return;
  }
  _lastCheckDate = env_.clock.now();
  lastCheckMode_ = mode;
  saveCheck();
  // The mounted-volume check is timed when its probing is done.
  if (mode != HeartbeatMode::MountedVolume) timings_.checkDuration.record(*_lastCheckDate, *_lastCheckDate - started);
  if (added) launchJobs(due);
}

void HalyardDaemon::startMountedVolumeCheck(TimeInterval started, std::optional<ScheduleItems> items,
                                            std::vector<std::string> paths) {
  if (!_schedulerActive || !items) return;
  const auto fileManager =
      env_.fileManager ? env_.fileManager : fileservices::VTFileManager::sharedFileManager().shared_from_this();
  const TimeInterval now = env_.clock.now();
  ++pendingMountChecks_;
  background_.run<ScheduleItems>(
      [items = std::move(*items), paths = std::move(paths), fileManager, now]() mutable {
        return mountedVolumeJobs(items, std::move(paths), fileManager, now);
      },
      [this, started](ScheduleItems due) {
        --pendingMountChecks_;
        const TimeInterval finished = env_.clock.now();
        timings_.checkDuration.record(finished, finished - started);
        if (!due.empty()) launchJobs(due);
      });
}

AgentStatus HalyardDaemon::status() const {
  const TimeInterval now = env_.clock.now();
  const auto items = loadItems();
  return {.uptime = now - startedAt_,
          .schedulerActive = _schedulerActive,
          .scheduleFile = env_.paths.scheduleFile,
          .itemCount = items ? std::optional<std::size_t>(items->size()) : std::nullopt,
          .lastCheckMode = lastCheckMode_,
          .lastCheckDate = _lastCheckDate,
          .worstBeatLateness = timings_.beatLateness.worst(now),
          .medianBeatLateness = timings_.beatLateness.median(now),
          .worstCheckTime = timings_.checkDuration.worst(now),
          .medianCheckTime = timings_.checkDuration.median(now),
          .wakeToSynch = env_.preferences.boolForKey(prefs::kWakeSystemToSynch),
          .wakeAlarmProblem = rtcProblem_};
}

void HalyardDaemon::schedulerStateChanged(const QVariantMap& userInfo) {
  _schedulerActive = userInfo.value(notifications::kStateKey).toBool();
  if (env_.statusItem && env_.statusItem->isInstalled()) env_.statusItem->showSchedulerState(_schedulerActive);
  env_.preferences.setBool(prefs::kSchedulerActive, _schedulerActive);
  updateIdleSleepVeto(env_.clock.now(), true);
}

void HalyardDaemon::statusMenuStateChanged(const QVariantMap& userInfo) {
  const bool show = userInfo.value(notifications::kStateKey).toBool();
  if (env_.statusItem) {
    if (show && !env_.statusItem->isInstalled()) env_.statusItem->installStatusItem(_schedulerActive);
    if (!show && env_.statusItem->isInstalled()) env_.statusItem->removeStatusItem();
  }
  env_.preferences.setBool(prefs::kShowStatusMenu, show);
}

std::ostream& HalyardDaemon::standardOutput() const { return env_.standardOutput ? *env_.standardOutput : std::cout; }

}  // namespace halyard::agent
