#include "ui/application.h"

#include <cstdlib>
#include <vector>

#include <QApplication>

#include "foundation/log_sink.h"

namespace halyard::ui {

namespace {

bool isSet(const char* name) {
  const char* value = std::getenv(name);
  return value && *value;
}

struct Arguments {
  int& argc;
  char** argv;
};

// The arguments with "-platform <list>" added when the user chose no
// platform: the display's own, then offscreen, so that a display that cannot
// be reached (a stale DISPLAY) leaves the agent running without a status
// item instead of ending it. Qt keeps both, so they live on; the caller's
// own argc and argv stay as they were.
Arguments withPlatformFallback(int& argc, char** argv) {
  if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) return {argc, argv};
  static char platformOption[] = "-platform";
  static char xcbFirst[] = "xcb;offscreen";
  static char waylandFirst[] = "wayland;xcb;offscreen";
  static std::vector<char*> arguments;
  static int count = 0;
  arguments.assign(argv, argv + argc);
  arguments.push_back(platformOption);
  arguments.push_back(isSet("WAYLAND_DISPLAY") ? waylandFirst : xcbFirst);
  arguments.push_back(nullptr);
  count = argc + 2;
  return {count, arguments.data()};
}

bool reachedDisplay() {
  return qobject_cast<QApplication*>(QCoreApplication::instance()) &&
         QGuiApplication::platformName() != QLatin1String("offscreen");
}

}  // namespace

bool displayAvailable() { return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY"); }

std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv) {
  if (!displayAvailable()) return std::make_unique<QCoreApplication>(argc, argv);
  const Arguments arguments = withPlatformFallback(argc, argv);
  auto app = std::make_unique<QApplication>(arguments.argc, arguments.argv);
  // The alert panel is the agent's only window; closing it must not end the agent.
  app->setQuitOnLastWindowClosed(false);
  return app;
}

UserInterface makeUserInterface() {
  if (!reachedDisplay()) {
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
      .openSyncDocument = [&daemon](const KSScheduledItem& item,
                                    bool optionHeld) { daemon.openSyncDocument(item, optionHeld); },
      .launchHalyard = [&daemon] { daemon.launchHalyard(); },
      .quit = [] { QCoreApplication::quit(); },
  });
}

}  // namespace halyard::ui
