#pragma once
// The notification centre on D-Bus: one broadcast signal
// Notification(s name, a{sv} userInfo) on a fixed interface and path. Posting
// emits it; observing matches it from any sender and dispatches by name on
// the event loop.

#include <cstdint>
#include <vector>

#include <QDBusConnection>
#include <QObject>

#include "agent/notification_bus.h"

namespace halyard::agent {

inline constexpr char kNotificationInterface[] = "com.vantrel.halyard.DistributedNotifications";
inline constexpr char kNotificationPath[] = "/com/vantrel/halyard/DistributedNotifications";
inline constexpr char kNotificationSignal[] = "Notification";

class DBusNotificationBus final : public QObject, public NotificationBus {
  Q_OBJECT
 public:
  explicit DBusNotificationBus(QDBusConnection connection);
  ~DBusNotificationBus() override;

  void post(const QString& name, const QVariantMap& userInfo = {}) override;
  void observe(const void* observer, const QString& name, Handler handler) override;
  void removeObserver(const void* observer) override;

  // Called for every notification, whatever its name (halyardctl watch).
  void observeAll(std::function<void(const QString& name, const QVariantMap& userInfo)> handler);

 private Q_SLOTS:
  void onNotification(const QString& name, const QVariantMap& userInfo);

 private:
  struct Observation {
    std::uint64_t id;
    const void* observer;
    QString name;
    Handler handler;
  };
  QDBusConnection connection_;
  std::vector<Observation> observations_;
  std::uint64_t nextId_ = 0;
  std::function<void(const QString&, const QVariantMap&)> everything_;
};

}  // namespace halyard::agent
