#include "tools/cmd_bus_common.h"

#include <sstream>

#include <iostream>

#include <QByteArray>
#include <QDBusConnectionInterface>

#include "agent/hand_over.h"
#include "agent/notification_bus.h"
#include "foundation/json_writer.h"
#include "schedule/schedule_file.h"

namespace halyard::tools {

std::optional<QDBusConnection> connectSessionBus() {
  QDBusConnection session = QDBusConnection::sessionBus();
  if (session.isConnected()) return session;
  std::cerr << "halyardctl: cannot reach the session bus\n";
  return std::nullopt;
}

void waitForBus(QDBusConnection& connection) { connection.interface()->isServiceRegistered("org.freedesktop.DBus"); }

std::string describeHandOverItems(const std::vector<ObjectRef>& items) {
  std::ostringstream out;
  out << items.size() << " scheduled item(s)\n";
  for (const ObjectRef& object : items) {
    auto item = objectAs<KSScheduledItem>(object);
    if (!item) {
      out << "  " << JsonWriter::describe(object) << "\n";
      continue;
    }
    out << "  item \"" << item->description().value_or("") << "\" document=" << item->documentPathName().value_or("")
        << " type=" << item->scheduleType() << " forceToRun=" << (item->forceToRun() ? "yes" : "no") << "\n";
  }
  return out.str();
}

DecodedHandOver decodeHandOverData(const QVariantMap& userInfo) {
  const QByteArray data = userInfo.value(agent::notifications::kDataKey).toByteArray();
  static const ClassRegistry registry = scheduleClassRegistry(systemCalendarClock());
  auto items = agent::decodeHandOver(data.toStdString(), registry);
  if (!items) return {{}, items.error().describe()};
  return {std::move(*items), {}};
}

std::string describeNotification(const QString& name, const QVariantMap& userInfo) {
  std::ostringstream out;
  out << name.toStdString();
  for (auto it = userInfo.begin(); it != userInfo.end(); ++it) {
    out << " " << it.key().toStdString() << "=";
    if (it.key() == agent::notifications::kDataKey) {
      out << it.value().toByteArray().size() << " bytes";
    } else if (it.value().typeId() == QMetaType::Bool) {
      out << (it.value().toBool() ? "true" : "false");
    } else {
      out << it.value().toString().toStdString();
    }
  }
  out << "\n";
  if (name == agent::notifications::kAddScheduledItems) {
    const DecodedHandOver decoded = decodeHandOverData(userInfo);
    out << (decoded.error.empty() ? describeHandOverItems(decoded.items)
                                  : "  not a hand-over: " + decoded.error + "\n");
  }
  return out.str();
}

}  // namespace halyard::tools
