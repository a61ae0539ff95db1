// The daemon's side of system power: the wake-up it asks the wake tool for
// when the machine goes to sleep, the cancel after waking, and the idle-sleep
// veto held while a run is near.

#include "agent/halyard_daemon.h"
#include "foundation/strings_table.h"
#include "helper/wake_request.h"

namespace halyard::agent {

namespace {

// Cancels the tool's earlier wake-ups, then (when `wakeDate` is given) asks
// for a new one. Answers the error number of the last request.
int sendWakeRequests(WakeTool& tool, std::optional<TimeInterval> wakeDate) {
  using namespace halyard::wake;
  auto cancelled = tool.execute(writeWakeRequest({Command::CancelOwnEvents, 0}));
  if (!cancelled) return -1;
  if (*cancelled != 0 || !wakeDate) return *cancelled;
  const auto unixSeconds = static_cast<std::int64_t>(toUnixSeconds(*wakeDate));
  auto scheduled = tool.execute(writeWakeRequest({Command::SchedulePowerOn, unixSeconds}));
  return scheduled ? *scheduled : -1;
}

}  // namespace

std::optional<TimeInterval> HalyardDaemon::wakeToSyncNextRun() const {
  if (!env_.preferences.boolForKey(prefs::kWakeSystemToSynch) || !_schedulerActive) return std::nullopt;
  const std::optional<ScheduledItems> items = loadItems();
  if (!items) return std::nullopt;
  const auto next = nextScheduledItemInfo(*items, env_.clock.now(), env_.clock.zone());
  if (!next) return std::nullopt;
  return next->date;
}

void HalyardDaemon::systemWillSleep(std::function<void()> allowSleep) {
  const std::optional<TimeInterval> nextRun = wakeToSyncNextRun();
  if (!nextRun || !env_.wakeTool) {
    allowSleep();
    return;
  }
  const TimeInterval wakeDate = wakeDateAtSleep(*nextRun, env_.clock.now());
  background_.run<int>([tool = env_.wakeTool, wakeDate] { return sendWakeRequests(*tool, wakeDate); },
                       [allowSleep = std::move(allowSleep)](int) { allowSleep(); });
}

void HalyardDaemon::systemHasPoweredOn() {
  _awokeFromSleep = true;
  if (!env_.wakeTool || !env_.preferences.boolForKey(prefs::kWakeSystemToSynch)) return;
  // A stale wake-up must never wake the machine again.
  background_.run<int>([tool = env_.wakeTool] { return sendWakeRequests(*tool, std::nullopt); }, [](int) {});
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
  bool state = userInfo.value(notifications::kStateKey).toBool();
  if (state && !validHelperToolExists()) {
    showInvalidHelperToolAlert();
    state = false;
  }
  env_.preferences.setBool(prefs::kWakeSystemToSynch, state);
  env_.bus.post(notifications::kWakeToSynchUpdated, {{notifications::kStateKey, state}});
  updateIdleSleepVeto(env_.clock.now(), true);
}

}  // namespace halyard::agent
