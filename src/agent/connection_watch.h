#pragma once
// ConnectionWatch: notices that a bus connection has been lost (its
// dbus-daemon stopped or restarted). QtDBus only marks such a connection as
// no longer connected, so the watch looks at it once a second, as often as
// the agent's own beat wakes it; the look is a flag read, never a call on
// the bus.

#include <functional>

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

namespace halyard::agent {

class ConnectionWatch final : public QObject {
  Q_OBJECT
 public:
  static constexpr int kIntervalMs = 1000;
  // `lost` is called once, on the event loop, when `connection` is found lost.
  ConnectionWatch(QDBusConnection connection, std::function<void()> lost);

 private:
  QDBusConnection connection_;
  std::function<void()> lost_;
  QTimer timer_;
};

}  // namespace halyard::agent
