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
#include "agent/heartbeat.h"
#include "agent/launch_platform.h"
#include "agent/mount_event_source.h"
#include "agent/notification_bus.h"
#include "agent/notification_monitor.h"
#include "agent/preferences.h"
#include "agent/scheduled_items.h"
#include "agent/status_item_host.h"
#include "agent/status_menu_model.h"
#include "agent/user_time_formats.h"
#include "fileservices/vt_file_manager.h"

namespace halyard::agent {

inline constexpr char kRunningMessage[] = "Halyard Backgrounder v4.0.5 is running.";
inline constexpr char kTerminatedMessage[] = "Halyard Backgrounder v4.0.5 has terminated.";

// Where the daemon finds its files and the main application.
struct AgentPaths {
  std::string scheduleFile;       // <USER_PATH>/ScheduleData.sched
  std::string launchPathFile;     // <GLOBAL_APP_SUPPORT_PATH>/<LAUNCHPATH_NAME>
  std::string volumesRoot;        // where bare volume names are mounted
  std::vector<std::string> applicationPaths{"/usr/bin/halyard", "/usr/local/bin/halyard"};
  std::vector<std::string> dataDirs;  // searched for applications/halyard.desktop

  // The paths of this user's session, from the strings table and the environment.
  static AgentPaths forCurrentUser();
};

struct DaemonEnvironment {
  const Clock& clock;
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
  void heartbeat();

  void schedulerStateChanged(const QVariantMap& userInfo);
  void statusMenuStateChanged(const QVariantMap& userInfo);

  // Job selection (halyard_daemon_jobs.cpp).
  std::optional<ScheduledItems> loadItems() const;
  bool checkForNewJobs(const std::optional<ScheduledItems>& items, ScheduledItems* dueList) const;
  bool checkForMissedJobs(const std::optional<ScheduledItems>& items, std::optional<TimeInterval> lastChecked,
                          ScheduledItems* dueList) const;
  bool checkForMountedVolumeJobs(const std::optional<ScheduledItems>& items, std::vector<std::string>* mountedVolumes,
                                 ScheduledItems* dueList) const;

  // Job launching (halyard_daemon_launch.cpp).
  std::int16_t launchJobs(const ScheduledItems& items);
  std::int16_t launchApplication(const std::string& path, bool inBackground);
  void launchHalyard();
  // Opens the item's document, or with the Alt key held runs a copy of it now.
  void openSyncDocument(const ScheduledItem& item, bool optionHeld);

  // Status menu (halyard_daemon_menu.cpp).
  StatusMenuModel menuNeedsUpdate();
  // The time format of the menu, computed once.
  const std::string& stdTimeFormat();
  std::string preferredDateFormatter();
  void toggleSchedulerState();

  bool awokeFromSleep() const { return _awokeFromSleep; }
  void setAwokeFromSleep(bool awoke) { _awokeFromSleep = awoke; }
  bool schedulerActive() const { return _schedulerActive; }
  void setSchedulerActive(bool active) { _schedulerActive = active; }
  const std::optional<TimeInterval>& lastCheckDate() const { return _lastCheckDate; }
  // Null after shutdown().
  NotificationMonitor* notifyMonitor() { return _notifyMonitor.get(); }

 private:
  void runCheck(HeartbeatMode mode);
  std::ostream& standardOutput() const;

  DaemonEnvironment env_;
  std::unique_ptr<HeartbeatTimer> _heartbeatTimer;
  std::unique_ptr<NotificationMonitor> _notifyMonitor;
  std::optional<TimeInterval> _lastCheckDate;
  bool _schedulerActive = true;
  bool _awokeFromSleep = false;
  std::optional<std::string> _stdTimeFormat;
};

}  // namespace halyard::agent
