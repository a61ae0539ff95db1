#pragma once
// StatusItemHost: what the daemon asks of the user interface, which the ui
// library implements (a tray icon and its menu, the system beep). The daemon
// runs without one when there is no display.

namespace halyard::agent {

class StatusItemHost {
 public:
  virtual ~StatusItemHost() = default;
  virtual bool isInstalled() const = 0;
  virtual void installStatusItem(bool schedulerActive) = 0;
  virtual void removeStatusItem() = 0;
  // Shows the active or the suspended images.
  virtual void showSchedulerState(bool schedulerActive) = 0;
  virtual void beep() = 0;
};

}  // namespace halyard::agent
