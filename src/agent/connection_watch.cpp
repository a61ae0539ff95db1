#include "agent/connection_watch.h"

namespace halyard::agent {

ConnectionWatch::ConnectionWatch(QDBusConnection connection, std::function<void()> lost)
    : connection_(std::move(connection)), lost_(std::move(lost)) {
  // Subscribed before the look, so that a loss between the two is heard.
  const bool subscribed = connection_.connect(QString(), "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                              "Disconnected", this, SLOT(disconnected()));
  if (!subscribed || !connection_.isConnected()) {
    QMetaObject::invokeMethod(this, &ConnectionWatch::disconnected, Qt::QueuedConnection);
  }
}

void ConnectionWatch::disconnected() {
  if (!lost_) return;
  // Told once: a loss seen at the start may also be signalled.
  auto lost = std::move(lost_);
  lost_ = nullptr;
  lost();
}

}  // namespace halyard::agent
