#pragma once
// ConnectionWatch: notices that a bus connection has been lost (its
// dbus-daemon stopped or restarted). libdbus tells a lost connection with
// the local signal "org.freedesktop.DBus.Local.Disconnected", which QtDBus
// delivers like any other, so the watch costs no wake-up while the bus lives.

#include <functional>

#include <QDBusConnection>
#include <QObject>

namespace halyard::agent {

class ConnectionWatch final : public QObject {
  Q_OBJECT
 public:
  // `lost` is called once, on the event loop, when `connection` is lost;
  // at once (queued) when it is lost already.
  ConnectionWatch(QDBusConnection connection, std::function<void()> lost);

 private Q_SLOTS:
  void disconnected();

 private:
  QDBusConnection connection_;
  std::function<void()> lost_;
};

}  // namespace halyard::agent
