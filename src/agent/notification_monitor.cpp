#include "agent/notification_monitor.h"

#include <filesystem>

#include "agent/hand_over.h"

namespace halyard::agent {

namespace {
bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}
}  // namespace

NotificationMonitor::NotificationMonitor(NotificationBus& bus, MountEventSource* mounts, std::string volumesRoot)
    : bus_(bus), mounts_(mounts), volumesRoot_(std::move(volumesRoot)) {
  bus_.observe(this, notifications::kBackgrounderShouldQuit, [this](const QVariantMap&) { quitMessageReceived(); });
  bus_.observe(this, notifications::kSchedulerDidStart, [this](const QVariantMap&) { halyardSchedulerDidStart(); });
  if (mounts_) mounts_->setHandler([this](const std::string& path) { volumeMounted(path); });
}

NotificationMonitor::~NotificationMonitor() {
  bus_.removeObserver(this);
  if (mounts_) mounts_->setHandler({});
}

void NotificationMonitor::halyardSchedulerDidStart() {
  if (!_lastLaunchTime) return;
  bus_.post(notifications::kAddScheduledItems, handOverUserInfo(_items));
  bus_.post(notifications::kShouldQuitWhenFinished);
  _lastLaunchTime.reset();
}

void NotificationMonitor::volumeMounted(const std::string& devicePath) {
  if (devicePath.empty()) return;
  std::string path = devicePath;
  if (!exists(path)) {
    // Joined as a path component: "/media/user" + "/gone" is "/media/user/gone".
    const std::size_t start = devicePath.find_first_not_of('/');
    path = volumesRoot_ + "/" + (start == std::string::npos ? std::string() : devicePath.substr(start));
  }
  if (exists(path)) _mountedVolumes.push_back(path);
}

}  // namespace halyard::agent
