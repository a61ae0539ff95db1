#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include "agent/power_logind.h"

namespace halyard::agent {

namespace {
constexpr char kLogindService[] = "org.freedesktop.login1";
constexpr char kLogindPath[] = "/org/freedesktop/login1";
constexpr char kLogindManager[] = "org.freedesktop.login1.Manager";
}  // namespace

LogindPower::LogindPower(QDBusConnection system, Callback callback)
    : system_(std::move(system)), callback_(std::move(callback)) {}

bool LogindPower::registerForSystemPower() {
  if (!system_.isConnected()) return false;
  if (!system_.connect(kLogindService, kLogindPath, kLogindManager, "PrepareForSleep", this,
                       SLOT(onPrepareForSleep(bool)))) {
    return false;
  }
  takeDelayInhibitor();
  return true;
}

void LogindPower::takeDelayInhibitor() {
  QDBusMessage call = QDBusMessage::createMethodCall(kLogindService, kLogindPath, kLogindManager, "Inhibit");
  call << QString("sleep") << QString("Halyard Backgrounder")
       << QString("Arranges the wake-up for the next scheduled synchronisation") << QString("delay");
  auto* watcher = new QDBusPendingCallWatcher(system_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *finished;
    if (reply.isValid()) inhibitor_ = reply.value();
    finished->deleteLater();
  });
}

void LogindPower::onPrepareForSleep(bool start) {
  if (start) {
    callback_(PowerMessage::WillSleep);
    inhibitor_ = QDBusUnixFileDescriptor();  // closing it allows the sleep
  } else {
    callback_(PowerMessage::HasPoweredOn);
    takeDelayInhibitor();
  }
}

}  // namespace halyard::agent
