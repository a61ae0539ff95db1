// halyard-backgrounder: the agent process. Registers for system power
// events, claims the session's agent name, makes the one HalyardDaemon and
// runs the event loop until a quit request, SIGTERM, SIGINT or SIGHUP. When
// the session bus goes, it stops with status 2 so that its service manager
// starts it again: without the bus it can hand nothing over.

#include <cstring>
#include <iostream>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QTimer>

#include "agent/clock.h"
#include "agent/connection_watch.h"
#include "agent/dbus_notification_bus.h"
#include "agent/halyard_daemon.h"
#include "agent/launch_platform_linux.h"
#include "agent/libmount_event_source.h"
#include "agent/power_logind.h"
#include "agent/service_notifier.h"
#include "agent/status_service.h"
#include "agent/termination_signals.h"
#include "agent/wake_tool_process.h"
#include "foundation/log_sink.h"
#include "ui/application.h"
#include "volumes/time_limited_volume_queries.h"

namespace {

constexpr int kSessionBusLostStatus = 2;

// A fresh connection to the system bus each time, so that one made after the
// bus restarted is not the dead one again.
QDBusConnection connectToSystemBus() {
  static int made = 0;
  return QDBusConnection::connectToBus(QDBusConnection::SystemBus, QString("halyard-system-%1").arg(++made));
}

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
  // A QApplication with a display (status item, alert panel), else a QCoreApplication.
  const std::unique_ptr<QCoreApplication> app = halyard::ui::makeApplication(argc, argv);
  halyard::setLogToStandardError(hasArgument(argc, argv, "--log-stderr"));

  const auto registrationFailed = [] {
    std::cout << "IORegisterForSystemPower failed" << std::endl;
    return 1;
  };
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
  // Power events come from logind on the system bus: without it there is no registration.
  LogindPower power(connectToSystemBus, [&daemonInstance](PowerMessage message) {
    if (message == PowerMessage::HasPoweredOn && daemonInstance) daemonInstance->systemHasPoweredOn();
  });
  power.setSleepPreparation([&daemonInstance](std::function<void()> allowSleep) {
    if (!daemonInstance) return allowSleep();
    daemonInstance->systemWillSleep(std::move(allowSleep));
  });
  if (!power.registerForSystemPower()) return registrationFailed();

  // Volumes are probed with a time limit: a dead network mount must not hold a check.
  auto volumeQueries = std::make_shared<halyard::TimeLimitedVolumeQueries>(halyard::linuxVolumeQueries());
  halyard::fileservices::VTFileManager::sharedFileManager().setVolumeQueries(volumeQueries);
  SystemClock clock;
  DBusNotificationBus bus(session);
  Preferences preferences(Preferences::defaultFilePath());
  LinuxLaunchPlatform launcher(session);
  auto mounts = LibmountEventSource::open(volumeQueries);
  if (!mounts) halyard::logLine("<Error:> No mount events: " + mounts.error().describe(), halyard::LogPriority::Error);
  halyard::ui::UserInterface ui = halyard::ui::makeUserInterface();
  const AgentPaths paths = AgentPaths::forCurrentUser();
  auto wakeTool = std::make_shared<ProcessWakeTool>(paths.helperToolFolders, paths.helperToolTemplate);
  HalyardDaemon daemon({.clock = clock,
                        .bus = bus,
                        .preferences = preferences,
                        .launcher = launcher,
                        .paths = paths,
                        .mounts = mounts ? mounts->get() : nullptr,
                        .statusItem = ui.statusItem.get(),
                        .alertPanel = ui.alertPanel.get(),
                        .terminate = [] { QCoreApplication::quit(); },
                        .wakeTool = wakeTool,
                        .idleSleepVeto = [&power](bool veto) { power.setIdleVeto(veto); }});
  daemonInstance = &daemon;
  ui.connectTo(daemon);
  StatusService statusService([&daemon] { return daemon.status(); });
  statusService.exportOn(session);
  ConnectionWatch sessionWatch(session, [] {
    halyard::logLine("<Error:> The session bus is gone; the agent stops.", halyard::LogPriority::Error);
    QCoreApplication::exit(kSessionBusLostStatus);
  });
  QObject::connect(app.get(), &QCoreApplication::aboutToQuit, [&daemon] { daemon.shutdown(); });
  onTerminationSignals([] { QCoreApplication::quit(); });
  daemon.awakeFromNib();
  const ServiceNotifier service = ServiceNotifier::fromEnvironment();
  QTimer watchdog;
  startServiceNotifications(service, watchdog);
  return app->exec();
}
