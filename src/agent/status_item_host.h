#pragma once
// StatusItemHost: what the daemon asks of the user interface, which the ui
// library implements (a tray icon and its menu, the system beep). The daemon
// runs without one when there is no display.
//
// StatusMenuActions: what the menu asks of the daemon in return, wired by the
// executable: the menu's model each time it opens, and its commands.

#include <functional>

#include "agent/scheduled_items.h"
#include "agent/status_menu_model.h"

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

struct StatusMenuActions {
  std::function<StatusMenuModel()> menuNeedsUpdate = nullptr;
  std::function<void()> toggleSchedulerState = nullptr;
  // A document entry chosen, with the Alt key held or not.
  std::function<void(const KSScheduledItem& item, bool optionHeld)> openSyncDocument = nullptr;
  std::function<void()> launchHalyard = nullptr;
  std::function<void()> quit = nullptr;
};

}  // namespace halyard::agent
