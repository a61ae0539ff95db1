// `halyardctl watch [--count N]`: prints every notification on the session
// bus, hand-overs decoded; with --count it stops after N notifications.

#include <iostream>
#include <string>

#include "agent/dbus_notification_bus.h"
#include "agent/termination_signals.h"
#include "tools/cmd_bus_common.h"
#include "tools/commands.h"

namespace halyard::tools {

int runWatch(const Arguments& args) {
  long limit = -1;
  if (args.size() == 2 && args[0] == "--count") limit = std::strtol(args[1].c_str(), nullptr, 10);
  if (!(args.empty() || (args.size() == 2 && limit > 0))) {
    std::cerr << "usage: halyardctl watch [--count N]\n";
    return 2;
  }
  BusCommandApplication app;
  std::optional<QDBusConnection> session = connectSessionBus();
  if (!session) return 1;
  agent::DBusNotificationBus bus(*session);
  long seen = 0;
  bus.observeAll([&](const QString& notification, const QVariantMap& userInfo) {
    std::cout << describeNotification(notification, userInfo) << std::flush;
    if (++seen == limit) QCoreApplication::quit();
  });
  agent::onTerminationSignals([] { QCoreApplication::quit(); });
  waitForBus(*session);  // the match rule is in place
  std::cerr << "halyardctl: watching\n";
  return app.exec();
}

}  // namespace halyard::tools
