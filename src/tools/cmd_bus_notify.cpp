// `halyardctl notify NAME [--state true|false]`: posts one notification on
// the session bus (a quit request, a state change).

#include <iostream>

#include "agent/dbus_notification_bus.h"
#include "tools/cmd_bus_common.h"
#include "tools/commands.h"

namespace halyard::tools {

int runNotify(const Arguments& args) {
  const bool withState = args.size() == 3 && args[1] == "--state" && (args[2] == "true" || args[2] == "false");
  if (!(args.size() == 1 || withState)) {
    std::cerr << "usage: halyardctl notify NAME [--state true|false]\n";
    return 2;
  }
  BusCommandApplication app;
  std::optional<QDBusConnection> session = connectSessionBus();
  if (!session) return 1;
  agent::DBusNotificationBus bus(*session);
  QVariantMap userInfo;
  if (withState) userInfo.insert(agent::notifications::kStateKey, args[2] == "true");
  bus.post(QString::fromStdString(args[0]), userInfo);
  waitForBus(*session);  // the signal is out before the process ends
  return 0;
}

}  // namespace halyard::tools
