#pragma once
// HalyardDaemon: the agent's one controller. It reads the preferences and the
// schedule, runs the one-second heartbeat that picks at most one check per
// beat (missed, new or mounted-volume), and hands the due items to the main
// application, launching it in the background when it is not running.
//
// Everything it touches of the world comes in through DaemonEnvironment, so
// tests construct it with a fake clock and a private bus and step its beats.

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QVariantMap>

#include "agent/alert_panel_host.h"
#include "agent/clock.h"
#include "agent/event_loop_tasks.h"
#include "agent/heartbeat.h"
#include "agent/helper_tool.h"
#include "agent/launch_platform.h"
#include "agent/mount_event_source.h"
#include "agent/notification_bus.h"
#include "agent/notification_monitor.h"
#include "agent/preferences.h"
#include "agent/rules/exactly_once.h"
#include "agent/scheduled_items.h"
#include "agent/status_item_host.h"
#include "agent/status_menu_model.h"
#include "agent/timings.h"
#include "agent/user_time_formats.h"
#include "agent/wake_to_sync.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::agent {

inline constexpr char kRunningMessage[] = "Halyard Backgrounder v4.0.5 is running.";
inline constexpr char kTerminatedMessage[] = "Halyard Backgrounder v4.0.5 has terminated.";
inline constexpr char kAgentVersion[] = "4.0.5";

// Where the daemon finds its files and the main application.
struct AgentPaths {
  std::string scheduleFile;    // <USER_PATH>/ScheduleData.sched
  std::string launchPathFile;  // <GLOBAL_APP_SUPPORT_PATH>/<LAUNCHPATH_NAME>
  std::string volumesRoot;     // where bare volume names are mounted
  std::vector<std::string> applicationPaths{"/usr/bin/halyard", "/usr/local/bin/halyard"};
  std::vector<std::string> dataDirs;  // searched for applications/halyard.desktop
  // The installed wake tool template and where privileged copies may lie.
  std::string helperToolTemplate = installedHelperToolTemplate();
  HelperToolFolders helperToolFolders = {};
  // The last check kept across restarts (catch-up); empty: none.
  std::string savedCheckFile = {};

  // The paths of this user's session, from the strings table and the environment.
  static AgentPaths forCurrentUser();
};

struct DaemonEnvironment {
  Clock& clock;
  NotificationBus& bus;
  Preferences& preferences;
  LaunchPlatform& launcher;
  AgentPaths paths;
  MountEventSource* mounts = nullptr;
  // The file manager whose volumes the mounted-volume check reads; null:
  // the shared one.
  std::shared_ptr<fileservices::VTFileManager> fileManager = nullptr;
  StatusItemHost* statusItem = nullptr;
  AlertPanelHost* alertPanel = nullptr;
  // The user's time and date formats; null: the C library's for LC_TIME.
  std::function<UserTimeFormats()> userTimeFormats = nullptr;
  std::ostream* standardOutput = nullptr;  // launch failures; null: std::cout
  // Asks the application to terminate (which leads to shutdown()).
  std::function<void()> terminate;
  // When set, no timer drives the heartbeat: the owner calls heartbeat().
  bool steppedBeats = false;
  // The privileged tool that sets the wake-up; null: wake-to-sync does nothing.
  std::shared_ptr<WakeTool> wakeTool = nullptr;
  // Told true when idle sleep must be refused and false when it may go again.
  std::function<void(bool veto)> idleSleepVeto = nullptr;
};

// What the agent tells of itself (`halyardctl status`).
struct AgentStatus {
  TimeInterval uptime = 0;
  bool schedulerActive = true;
  std::string scheduleFile;
  std::optional<std::size_t> itemCount;  // absent when the schedule cannot be read
  HeartbeatMode lastCheckMode = HeartbeatMode::None;
  std::optional<TimeInterval> lastCheckDate;
  // Over the last hour, in seconds; absent before the first sample.
  std::optional<TimeInterval> worstBeatLateness, medianBeatLateness, worstCheckTime, medianCheckTime;
  bool wakeToSynch = false;
  // Why the RTC cannot wake the machine, when the wake tool said so.
  std::optional<std::string> wakeAlarmProblem;
};

class HalyardDaemon {
 public:
  // init: observers, the monitor, the scheduler state, an early loadItems().
  explicit HalyardDaemon(DaemonEnvironment environment);
  ~HalyardDaemon();
  HalyardDaemon(const HalyardDaemon&) = delete;
  HalyardDaemon& operator=(const HalyardDaemon&) = delete;

  // Starts the heartbeat, shows the status item when asked, broadcasts the
  // scheduler state and logs that the agent runs.
  void awakeFromNib();
  // The will-terminate path: observers, timer, monitor and status item go.
  void shutdown();
  // One beat. `lateness`: how long after its whole second the beat came, as
  // the timer saw it; absent, the fraction of the clock's present second.
  void heartbeat(std::optional<TimeInterval> lateness = std::nullopt);

  void schedulerStateChanged(const QVariantMap& userInfo);
  void statusMenuStateChanged(const QVariantMap& userInfo);

  // Job selection (halyard_daemon_jobs.cpp).
  std::optional<ScheduleItems> loadItems() const;
  bool checkForNewJobs(const std::optional<ScheduleItems>& items, ScheduleItems* dueList) const;
  bool checkForMissedJobs(const std::optional<ScheduleItems>& items, std::optional<TimeInterval> lastChecked,
                          ScheduleItems* dueList) const;
  bool checkForMountedVolumeJobs(const std::optional<ScheduleItems>& items, std::vector<std::string>* mountedVolumes,
                                 ScheduleItems* dueList) const;

