#pragma once
// The launch platform on a Linux desktop: the session bus for the running
// test and activation, fork and exec for launching, xdg-open for documents.
// Whether the application runs is kept from the bus's name-owner changes, so
// that the question is answered without a call; activation and the opener's
// end are answered on the event loop.

#include <optional>

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>

#include "agent/launch_platform.h"

namespace halyard::agent {

class LinuxLaunchPlatform final : public QObject, public LaunchPlatform {
  Q_OBJECT
 public:
  explicit LinuxLaunchPlatform(QDBusConnection session);

  std::int16_t findApplication() override;
  void activateApplication(StatusHandler done) override;
  std::int16_t launchProgram(const std::vector<std::string>& argv, bool inBackground) override;
  void openDocument(const std::string& path, OpenHandler done) override;

  // Whether the bus has told yet who owns the application's name.
  bool knowsApplicationState() const { return running_.has_value(); }

 private:
  // Calls org.freedesktop.Application.Activate once the application's name appears.
  void activateWhenRunning();

  QDBusConnection session_;
  QDBusServiceWatcher watcher_;
  std::optional<bool> running_;
};

}  // namespace halyard::agent
