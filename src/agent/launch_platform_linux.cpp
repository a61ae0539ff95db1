#include "agent/launch_platform_linux.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QStandardPaths>
#include <QTimer>

namespace halyard::agent {

namespace {

// How long a foreground launch waits for the application's bus name.
constexpr int kActivateWaitMs = 30000;

std::int16_t negativeErrno(int error) { return static_cast<std::int16_t>(-error); }

// Resolves a bare program name through PATH before forking, since the child
// may only make async-signal-safe calls.
std::string resolveProgram(const std::string& program) {
  if (program.find('/') != std::string::npos) return program;
  const QString found = QStandardPaths::findExecutable(QString::fromStdString(program));
  return found.isEmpty() ? program : found.toStdString();
}

// In the grandchild: a session of its own, the standard streams on /dev/null,
// then exec; on failure the errno goes up the report pipe.
[[noreturn]] void execDetached(const std::string& path, char* const* argv, int reportFd) {
  setsid();
  const pid_t grandchild = fork();
  if (grandchild < 0) {
    const int error = errno;
    (void)!write(reportFd, &error, sizeof error);
    _exit(127);
  }
  if (grandchild > 0) _exit(0);
  const int devnull = open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) dup2(devnull, fd);
  execv(path.c_str(), argv);
  const int error = errno;
  (void)!write(reportFd, &error, sizeof error);
  _exit(127);
}

}  // namespace

std::int16_t LinuxLaunchPlatform::findApplication() {
  const QDBusReply<bool> reply = session_.interface()->isServiceRegistered(kApplicationBusName);
  if (!reply.isValid()) return launch_status::kRegistryFailed;
  return reply.value() ? launch_status::kNoError : launch_status::kProcessNotFound;
}

std::int16_t LinuxLaunchPlatform::activateApplication() {
  const QDBusReply<void> reply = session_.interface()->startService(kApplicationBusName);
  if (reply.isValid()) return launch_status::kNoError;
  if (reply.error().type() == QDBusError::ServiceUnknown) return launch_status::kApplicationNotFound;
  return launch_status::kRegistryFailed;
}

std::int16_t LinuxLaunchPlatform::launchProgram(const std::vector<std::string>& argv, bool inBackground) {
  if (argv.empty()) return launch_status::kFileNotFound;
  const std::string path = resolveProgram(argv.front());
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);

  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return negativeErrno(errno);
  const pid_t child = fork();
  if (child < 0) {
    const int error = errno;
    close(report[0]);
    close(report[1]);
    return negativeErrno(error);
  }
  if (child == 0) execDetached(path, args.data(), report[1]);
  close(report[1]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  int execError = 0;
  const ssize_t got = read(report[0], &execError, sizeof execError);
  close(report[0]);
  if (got == sizeof execError) return launch_status::kFileNotFound;
  if (!inBackground) activateWhenRunning();
  return launch_status::kNoError;
}

void LinuxLaunchPlatform::activateWhenRunning() {
  auto* watcher = new QDBusServiceWatcher(kApplicationBusName, session_, QDBusServiceWatcher::WatchForRegistration);
  auto activate = [connection = session_]() mutable {
    QDBusMessage call = QDBusMessage::createMethodCall(kApplicationBusName, "/com/vantrel/halyard",
                                                       "org.freedesktop.Application", "Activate");
    call << QVariantMap();
    connection.call(call, QDBus::NoBlock);
  };
  QObject::connect(watcher, &QDBusServiceWatcher::serviceRegistered, watcher, [watcher, activate]() mutable {
    activate();
    watcher->deleteLater();
  });
  QTimer::singleShot(kActivateWaitMs, watcher, &QObject::deleteLater);
  if (findApplication() == launch_status::kNoError) {
    activate();
    watcher->deleteLater();
  }
}

bool LinuxLaunchPlatform::openDocument(const std::string& path) {
  return launchProgram({"xdg-open", path}, true) == launch_status::kNoError;
}

}  // namespace halyard::agent