  // Job launching (halyard_daemon_launch.cpp). When the application has to be
  // activated through the bus, launchJobs answers 0 at once and prints the
  // outcome when the bus answers.
  std::int16_t launchJobs(const ScheduleItems& items);
  std::int16_t launchApplication(const std::string& path, bool inBackground);
  void launchHalyard();
  // Opens the item's document, or with the Alt key held runs a copy of it now.
  // A failed opening beeps and logs one line when the opener has ended.
  void openSyncDocument(const KSScheduledItem& item, bool optionHeld);

  AgentStatus status() const;
  const AgentTimings& timings() const { return timings_; }
  // Mounted-volume checks whose probing still runs off the event loop.
  int pendingMountChecks() const { return pendingMountChecks_; }
  // Rounds with the wake tool still under way off the event loop.
  int pendingWakeRequests() const { return pendingWakeRequests_; }
  // Status menu (halyard_daemon_menu.cpp).
  StatusMenuModel menuNeedsUpdate();
  // The time format of the menu, computed once.
  const std::string& stdTimeFormat();
  std::string preferredDateFormatter();
  void toggleSchedulerState();

  // Power (halyard_daemon_power.cpp). The machine goes to sleep once
  // `allowSleep` is called, after the wake tool has placed the wake-up.
  void systemWillSleep(std::function<void()> allowSleep);
  void systemHasPoweredOn();
  bool idleSleepVetoed() const { return idleSleepVetoed_; }
  bool validHelperToolExists() const;
  // The main application's switch of wake-to-sync: "state" takes effect only
  // with a valid tool; the state that took effect is posted back.
  void wakeToSynchStateChanged(const QVariantMap& userInfo);

  bool awokeFromSleep() const { return _awokeFromSleep; }
  void setAwokeFromSleep(bool awoke) { _awokeFromSleep = awoke; }
  bool schedulerActive() const { return _schedulerActive; }
  void setSchedulerActive(bool active) { _schedulerActive = active; }
  const std::optional<TimeInterval>& lastCheckDate() const { return _lastCheckDate; }
  // Null after shutdown().
  NotificationMonitor* notifyMonitor() { return _notifyMonitor.get(); }

 private:
  void runCheck(HeartbeatMode mode);
  // A calendar check (new or missed) in the mode the preferences choose.
  bool runCalendarCheck(HeartbeatMode mode, const std::optional<ScheduleItems>& items, ScheduleItems* due);
  // With catch-up on: the saved last check taken up at start, and kept after each check.
  void takeUpSavedCheck();
  void saveCheck();
  // The mounted-volume check: probing runs in the background, the due items
  // are launched on the event loop when it is done.
  void startMountedVolumeCheck(TimeInterval started, std::optional<ScheduleItems> items,
                               std::vector<std::string> paths);
  void reportActivation(std::int16_t status);
  // The next run when wake-to-sync applies: the preference on, the scheduler
  // active, a schedule with a next run.
  std::optional<TimeInterval> wakeToSyncNextRun() const;
  // Holds or lets go of the veto; the next run is looked up again when
  // `recompute` or once the one looked up has passed.
  void updateIdleSleepVeto(TimeInterval now, bool recompute);
  void showInvalidHelperToolAlert();
  // Finds or makes the wake tool and sends its requests off the event loop,
  // then calls `done` on it. A tool folder on a volume that ignores
  // ownership asks the user whether to use the temporary-items folder.
  void runWakeRequests(std::optional<TimeInterval> wakeDate, std::function<void()> done,
                       HelperFolderType folderType = HelperFolderType::ApplicationSupport);
  // Remembers (and logs once) that the RTC cannot wake the machine.
  void noteWakeToolAnswer(int errorNumber);
  // Asks (once) whether the temporary-items folder may hold the tool.
  bool useTemporaryItemsFolder();
  // Takes `wanted` as wake-to-sync's state where a valid tool and a usable
  // RTC allow it, and posts the state that took effect.
  void settleWakeToSynch(bool wanted);
  void documentFailedToOpen(const std::string& path, int exitStatus);
  std::ostream& standardOutput() const;
  // Wraps a handler called later on the event loop so that it does nothing
  // once this daemon is gone.
  template <class Handler>
  auto whileAlive(Handler handler) {
    return [alive = std::weak_ptr<char>(alive_), handler = std::move(handler)](auto&&... args) {
      if (!alive.expired()) handler(std::forward<decltype(args)>(args)...);
    };
  }

  DaemonEnvironment env_;
  std::unique_ptr<HeartbeatTimer> _heartbeatTimer;
  std::unique_ptr<NotificationMonitor> _notifyMonitor;
  std::optional<TimeInterval> _lastCheckDate;
  bool _schedulerActive = true;
  bool _awokeFromSleep = false;
  ExactlyOnceWindow exactlyOnce_;

  TimeInterval startedAt_;
  HeartbeatMode lastCheckMode_ = HeartbeatMode::None;
  AgentTimings timings_;
  int pendingMountChecks_ = 0;
  int pendingWakeRequests_ = 0;
  std::shared_ptr<char> alive_ = std::make_shared<char>();
  EventLoopTasks background_;
  std::optional<std::string> _stdTimeFormat;
  std::optional<TimeInterval> idleVetoRun_;
  bool idleVetoRunKnown_ = false;
  bool idleSleepVetoed_ = false;
  std::optional<std::string> rtcProblem_;
  bool rtcProblemLogged_ = false;
  // Set while the schedule file cannot be decoded (a writer caught midway):
  // logged when it starts, not at every beat that meets it.
  mutable bool scheduleUnreadable_ = false;
  // The answer to the bad-volume alert, kept until wake-to-sync is switched.
  std::optional<bool> temporaryItemsChosen_;
};

}  // namespace halyard::agent
