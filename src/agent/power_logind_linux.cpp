#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include "agent/power_logind.h"
#include "foundation/log_sink.h"

namespace halyard::agent {

namespace {
constexpr char kLogindService[] = "org.freedesktop.login1";
constexpr char kLogindPath[] = "/org/freedesktop/login1";
constexpr char kLogindManager[] = "org.freedesktop.login1.Manager";
// How often a lost system bus is tried again.
constexpr int kReconnectIntervalMs = 500;
}  // namespace

LogindPower::LogindPower(Connector connector, Callback callback)
    : connector_(std::move(connector)), callback_(std::move(callback)), system_(QString()) {
  reconnectTimer_.setInterval(kReconnectIntervalMs);
  connect(&reconnectTimer_, &QTimer::timeout, this, &LogindPower::tryToReconnect);
}

LogindPower::~LogindPower() {
  if (!system_.name().isEmpty()) QDBusConnection::disconnectFromBus(system_.name());
}

bool LogindPower::registerForSystemPower() {
  system_ = connector_();
  return subscribe();
}

bool LogindPower::subscribe() {
  if (!system_.isConnected()) return false;
  if (!system_.connect(kLogindService, kLogindPath, kLogindManager, "PrepareForSleep", this,
                       SLOT(onPrepareForSleep(bool)))) {
    return false;
  }
  // Each time logind takes its name (a restart, or a late start) it knows
  // nothing of the inhibitor held from its predecessor.
  logindWatch_ = std::make_unique<QDBusServiceWatcher>(kLogindService, system_,
                                                       QDBusServiceWatcher::WatchForRegistration);
  connect(logindWatch_.get(), &QDBusServiceWatcher::serviceRegistered, this, [this] {
    logLine("logind has started; taking the sleep delay inhibitor again.");
    takeDelayInhibitor();
  });
  connectionWatch_ = std::make_unique<ConnectionWatch>(system_, [this] { systemBusLost(); });
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

void LogindPower::systemBusLost() {
  logLine("<Error:> The system bus is gone; connecting again when it is back.", LogPriority::Error);
  inhibitor_ = QDBusUnixFileDescriptor();
  logindWatch_.reset();
  QDBusConnection::disconnectFromBus(system_.name());
  system_ = QDBusConnection(QString());
  reconnectTimer_.start();
}

// Connecting waits on the bus daemon, so it is done off the event loop.
void LogindPower::tryToReconnect() {
  if (reconnecting_) return;
  reconnecting_ = true;
  background_.run<QDBusConnection>(connector_, [this](QDBusConnection connection) {
    reconnecting_ = false;
    if (!reconnectTimer_.isActive()) return;
    system_ = connection;
    if (!subscribe()) {
      QDBusConnection::disconnectFromBus(connection.name());
      system_ = QDBusConnection(QString());
      return;
    }
    reconnectTimer_.stop();
    ++resubscriptions_;
    logLine("The system bus is back; subscribed to PrepareForSleep again, taking the sleep delay inhibitor again.");
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
