#pragma once
// What the agent's tests share: the Qt application, waiting on a condition
// with a deadline, a fake clock, private D-Bus buses started from the test,
// the fake logind, and schedule files written with the schedule library.

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QDBusConnection>
#include <QProcess>
#include <QTemporaryDir>

#include "agent/clock.h"
#include "agent/mount_event_source.h"
#include "schedule/scheduled_item.h"
#include "volumes/fake_volume_queries.h"

namespace halyard::testing {
class Scratch;
}

namespace halyard::agent::testing {

// The process's one QCoreApplication (made on first use).
void ensureApplication();

// Runs the event loop until `condition` holds or `timeout` passes; answers the condition.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout = std::chrono::seconds(10));

// The real time in UTC, never the host's zone.
class RealTimeClock final : public Clock {
 public:
  TimeInterval now() const override;
  const cctz::time_zone& zone() const override { return zone_; }

 private:
  cctz::time_zone zone_ = cctz::utc_time_zone();
};

// A clock the test sets; the zone is a named one, never the host's.
class FakeClock final : public Clock {
 public:
  FakeClock() { cctz::load_time_zone("Europe/Berlin", &zone_); }
  TimeInterval now() const override { return now_; }
  const cctz::time_zone& zone() const override { return zone_; }
  void set(TimeInterval t) { now_ = t; }
  // Sets the clock to a civil moment in its zone, plus a fraction of a second.
  void setCivil(int y, int mo, int d, int h, int mi, int s, double fraction = 0);
  TimeInterval civil(int y, int mo, int d, int h, int mi, int s, double fraction = 0) const;

 private:
  cctz::time_zone zone_;
  TimeInterval now_ = 0;
};

// A mount-event source the test feeds.
class TestMountSource final : public MountEventSource {
 public:
  void setHandler(Handler handler) override { handler_ = std::move(handler); }
  void mount(const std::string& path) {
    if (handler_) handler_(path);
  }

 private:
  Handler handler_;
};

// A dbus-daemon of its own ("session" or "system" type), with a service
// folder for activation; stopped and removed when the object goes.
// `startTimeoutMs` (when not 0) is how long the bus waits for an activated
// service to take its name.
class PrivateBus {
 public:
  explicit PrivateBus(const std::string& type = "session", int startTimeoutMs = 0);
  ~PrivateBus();
  // Stops the dbus-daemon (its clients lose their connections).
  void stop();
  // Stops it and starts it again; a "system" bus keeps its address.
  void restart();
  const QString& address() const { return address_; }
  // A new connection of this test process to the bus.
  QDBusConnection connect(const QString& name) const;
  // Makes `busName` activatable: starts `exec` (a command line) when asked for.
  void addActivatableService(const std::string& busName, const std::string& exec) const;
  bool nameHasOwner(const QString& name) const;

 private:
  void start();

  QTemporaryDir dir_;
  QProcess daemon_;
  QString address_;
};

// A process of the test on the private buses (halyardctl, the fake logind),
// its output collected as it comes.
class TestProcess {
 public:
  using Environment = std::vector<std::pair<QString, QString>>;
  // With no system bus address the process sees none (a path that does not exist).
  TestProcess(const std::string& program, const std::vector<std::string>& args, const QString& sessionAddress,
              const QString& systemAddress = {}, const Environment& extra = {});
  ~TestProcess();
  std::string output();  // stdout and stderr so far
  bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(10));
  bool waitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));
  QProcess& process() { return process_; }

 private:
  QProcess process_;
  std::string output_;
};

// The fake logind on `system`, once it owns its name.
std::unique_ptr<TestProcess> startFakeLogind(const PrivateBus& session, const PrivateBus& system);

// The agent executable as a user runs it: its files under a temporary home,
// a private session bus, a private system bus with the fake logind, and on a
// display with a Qt platform when given (else with none).
class AgentOnBuses {
 public:
  explicit AgentOnBuses(const QString& display = {}, const QString& platform = {});
  std::string dataFolder() const { return home_.path().toStdString() + "/data/Halyard"; }
  std::unique_ptr<TestProcess> start();
  // A process of the test on the same buses and display (halyardctl, a fake).
  std::unique_ptr<TestProcess> spawn(const std::string& program, const std::vector<std::string>& args);
  // The figures the running agent reports through its Status method; empty when it does not answer.
  QVariantMap status() const;

  PrivateBus session_;
  PrivateBus system_{"system"};

 private:
  TestProcess::Environment environment() const;
  QString display_, platform_;
  QTemporaryDir home_;
  std::unique_ptr<TestProcess> logind_;
};

// Paths of the built programs and the test's scripts.
std::string halyardctlPath();
std::string backgrounderPath();
std::string fakeLogindPath();
std::string childStateProbePath();

// A scheduled item for the tests: active, every day, month and weekday,
// at one hour and minute, of `type`, with a start date long past.
std::shared_ptr<KSScheduledItem> makeItem(const std::string& description, int hour, int minute, int type = 5);
// A volume-mount item "on-mount" whose left target is the volume of the
// image `image` in `scratch`, recorded from one mount of it; null when the
// image cannot be mounted here.
std::shared_ptr<KSScheduledItem> mountItemRecordedFrom(::halyard::testing::Scratch& scratch, const std::string& image);
// Writes the items as a schedule file with the schedule library.
void writeSchedule(const std::string& path, const std::vector<std::shared_ptr<KSScheduledItem>>& items);

// Sets environment variables for its lifetime and puts the old values back.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(std::initializer_list<std::pair<const char*, const char*>> values) {
    for (const auto& [name, value] : values) {
      const char* old = std::getenv(name);
      saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
      if (value) setenv(name, value, 1);
      else unsetenv(name);
    }
  }
  ~ScopedEnvironment() {
    for (const auto& [name, old] : saved_) {
      if (old) setenv(name.c_str(), old->c_str(), 1);
      else unsetenv(name.c_str());
    }
  }

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

// How many times `part` stands in `text`, without overlaps.
std::size_t occurrences(const std::string& text, const std::string& part);

}  // namespace halyard::agent::testing
