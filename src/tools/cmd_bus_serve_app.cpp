// `halyardctl serve-app`: a minimal main application. It owns the
// application's bus name, prints each hand-over it receives, announces
// "VTHalyardSchedulerDidStart" once it listens, and quits after
// "VTHalyardShouldQuitWhenFinished" once it has printed the items.

#include <iostream>

#include "agent/dbus_notification_bus.h"
#include "agent/launch_platform.h"
#include "agent/termination_signals.h"
#include "tools/cmd_bus_common.h"
#include "tools/commands.h"

namespace halyard::tools {

int runServeApp(const Arguments& args) {
  if (!args.empty()) {
    std::cerr << "usage: halyardctl serve-app\n";
    return 2;
  }
  BusCommandApplication app;
  std::optional<QDBusConnection> session = connectSessionBus();
  if (!session) return 1;
  if (!session->registerService(agent::kApplicationBusName)) {
    std::cerr << "halyardctl: cannot own " << agent::kApplicationBusName << " on the session bus\n";
    return 1;
  }
  agent::DBusNotificationBus bus(*session);
  bool printedItems = false, quitWhenFinished = false;
  bus.observe(&bus, agent::notifications::kAddScheduledItems, [&](const QVariantMap& userInfo) {
    const DecodedHandOver decoded = decodeHandOverData(userInfo);
    std::cout << "serve-app: received "
              << (decoded.error.empty() ? describeHandOverItems(decoded.items)
                                        : "an unreadable hand-over: " + decoded.error + "\n")
              << std::flush;
    printedItems = true;
    if (quitWhenFinished) QCoreApplication::quit();
  });
  bus.observe(&bus, agent::notifications::kShouldQuitWhenFinished, [&](const QVariantMap&) {
    std::cout << "serve-app: told to quit when finished\n" << std::flush;
    quitWhenFinished = true;
    if (printedItems) QCoreApplication::quit();
  });
  agent::onTerminationSignals([] { QCoreApplication::quit(); });
  bus.post(agent::notifications::kSchedulerDidStart);
  std::cout << "serve-app: running as " << agent::kApplicationBusName << "\n" << std::flush;
  return app.exec();
}

}  // namespace halyard::tools
