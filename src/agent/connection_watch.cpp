#include "agent/connection_watch.h"

namespace halyard::agent {

ConnectionWatch::ConnectionWatch(QDBusConnection connection, std::function<void()> lost)
    : connection_(std::move(connection)), lost_(std::move(lost)) {
  connect(&timer_, &QTimer::timeout, this, [this] {
    if (connection_.isConnected()) return;
    timer_.stop();
    lost_();
  });
  timer_.start(kIntervalMs);
}

}  // namespace halyard::agent
