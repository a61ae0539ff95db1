#pragma once
// A HalyardDaemon in the test process: a fake clock, a private session bus,
// its files in a temporary folder, stepped beats, and a second connection
// that records every notification on the bus.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "agent/dbus_notification_bus.h"
#include "agent/halyard_daemon.h"
#include "agent/launch_platform_linux.h"
#include "agent_test_support.h"

namespace halyard::agent::testing {

// The user interface seam as the test sees it: installed or not, and beeps.
class TestStatusItem final : public StatusItemHost {
 public:
  bool isInstalled() const override { return installed; }
  void installStatusItem(bool) override { installed = true; }
  void removeStatusItem() override { installed = false; }
  void showSchedulerState(bool) override {}
  void beep() override { ++beeps; }
  bool installed = false;
  int beeps = 0;
};

// The alert panel seam: records the alerts and answers OK unless told otherwise.
class TestAlertPanel final : public AlertPanelHost {
 public:
  AlertResponse runAlertPanel(const AlertRequest& request) override {
    requests.push_back(request);
    return answer;
  }
  std::vector<AlertRequest> requests;
  AlertResponse answer = AlertResponse::Stop;
};

class DaemonFixture : public ::testing::Test {
 protected:
  DaemonFixture();
  ~DaemonFixture() override;

  std::string path(const std::string& relative) const { return dir_.path().toStdString() + "/" + relative; }
  AgentPaths paths() const;
  // Beats are stepped by the test on the fake clock; with another clock the
  // daemon's own timer drives them.
  void makeDaemon() { makeDaemon(clock_, true); }
  void makeDaemon(Clock& clock, bool steppedBeats);
  // Sets the clock to 2026-03-04 (a Wednesday) h:m:s + fraction, Berlin time, and beats.
  void beatAt(int h, int m, int s, double fraction = 0);
  // The descriptions of the items parked in the monitor.
  std::vector<std::string> parked();
  // The notifications of that name the recorder has seen so far.
  std::vector<QVariantMap> seen(const QString& name) const;
  // Waits until the launcher has heard that the main application runs.
  bool waitForApplication() {
    return waitUntil([&] { return launcher_->findApplication() == launch_status::kNoError; });
  }
  // Waits until the recorder has seen `count` notifications of that name.
  bool waitForSeen(const QString& name, std::size_t count = 1);

  QTemporaryDir dir_;
  // Activation gives up after 4 s, so that a service that never starts fails soon.
  PrivateBus bus_{"session", 4000};
  FakeClock clock_;
  QString agentName_, recorderName_;
  QDBusConnection agentConnection_;
  QDBusConnection recorderConnection_;
  std::unique_ptr<DBusNotificationBus> notifications_;
  std::unique_ptr<DBusNotificationBus> recorder_;
  std::unique_ptr<Preferences> preferences_;
  std::unique_ptr<LinuxLaunchPlatform> launcher_;
  TestMountSource mounts_;
  TestStatusItem statusItem_;
  TestAlertPanel alertPanel_;
  HelperToolFolders helperToolFolders_;
  std::string helperToolTemplate_ = "/nonexistent/WakeToSyncToolTemplate";
  // The machine the mounted-volume check reads; null: this one.
  std::shared_ptr<fileservices::VTFileManager> fileManager_;
  std::ostringstream out_;
  int terminations_ = 0;
  std::vector<std::pair<QString, QVariantMap>> seen_;
  // What the daemon is made with for wake-to-sync; null: nothing.
  std::shared_ptr<WakeTool> wakeTool_;
  std::function<void(bool)> idleSleepVeto_;
  std::unique_ptr<HalyardDaemon> daemon_;
};

using Names = std::vector<std::string>;

// The descriptions of hand-over items, in order.
std::vector<std::string> descriptions(const std::vector<ObjectRef>& items);

}  // namespace halyard::agent::testing
