// halyard-backgrounder: the agent process. Registers for system power
// events, claims the session's agent name, makes the one HalyardDaemon and
// runs the event loop until a quit request, SIGTERM or SIGINT.

#include <cstring>
#include <iostream>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>

#include "agent/clock.h"
#include "agent/dbus_notification_bus.h"
#include "agent/halyard_daemon.h"
#include "agent/launch_platform_linux.h"
#include "agent/libmount_event_source.h"
#include "agent/power_logind.h"
#include "agent/service_notifier.h"
#include "agent/termination_signals.h"
#include "foundation/log_sink.h"

namespace {

// One agent per session: two would hand every item over twice.
constexpr char kAgentBusName[] = "com.vantrel.halyard.Backgrounder";

bool hasArgument(int argc, char** argv, const char* wanted) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], wanted) == 0) return true;
  }
  return false;
}

constexpr char kUsage[] =
    "usage: halyard-backgrounder [--log-stderr]\n"
    "       halyard-backgrounder --version | --help\n\n"
    "The background agent of Halyard: runs the scheduled synchronisations of\n"
    "~/.local/share/Halyard/ScheduleData.sched. Started by its systemd user unit\n"
    "(halyard-backgrounder.service) or the desktop's autostart; see\n"
    "halyard-backgrounder(1).\n\n"
    "  --log-stderr  copy every log line to standard error\n"
    "  --version     print the version and exit\n"
    "  --help        print this text and exit\n";

// Tells the service manager the agent is up, then keeps its watchdog fed
// from the event loop, so a stalled main thread gets the agent restarted.
void startServiceNotifications(const halyard::agent::ServiceNotifier& service, QTimer& watchdog) {
  if (const auto interval = service.watchdogInterval()) {
    QObject::connect(&watchdog, &QTimer::timeout, [&service] { service.watchdogAlive(); });
    watchdog.start(*interval);
  }
  QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, [&service] { service.stopping(); });
  service.ready();
}

}  // namespace

int main(int argc, char** argv) {
  using namespace halyard::agent;
  if (hasArgument(argc, argv, "--version")) {
    std::cout << "halyard-backgrounder " << HALYARD_VERSION << "\n";
    return 0;
  }
  if (hasArgument(argc, argv, "--help")) {
    std::cout << kUsage;
    return 0;
  }
  ignoreBrokenPipes();
  QCoreApplication app(argc, argv);
  halyard::setLogToStandardError(hasArgument(argc, argv, "--log-stderr"));

  const auto registrationFailed = [] {
    std::cout << "IORegisterForSystemPower failed" << std::endl;
    return 1;
  };
  // Power events come from logind on the system bus: without it there is no registration.
  QDBusConnection system = QDBusConnection::systemBus();
  if (!system.isConnected()) return registrationFailed();

  QDBusConnection session = QDBusConnection::sessionBus();
  if (!session.isConnected()) {
    std::cerr << "halyard-backgrounder: cannot reach the session bus\n";
    return 1;
  }
  if (!session.registerService(kAgentBusName)) {
    std::cerr << "halyard-backgrounder: another agent already runs in this session (" << kAgentBusName
              << " is owned)\n";
    return 0;
  }

  // The daemon instance the power callback reaches; set once it exists.
  HalyardDaemon* daemonInstance = nullptr;
  LogindPower power(system, [&daemonInstance](PowerMessage message) {
    if (message == PowerMessage::HasPoweredOn && daemonInstance) daemonInstance->setAwokeFromSleep(true);
  });
  if (!power.registerForSystemPower()) return registrationFailed();

  SystemClock clock;
  DBusNotificationBus bus(session);
  Preferences preferences(Preferences::defaultFilePath());
  LinuxLaunchPlatform launcher(session);
  auto mounts = LibmountEventSource::open(halyard::linuxVolumeQueries());
  if (!mounts) halyard::logLine("<Error:> No mount events: " + mounts.error().describe(), halyard::LogPriority::Error);
  HalyardDaemon daemon({.clock = clock,
                        .bus = bus,
                        .preferences = preferences,
                        .launcher = launcher,
                        .paths = AgentPaths::forCurrentUser(),
                        .mounts = mounts ? mounts->get() : nullptr,
                        .terminate = [] { QCoreApplication::quit(); }});
  daemonInstance = &daemon;
  QObject::connect(&app, &QCoreApplication::aboutToQuit, [&daemon] { daemon.shutdown(); });
  onTerminationSignals([] { QCoreApplication::quit(); });
  daemon.awakeFromNib();
  const ServiceNotifier service = ServiceNotifier::fromEnvironment();
  QTimer watchdog;
  startServiceNotifications(service, watchdog);
  return app.exec();
}
