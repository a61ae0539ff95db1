#include "ui/application.h"

#include <cstdlib>

#include <QApplication>

#include "foundation/log_sink.h"

namespace halyard::ui {

namespace {

bool isSet(const char* name) {
  const char* value = std::getenv(name);
  return value && *value;
}

}  // namespace

bool displayAvailable() { return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY"); }

std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv) {
  if (!displayAvailable()) return std::make_unique<QCoreApplication>(argc, argv);
  auto app = std::make_unique<QApplication>(argc, argv);
  // The alert panel is the agent's only window; closing it must not end the agent.
  app->setQuitOnLastWindowClosed(false);
  return app;
}

UserInterface makeUserInterface() {
  if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
    logLine("No display: the agent runs without a status item.");
    return {};
  }
  return {std::make_unique<TrayStatusItem>(), std::make_unique<AlertPanel>()};
}

void UserInterface::connectTo(agent::HalyardDaemon& daemon) {
  if (!statusItem) return;
  statusItem->setMenuActions({
      .menuNeedsUpdate = [&daemon] { return daemon.menuNeedsUpdate(); },
      .toggleSchedulerState = [&daemon] { daemon.toggleSchedulerState(); },
      .openSyncDocument = [&daemon](const agent::ScheduledItem& item,
                                    bool optionHeld) { daemon.openSyncDocument(item, optionHeld); },
      .launchHalyard = [&daemon] { daemon.launchHalyard(); },
      .quit = [] { QCoreApplication::quit(); },
  });
}

}  // namespace halyard::ui
