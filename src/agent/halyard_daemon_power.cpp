// The daemon's side of system power: the wake-up it asks the wake tool for
// when the machine goes to sleep, the cancel after waking, and the idle-sleep
// veto held while a run is near. The tool is found (or made) and run off the
// event loop; the bad-volume question and what the answers mean are settled
// back on it.

#include <cstring>

#include "agent/halyard_daemon.h"
#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "helper/wake_request.h"

namespace halyard::agent {

bool meansRtcCannotWake(int errorNumber) {
  return errorNumber == ENOENT || errorNumber == ENODEV || errorNumber == EACCES || errorNumber == EPERM ||
         errorNumber == EIO;
}

namespace {

// Cancels the tool's earlier wake-ups, then (when `wakeDate` is given) asks
// for a new one. Answers the error number of the last request.
Expected<int> sendWakeRequests(WakeTool& tool, const std::string& path, std::optional<TimeInterval> wakeDate) {
  using namespace halyard::wake;
  auto cancelled = tool.execute(path, writeWakeRequest({Command::CancelOwnEvents, 0}));
  if (!cancelled || *cancelled != 0 || !wakeDate) return cancelled;
  const auto unixSeconds = static_cast<std::int64_t>(toUnixSeconds(*wakeDate));
  return tool.execute(path, writeWakeRequest({Command::SchedulePowerOn, unixSeconds}));
}

}  // namespace

WakeAttempt attemptWakeRequests(WakeTool& tool, HelperFolderType folderType, std::optional<TimeInterval> wakeDate) {
  const ToolLocation location = tool.locateOrCreate(folderType);
  if (location.tool.empty()) return {.onBadVolume = location.onBadVolume};
  auto answer = sendWakeRequests(tool, location.tool, wakeDate);
  return {.answer = answer ? std::optional<int>(*answer) : std::nullopt};
}

std::optional<TimeInterval> HalyardDaemon::wakeToSyncNextRun() const {
  if (!env_.preferences.boolForKey(prefs::kWakeSystemToSynch) || !_schedulerActive) return std::nullopt;
  const std::optional<ScheduleItems> items = loadItems();
  if (!items) return std::nullopt;
  const auto next = nextScheduledItemInfo(*items, env_.clock.now(), env_.clock.zone());
  if (!next) return std::nullopt;
  return next->date;
}

void HalyardDaemon::runWakeRequests(std::optional<TimeInterval> wakeDate, std::function<void()> done,
                                    HelperFolderType folderType) {
  ++pendingWakeRequests_;
  // The delivery runs on the event loop while the daemon lives (the tasks
  // are its own); a process that quits lets its sleep go with its inhibitor.
  background_.run<WakeAttempt>(
      [tool = env_.wakeTool, folderType, wakeDate] { return attemptWakeRequests(*tool, folderType, wakeDate); },
      [this, wakeDate, folderType, done = std::move(done)](WakeAttempt attempt) {
        --pendingWakeRequests_;
        if (attempt.answer) noteWakeToolAnswer(*attempt.answer);
        if (attempt.onBadVolume && folderType == HelperFolderType::ApplicationSupport && useTemporaryItemsFolder())
          return runWakeRequests(wakeDate, done, HelperFolderType::TemporaryItems);
        done();
        if (rtcProblem_ && env_.preferences.boolForKey(prefs::kWakeSystemToSynch)) settleWakeToSynch(false);
      });
}

void HalyardDaemon::systemWillSleep(std::function<void()> allowSleep) {
  const std::optional<TimeInterval> nextRun = wakeToSyncNextRun();
  if (!nextRun || !env_.wakeTool) {
    allowSleep();
    return;
  }
  runWakeRequests(wakeDateAtSleep(*nextRun, env_.clock.now()), std::move(allowSleep));
}

void HalyardDaemon::systemHasPoweredOn() {
  _awokeFromSleep = true;
  if (!env_.wakeTool || !env_.preferences.boolForKey(prefs::kWakeSystemToSynch)) return;
  // A stale wake-up must never wake the machine again.
  runWakeRequests(std::nullopt, [] {});
}

void HalyardDaemon::noteWakeToolAnswer(int errorNumber) {
  if (!meansRtcCannotWake(errorNumber)) {
    rtcProblem_.reset();
    return;
  }
  rtcProblem_ = std::strerror(errorNumber);
  if (rtcProblemLogged_) return;
  rtcProblemLogged_ = true;
  logLine("<Error:> The RTC wake alarm cannot be set (" + *rtcProblem_ +
              "): this machine will not be woken for scheduled runs, and wake-to-sync stays off.",
          LogPriority::Error);
}

bool HalyardDaemon::useTemporaryItemsFolder() {
  if (!env_.alertPanel) return true;
  // Asked once while wake-to-sync stays switched as it is: every sleep and
  // every wake would ask again otherwise.
  if (temporaryItemsChosen_) return *temporaryItemsChosen_;
  const AlertResponse response =
      env_.alertPanel->runAlertPanel({.title = localizedString("BAD_VOLUME_FOR_HELPER_TOOL_ALERT_TITLE"),
                                      .message = localizedString("BAD_VOLUME_FOR_HELPER_TOOL_ALERT_MESSAGE"),
                                      .okTitle = localizedString("OK"),
                                      .cancelTitle = localizedString("CANCEL")});
  temporaryItemsChosen_ = response == AlertResponse::Stop;
  return *temporaryItemsChosen_;
}

void HalyardDaemon::updateIdleSleepVeto(TimeInterval now, bool recompute) {
  if (recompute || !idleVetoRunKnown_ || (idleVetoRun_ && *idleVetoRun_ < now)) {
    idleVetoRun_ = wakeToSyncNextRun();
    idleVetoRunKnown_ = true;
  }
  const bool veto = idleVetoRun_ && vetoesIdleSleep(*idleVetoRun_, now);
  if (veto == idleSleepVetoed_) return;
  idleSleepVetoed_ = veto;
  if (env_.idleSleepVeto) env_.idleSleepVeto(veto);
}

bool HalyardDaemon::validHelperToolExists() const {
  return findValidHelperTool(env_.paths.helperToolFolders, env_.paths.helperToolTemplate).has_value();
}

void HalyardDaemon::showInvalidHelperToolAlert() {
  if (!env_.alertPanel) return;
  env_.alertPanel->runAlertPanel({.title = localizedString("INVALID_HELPER_TOOL_ALERT_TITLE"),
                                  .message = localizedString("INVALID_HELPER_TOOL_ALERT_MESSAGE"),
                                  .cancelEnabled = false});
}

void HalyardDaemon::wakeToSynchStateChanged(const QVariantMap& userInfo) {
  const bool wanted = userInfo.value(notifications::kStateKey).toBool();
  temporaryItemsChosen_.reset();
  if (!wanted || !env_.wakeTool) return settleWakeToSynch(wanted);
  // The first use makes the privileged copy, and a cancel tells whether the
  // RTC can wake the machine: both wait for other processes.
  runWakeRequests(std::nullopt, [this] { settleWakeToSynch(true); });
}

void HalyardDaemon::settleWakeToSynch(bool wanted) {
  bool state = wanted;
  if (state && !validHelperToolExists()) {
    showInvalidHelperToolAlert();
    state = false;
  }
  if (rtcProblem_) state = false;
  env_.preferences.setBool(prefs::kWakeSystemToSynch, state);
  env_.bus.post(notifications::kWakeToSynchUpdated, {{notifications::kStateKey, state}});
  updateIdleSleepVeto(env_.clock.now(), true);
}

}  // namespace halyard::agent
