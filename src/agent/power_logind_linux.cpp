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
  logindWatch_ =
      std::make_unique<QDBusServiceWatcher>(kLogindService, system_, QDBusServiceWatcher::WatchForRegistration);
  connect(logindWatch_.get(), &QDBusServiceWatcher::serviceRegistered, this, [this] {
    logLine("logind has started; taking the sleep delay inhibitor again.");
    takeDelayInhibitor();
    idleInhibitor_ = QDBusUnixFileDescriptor();
    if (idleVetoWanted_) takeIdleInhibitor();
  });
  connectionWatch_ = std::make_unique<ConnectionWatch>(system_, [this] { systemBusLost(); });
  takeDelayInhibitor();
  return true;
}

namespace {
QDBusMessage inhibitCall(const char* what, const char* why, const char* mode) {
  QDBusMessage call = QDBusMessage::createMethodCall(kLogindService, kLogindPath, kLogindManager, "Inhibit");
  call << QString(what) << QString("Halyard Backgrounder") << QString(why) << QString(mode);
  return call;
}
}  // namespace

void LogindPower::takeDelayInhibitor() {
  const QDBusMessage call =
      inhibitCall("sleep", "Arranges the wake-up for the next scheduled synchronisation", "delay");
  auto* watcher = new QDBusPendingCallWatcher(system_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *finished;
    if (reply.isValid()) inhibitor_ = reply.value();
    finished->deleteLater();
  });
}

void LogindPower::setIdleVeto(bool veto) {
  idleVetoWanted_ = veto;
  if (!veto) idleInhibitor_ = QDBusUnixFileDescriptor();  // closing it lets idle sleep go again
  if (veto && !idleInhibitor_.isValid() && !idleInhibitPending_) takeIdleInhibitor();
}

// An answer that comes after the veto ended is dropped, which closes it.
void LogindPower::takeIdleInhibitor() {
  if (!system_.isConnected()) return;
  idleInhibitPending_ = true;
  const QDBusMessage call = inhibitCall("idle", "A scheduled synchronisation is about to run", "block");
  auto* watcher = new QDBusPendingCallWatcher(system_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    idleInhibitPending_ = false;
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *finished;
    if (reply.isValid() && idleVetoWanted_) idleInhibitor_ = reply.value();
    finished->deleteLater();
  });
}

void LogindPower::systemBusLost() {
  logLine("<Error:> The system bus is gone; connecting again when it is back.", LogPriority::Error);
  inhibitor_ = QDBusUnixFileDescriptor();
  idleInhibitor_ = QDBusUnixFileDescriptor();
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
    if (idleVetoWanted_) takeIdleInhibitor();
    logLine("The system bus is back; subscribed to PrepareForSleep again, taking the sleep delay inhibitor again.");
  });
}

void LogindPower::onPrepareForSleep(bool start) {
  const int sleep = ++sleeps_;
  if (start) {
    callback_(PowerMessage::WillSleep);
    if (preparation_) {
      preparation_([this, sleep] { allowSleep(sleep); });
    } else {
      allowSleep(sleep);
    }
  } else {
    callback_(PowerMessage::HasPoweredOn);
    takeDelayInhibitor();
  }
}

void LogindPower::allowSleep(int sleep) {
  if (sleep == sleeps_) inhibitor_ = QDBusUnixFileDescriptor();  // closing it allows the sleep
}

}  // namespace halyard::agent
