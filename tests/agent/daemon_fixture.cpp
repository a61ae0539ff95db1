#include "daemon_fixture.h"

#include <QDBusConnectionInterface>
#include <QDir>

namespace halyard::agent::testing {

namespace {
int connectionCounter = 0;
}

DaemonFixture::DaemonFixture()
    : agentName_(QString("agent%1").arg(++connectionCounter)),
      recorderName_(QString("recorder%1").arg(connectionCounter)),
      agentConnection_((ensureApplication(), bus_.connect(agentName_))),
      recorderConnection_(bus_.connect(recorderName_)) {
  notifications_ = std::make_unique<DBusNotificationBus>(agentConnection_);
  recorder_ = std::make_unique<DBusNotificationBus>(recorderConnection_);
  recorder_->observeAll([this](const QString& name, const QVariantMap& info) { seen_.emplace_back(name, info); });
  recorderConnection_.interface()->isServiceRegistered("org.freedesktop.DBus");  // match rule in place
  preferences_ = std::make_unique<Preferences>(QString::fromStdString(path("halyard.conf")));
  launcher_ = std::make_unique<LinuxLaunchPlatform>(agentConnection_);
  waitUntil([this] { return launcher_->knowsApplicationState(); });
  QDir(dir_.path()).mkpath("media");
  QDir(dir_.path()).mkpath("data");
}

DaemonFixture::~DaemonFixture() {
  daemon_.reset();
  launcher_.reset();
  notifications_.reset();
  recorder_.reset();
  QDBusConnection::disconnectFromBus(agentName_);
  QDBusConnection::disconnectFromBus(recorderName_);
}

AgentPaths DaemonFixture::paths() const {
  AgentPaths paths;
  paths.scheduleFile = path("ScheduleData.sched");
  paths.launchPathFile = path("LaunchPath");
  paths.volumesRoot = path("media");
  paths.savedCheckFile = path("state/last-check");
  paths.applicationPaths = {path("bin/halyard"), path("local/bin/halyard")};
  paths.dataDirs = {path("data")};
  paths.helperToolTemplate = helperToolTemplate_;
  paths.helperToolFolders = helperToolFolders_;
  return paths;
}

void DaemonFixture::makeDaemon(Clock& clock, bool steppedBeats) {
  daemon_.reset();  // the old monitor lets go of the mount source first
  daemon_ = std::make_unique<HalyardDaemon>(DaemonEnvironment{.clock = clock,
                                                              .bus = *notifications_,
                                                              .preferences = *preferences_,
                                                              .launcher = *launcher_,
                                                              .paths = paths(),
                                                              .mounts = &mounts_,
                                                              .fileManager = fileManager_,
                                                              .statusItem = &statusItem_,
                                                              .alertPanel = &alertPanel_,
                                                              .standardOutput = &out_,
                                                              .terminate = [this] { ++terminations_; },
                                                              .steppedBeats = steppedBeats,
                                                              .wakeTool = wakeTool_,
                                                              .idleSleepVeto = idleSleepVeto_});
}

void DaemonFixture::beatAt(int h, int m, int s, double fraction) {
  clock_.setCivil(2026, 3, 4, h, m, s, fraction);
  daemon_->heartbeat();
}

std::vector<std::string> DaemonFixture::parked() { return descriptions(daemon_->notifyMonitor()->addedItems()); }

std::vector<QVariantMap> DaemonFixture::seen(const QString& name) const {
  std::vector<QVariantMap> found;
  for (const auto& [seenName, info] : seen_) {
    if (seenName == name) found.push_back(info);
  }
  return found;
}

bool DaemonFixture::waitForSeen(const QString& name, std::size_t count) {
  return waitUntil([&] { return seen(name).size() >= count; });
}

std::vector<std::string> descriptions(const std::vector<ObjectRef>& items) {
  std::vector<std::string> names;
  for (const ObjectRef& object : items) {
    auto item = objectAs<KSScheduledItem>(object);
    names.push_back(item ? item->description().value_or("?") : "(not an item)");
  }
  return names;
}

}  // namespace halyard::agent::testing
