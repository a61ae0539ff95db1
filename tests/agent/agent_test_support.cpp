#include "agent_test_support.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTimer>

#include <gtest/gtest.h>

#include "agent/status_service.h"
#include "schedule/schedule_file.h"
#include "simulation_support.h"
#include "volumes/mount_namespace_support.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent::testing {

void ensureApplication() {
  static int argc = 1;
  static char name[] = "agent_tests";
  static char* argv[] = {name, nullptr};
  static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
  (void)app;
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  ensureApplication();
  // The loop sleeps until an event comes; the tick wakes it for what no event
  // announces (a file another process writes, a state another thread sets).
  QTimer tick;
  tick.start(10);
  const QDeadlineTimer deadline(timeout);
  while (!condition()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
  }
  return true;
}

TimeInterval FakeClock::civil(int y, int mo, int d, int h, int mi, int s, double fraction) const {
  return joinInstant(cctz::convert(cctz::civil_second(y, mo, d, h, mi, s), zone_), fraction);
}

void FakeClock::setCivil(int y, int mo, int d, int h, int mi, int s, double fraction) {
  now_ = civil(y, mo, d, h, mi, s, fraction);
}

TimeInterval RealTimeClock::now() const {
  return fromUnixSeconds(std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
}

PrivateBus::PrivateBus(const std::string& type, int startTimeoutMs) {
  const QString root = dir_.path();
  const QString listen = type == "system" ? "unix:path=" + root + "/system_bus_socket" : "unix:dir=" + root;
  QFile config(root + "/bus.conf");
  config.open(QIODevice::WriteOnly);
  config.write(QString(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>%1</type>
  <listen>%2</listen>
  <auth>EXTERNAL</auth>
  <servicedir>%3/services</servicedir>
  %4
  <policy context="default">
    <allow user="*"/> <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*"/> <allow eavesdrop="true"/> <allow own="*"/>
  </policy>
</busconfig>
)")
                   .arg(QString::fromStdString(type), listen, root,
                        startTimeoutMs ? QString("<limit name=\"service_start_timeout\">%1</limit>").arg(startTimeoutMs)
                                       : QString())
                   .toUtf8());
  config.close();
  QDir(root).mkpath("services");
  start();
}

void PrivateBus::start() {
  daemon_.setProcessChannelMode(QProcess::SeparateChannels);
  daemon_.start("dbus-daemon", {"--nofork", "--print-address=1", "--config-file=" + dir_.path() + "/bus.conf"});
  QDeadlineTimer deadline(std::chrono::seconds(10));
  while (!daemon_.canReadLine() && !deadline.hasExpired()) daemon_.waitForReadyRead(100);
  address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
}

void PrivateBus::stop() {
  daemon_.terminate();
  daemon_.waitForFinished(5000);
}

void PrivateBus::restart() {
  stop();
  start();
}

PrivateBus::~PrivateBus() { stop(); }

QDBusConnection PrivateBus::connect(const QString& name) const { return QDBusConnection::connectToBus(address_, name); }

void PrivateBus::addActivatableService(const std::string& busName, const std::string& exec) const {
  QFile file(dir_.path() + QString::fromStdString("/services/" + busName + ".service"));
  file.open(QIODevice::WriteOnly);
  file.write(QString::fromStdString("[D-BUS Service]\nName=" + busName + "\nExec=" + exec + "\n").toUtf8());
}

bool PrivateBus::nameHasOwner(const QString& name) const {
  QDBusConnection probe = QDBusConnection::connectToBus(address_, "probe");
  const bool owned = probe.interface()->isServiceRegistered(name).value();
  QDBusConnection::disconnectFromBus("probe");
  return owned;
}

TestProcess::TestProcess(const std::string& program, const std::vector<std::string>& args,
                         const QString& sessionAddress, const QString& systemAddress, const Environment& extra) {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("DBUS_SESSION_BUS_ADDRESS", sessionAddress);
  env.insert("DBUS_SYSTEM_BUS_ADDRESS",
             systemAddress.isEmpty() ? "unix:path=/nonexistent/system_bus_socket" : systemAddress);
  for (const auto& [name, value] : extra) env.insert(name, value);
  process_.setProcessEnvironment(env);
  process_.setProcessChannelMode(QProcess::MergedChannels);
  QStringList arguments;
  for (const std::string& arg : args) arguments << QString::fromStdString(arg);
  process_.start(QString::fromStdString(program), arguments);
  process_.waitForStarted(5000);
}

TestProcess::~TestProcess() {
  if (process_.state() != QProcess::NotRunning) {
    process_.terminate();
    if (!process_.waitForFinished(5000)) process_.kill();
    process_.waitForFinished(5000);
  }
}

std::string TestProcess::output() {
  output_ += process_.readAll().toStdString();
  return output_;
}

bool TestProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) {
  return waitUntil([&] { return output().find(text) != std::string::npos; }, timeout);
}

