#pragma once
// The agent's application object and user interface. With a display (DISPLAY
// or WAYLAND_DISPLAY set) the agent is a QApplication with a status item and
// an alert panel; without one it is a QCoreApplication with neither, which is
// logged once.
//
//   auto app = ui::makeApplication(argc, argv);
//   ui::UserInterface ui = ui::makeUserInterface();
//   HalyardDaemon daemon({..., .statusItem = ui.statusItem.get(), .alertPanel = ui.alertPanel.get()});
//   ui.connectTo(daemon);

#include <memory>

#include <QCoreApplication>

#include "agent/halyard_daemon.h"
#include "ui/alert_panel.h"
#include "ui/tray_status_item.h"

namespace halyard::ui {

bool displayAvailable();

// A QApplication with a display (closing a window never quits it), else a
// QCoreApplication. A display that cannot be reached gives an offscreen
// QApplication, which makeUserInterface() treats as no display.
std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv);

struct UserInterface {
  std::unique_ptr<TrayStatusItem> statusItem;  // null without a display
  std::unique_ptr<AlertPanel> alertPanel;      // null without a display

  // Points the menu's commands at the daemon.
  void connectTo(agent::HalyardDaemon& daemon);
};

// Call after makeApplication().
UserInterface makeUserInterface();

}  // namespace halyard::ui
