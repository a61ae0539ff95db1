#include "agent/dbus_notification_bus.h"

#include <algorithm>

#include <QDBusMessage>

namespace halyard::agent {

DBusNotificationBus::DBusNotificationBus(QDBusConnection connection) : connection_(std::move(connection)) {
  connection_.connect(QString(), kNotificationPath, kNotificationInterface, kNotificationSignal, this,
                      SLOT(onNotification(QString, QVariantMap)));
}

DBusNotificationBus::~DBusNotificationBus() {
  connection_.disconnect(QString(), kNotificationPath, kNotificationInterface, kNotificationSignal, this,
                         SLOT(onNotification(QString, QVariantMap)));
}

void DBusNotificationBus::post(const QString& name, const QVariantMap& userInfo) {
  QDBusMessage message = QDBusMessage::createSignal(kNotificationPath, kNotificationInterface, kNotificationSignal);
  message << name << userInfo;
  connection_.send(message);
}

void DBusNotificationBus::observe(const void* observer, const QString& name, Handler handler) {
  observations_.push_back({nextId_++, observer, name, std::move(handler)});
}

void DBusNotificationBus::removeObserver(const void* observer) {
  std::erase_if(observations_, [observer](const Observation& o) { return o.observer == observer; });
}

void DBusNotificationBus::observeAll(std::function<void(const QString&, const QVariantMap&)> handler) {
  everything_ = std::move(handler);
}

void DBusNotificationBus::onNotification(const QString& name, const QVariantMap& userInfo) {
  if (everything_) everything_(name, userInfo);
  // Handlers may add or remove observers: the matching ones are noted first,
  // and each is called only while it is still registered.
  std::vector<std::uint64_t> matching;
  for (const Observation& o : observations_) {
    if (o.name == name) matching.push_back(o.id);
  }
  for (std::uint64_t id : matching) {
    auto found =
        std::find_if(observations_.begin(), observations_.end(), [id](const Observation& o) { return o.id == id; });
    if (found == observations_.end()) continue;
    const Handler handler = found->handler;
    handler(userInfo);
  }
}

}  // namespace halyard::agent