bool TestProcess::waitForExit(std::chrono::milliseconds timeout) {
  return waitUntil([&] { return process_.state() == QProcess::NotRunning; }, timeout);
}

std::string halyardctlPath() { return HALYARD_BINARY_DIR "/src/tools/halyardctl"; }
std::string backgrounderPath() { return HALYARD_BINARY_DIR "/src/agent/halyard-backgrounder"; }
std::unique_ptr<TestProcess> startFakeLogind(const PrivateBus& session, const PrivateBus& system) {
  auto logind = std::make_unique<TestProcess>("/usr/bin/python3", std::vector<std::string>{fakeLogindPath()},
                                              session.address(), system.address());
  EXPECT_TRUE(logind->waitForOutput("ready"));
  return logind;
}

AgentOnBuses::AgentOnBuses(const QString& display, const QString& platform) : display_(display), platform_(platform) {
  ensureApplication();
  QDir(home_.path()).mkpath("data/Halyard");
  logind_ = startFakeLogind(session_, system_);
}

TestProcess::Environment AgentOnBuses::environment() const {
  TestProcess::Environment environment{{"XDG_DATA_HOME", home_.path() + "/data"},
                                       {"XDG_CONFIG_HOME", home_.path() + "/config"},
                                       {"TZ", "UTC"},
                                       {"LC_ALL", "C"},
                                       {"NO_AT_BRIDGE", "1"}};
  if (!display_.isEmpty())
    environment.insert(environment.end(), {{"DISPLAY", display_}, {"QT_QPA_PLATFORM", platform_}});
  return environment;
}

std::unique_ptr<TestProcess> AgentOnBuses::start() { return spawn(backgrounderPath(), {"--log-stderr"}); }

std::unique_ptr<TestProcess> AgentOnBuses::spawn(const std::string& program, const std::vector<std::string>& args) {
  return std::make_unique<TestProcess>(program, args, session_.address(), system_.address(), environment());
}

QVariantMap AgentOnBuses::status() const {
  QDBusConnection connection = session_.connect("agent-status");
  const QDBusReply<QVariantMap> reply =
      QDBusInterface(kAgentBusName, kAgentObjectPath, kAgentInterface, connection).call("Status");
  QDBusConnection::disconnectFromBus("agent-status");
  return reply.isValid() ? reply.value() : QVariantMap();
}

std::string childStateProbePath() { return HALYARD_BINARY_DIR "/tests/agent/child_state_probe"; }
std::string fakeLogindPath() { return HALYARD_SOURCE_DIR "/tests/agent/fake_logind.py"; }

std::shared_ptr<KSScheduledItem> makeItem(const std::string& description, int hour, int minute, int type) {
  // 2001-01-01 00:00:00 UTC: a start date long before every test moment.
  auto item = timedItem(description, type, oneHour(hour), minutes(minute, minute), 0);
  item->setDocumentPathName("/tmp/" + description + ".hsync");
  item->setScheduledMonths(std::string(12, '1'));
  return item;
}

std::shared_ptr<KSScheduledItem> mountItemRecordedFrom(::halyard::testing::Scratch& scratch, const std::string& image) {
  if (!scratch.mount("-o loop", scratch.path(image), "first")) return nullptr;
  auto item = makeItem("on-mount", 0, 0, 6);
  item->setScheduledLeftTargetMounts(1);
  item->setLeftTargetVolumeSpecifier(
      VolumeSpecifier::volumeSpecifierWithPath(scratch.path("first"), fileservices::VTFileManager::make()));
  EXPECT_TRUE(scratch.unmount("first"));
  return item;
}

void writeSchedule(const std::string& path, const std::vector<std::shared_ptr<KSScheduledItem>>& items) {
  ScheduleData data{Dictionary::make(true), items};
  const Status written = writeScheduleFile(path, data);
  if (!written) throw std::runtime_error(written.error().describe());
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

}  // namespace halyard::agent::testing
