#include "agent/launch_platform_linux.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QSocketNotifier>
#include <QTimer>

#include "agent/child_process.h"

namespace halyard::agent {

namespace {

constexpr char kBusService[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";
// How long a foreground launch waits for the application's bus name.
constexpr int kActivateWaitMs = 30000;
// How long an activation may take before it counts as failed; the bus's own
// limit (25 s by default) usually answers first.
constexpr int kActivationTimeoutMs = 120000;

QDBusMessage busCall(const char* method) {
  return QDBusMessage::createMethodCall(kBusService, kBusPath, kBusService, method);
}

// Calls `handle` with the reply of an asynchronous call, on the event loop;
// the watcher goes with `context`, so a reply after it is gone is dropped.
template <class Handle>
void whenAnswered(const QDBusPendingCall& call, QObject* context, Handle handle) {
  auto* watcher = new QDBusPendingCallWatcher(call, context);
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                   [handle = std::move(handle)](QDBusPendingCallWatcher* finished) {
                     handle(*finished);
                     finished->deleteLater();
                   });
}

}  // namespace

LinuxLaunchPlatform::LinuxLaunchPlatform(QDBusConnection session)
    : session_(std::move(session)), watcher_(kApplicationBusName, session_, QDBusServiceWatcher::WatchForOwnerChange) {
  connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
          [this](const QString&, const QString&, const QString& newOwner) { running_ = !newOwner.isEmpty(); });
  QDBusMessage ask = busCall("NameHasOwner");
  ask << QString(kApplicationBusName);
  whenAnswered(session_.asyncCall(ask), this, [this](const QDBusPendingReply<bool>& reply) {
    if (reply.isValid() && !running_) running_ = reply.value();
  });
}

std::int16_t LinuxLaunchPlatform::findApplication() {
  if (!session_.isConnected()) return launch_status::kRegistryFailed;
  return running_.value_or(false) ? launch_status::kNoError : launch_status::kProcessNotFound;
}

void LinuxLaunchPlatform::activateApplication(StatusHandler done) {
  QDBusMessage call = busCall("StartServiceByName");
  call << QString(kApplicationBusName) << 0u;
  whenAnswered(session_.asyncCall(call, kActivationTimeoutMs), this,
               [done = std::move(done)](const QDBusPendingReply<unsigned>& reply) {
                 if (reply.isValid()) return done(launch_status::kNoError);
                 done(reply.error().type() == QDBusError::ServiceUnknown ? launch_status::kApplicationNotFound
                                                                         : launch_status::kRegistryFailed);
               });
}

std::int16_t LinuxLaunchPlatform::launchProgram(const std::vector<std::string>& argv, bool inBackground) {
  const std::int16_t status = spawnDetached(argv);
  if (status == launch_status::kNoError && !inBackground) activateWhenRunning();
  return status;
}

void LinuxLaunchPlatform::activateWhenRunning() {
  auto* watcher =
      new QDBusServiceWatcher(kApplicationBusName, session_, QDBusServiceWatcher::WatchForRegistration, this);
  auto activate = [connection = session_]() mutable {
    QDBusMessage call = QDBusMessage::createMethodCall(kApplicationBusName, "/com/vantrel/halyard",
                                                       "org.freedesktop.Application", "Activate");
    call << QVariantMap();
    connection.send(call);
  };
  connect(watcher, &QDBusServiceWatcher::serviceRegistered, watcher, [watcher, activate]() mutable {
    activate();
    watcher->deleteLater();
  });
  QTimer::singleShot(kActivateWaitMs, watcher, &QObject::deleteLater);
  if (findApplication() == launch_status::kNoError) {
    activate();
    watcher->deleteLater();
  }
}

void LinuxLaunchPlatform::openDocument(const std::string& path, OpenHandler done) {
  const auto child = spawnChild({"xdg-open", path});
  if (!child) return done(-1);
  auto* ended = new QSocketNotifier(child->pidfd, QSocketNotifier::Read, this);
  connect(ended, &QSocketNotifier::activated, ended, [ended, child = *child, done = std::move(done)] {
    ended->setEnabled(false);
    ended->deleteLater();
    done(reapChild(child));
  });
}

}  // namespace halyard::agent
