#pragma once
// The launch platform on a Linux desktop: the session bus for the running
// test and activation, fork and exec for launching, xdg-open for documents.

#include <QDBusConnection>

#include "agent/launch_platform.h"

namespace halyard::agent {

class LinuxLaunchPlatform final : public LaunchPlatform {
 public:
  explicit LinuxLaunchPlatform(QDBusConnection session) : session_(std::move(session)) {}

  std::int16_t findApplication() override;
  std::int16_t activateApplication() override;
  std::int16_t launchProgram(const std::vector<std::string>& argv, bool inBackground) override;
  bool openDocument(const std::string& path) override;

 private:
  // Calls org.freedesktop.Application.Activate once the application's name appears.
  void activateWhenRunning();

  QDBusConnection session_;
};

}  // namespace halyard::agent
