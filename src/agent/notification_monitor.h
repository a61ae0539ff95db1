#pragma once
// NotificationMonitor: turns what other processes and the system tell the
// agent into state that the heartbeat reads: a quit request, the items parked
// for a freshly launched main application (handed over when it announces that
// its scheduler has started), and the volumes mounted since the last beat.

#include <optional>
#include <string>
#include <vector>

#include "agent/mount_event_source.h"
#include "agent/notification_bus.h"
#include "foundation/dates.h"
#include "foundation/object.h"

namespace halyard::agent {

class NotificationMonitor {
 public:
  // `volumesRoot` is the folder under which a bare volume name is looked for
  // (/media/<user name>). `mounts` may be null when no mount events are known.
  NotificationMonitor(NotificationBus& bus, MountEventSource* mounts, std::string volumesRoot);
  ~NotificationMonitor();
  NotificationMonitor(const NotificationMonitor&) = delete;
  NotificationMonitor& operator=(const NotificationMonitor&) = delete;

  void quitMessageReceived() { _shouldQuit = true; }
  // Hands the parked items over once, when this agent launched the application.
  void halyardSchedulerDidStart();
  // Records an existing mount point; a bare name is looked for under the volumes root.
  void volumeMounted(const std::string& devicePath);

  bool shouldQuit() const { return _shouldQuit; }
  const std::optional<TimeInterval>& lastLaunchTime() const { return _lastLaunchTime; }
  void setLastLaunchTime(std::optional<TimeInterval> time) { _lastLaunchTime = time; }
  const std::vector<ObjectRef>& addedItems() const { return _items; }
  void setAddedItems(std::vector<ObjectRef> items) { _items = std::move(items); }
  std::vector<std::string>& mountedVolumes() { return _mountedVolumes; }
  void setMountedVolumes(std::vector<std::string> volumes) { _mountedVolumes = std::move(volumes); }

 private:
  NotificationBus& bus_;
  MountEventSource* mounts_;
  std::string volumesRoot_;

  bool _shouldQuit = false;
  std::optional<TimeInterval> _lastLaunchTime;
  std::vector<ObjectRef> _items;
  std::vector<std::string> _mountedVolumes;
};

}  // namespace halyard::agent
