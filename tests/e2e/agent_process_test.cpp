// The agent on private buses with the real clock: the executable's power
// registration failure, one agent per session, stopping by signal, by a quit
// notification or by losing the session bus, and a due item handed over at
// the next whole minute; and, in this process, daemons whose application is
// slow to start or never starts under activation, which still beat at the
// next minute's second 0.

#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <sstream>

#include "agent/agent_test_support.h"
#include "agent/daemon_fixture.h"
#include "agent/dbus_notification_bus.h"
#include "agent/halyard_daemon.h"
#include "agent/hand_over.h"
#include "agent/launch_platform_linux.h"
#include "foundation/file_io.h"
#include "schedule/scheduled_item.h"

namespace halyard::agent::testing {
namespace {

class AgentProcessTest : public ::testing::Test {
 protected:
  AgentProcessTest() { ensureApplication(); }
  // The agent's files in the temporary folder; its zone is UTC whatever the host's.
  TestProcess::Environment environment() const {
    return {{"XDG_DATA_HOME", home_.path() + "/data"}, {"XDG_CONFIG_HOME", home_.path() + "/config"}, {"TZ", "UTC"}};
  }
  std::unique_ptr<TestProcess> startAgent() {
    auto agent = std::make_unique<TestProcess>(backgrounderPath(), std::vector<std::string>{"--log-stderr"},
                                               session_.address(), system_.address(), environment());
    EXPECT_TRUE(agent->waitForOutput("Halyard Backgrounder v4.0.5 is running."));
    return agent;
  }
  std::unique_ptr<TestProcess> startLogind() { return startFakeLogind(session_, system_); }

  QTemporaryDir home_;
  PrivateBus session_;
  PrivateBus system_{"system"};
};

TEST_F(AgentProcessTest, WithoutASystemBusTheRegistrationFailsWithStatus1) {
  TestProcess agent(backgrounderPath(), {}, session_.address(), {}, environment());
  ASSERT_TRUE(agent.waitForExit());
  EXPECT_EQ(agent.process().exitCode(), 1);
  EXPECT_EQ(agent.output(), "IORegisterForSystemPower failed\n");
}

TEST_F(AgentProcessTest, ASecondAgentLeavesTheFirstAlone) {
  auto logind = startLogind();
  auto first = startAgent();
  TestProcess second(backgrounderPath(), {}, session_.address(), system_.address(), environment());
  ASSERT_TRUE(second.waitForExit());
  EXPECT_EQ(second.process().exitCode(), 0);
  EXPECT_NE(second.output().find("another agent already runs"), std::string::npos);
  EXPECT_EQ(first->process().state(), QProcess::Running);
}

TEST_F(AgentProcessTest, StoppingEndsThroughTheWillTerminatePath) {
  struct Case {
    const char* name;
    int signal;  // 0: a "VTHalyardBackgrounderShouldQuit" notification
  } cases[] = {{"SIGTERM", SIGTERM}, {"SIGINT", SIGINT}, {"SIGHUP", SIGHUP}, {"quit notification", 0}};
  auto logind = startLogind();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto agent = startAgent();
    if (c.signal) {
      ::kill(static_cast<pid_t>(agent->process().processId()), c.signal);
    } else {
      TestProcess notify(halyardctlPath(), {"notify", "VTHalyardBackgrounderShouldQuit"}, session_.address());
      ASSERT_TRUE(notify.waitForExit());
    }
    ASSERT_TRUE(agent->waitForExit());
    EXPECT_EQ(agent->process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(agent->process().exitCode(), 0);
    EXPECT_NE(agent->output().find("Halyard Backgrounder v4.0.5 has terminated."), std::string::npos);
  }
}

TEST_F(AgentProcessTest, ADueItemReachesTheRunningApplicationAtTheNextMinute) {
  auto logind = startLogind();
  TestProcess app(halyardctlPath(), {"serve-app"}, session_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  // An item at the next whole minute (UTC); a minute boundary at most away.
  std::time_t now = std::time(nullptr);
  if (now % 60 >= 58) now += 60;  // too close to the boundary to write the file in time
  const std::time_t due = now - now % 60 + 60;
  std::tm utc{};
  gmtime_r(&due, &utc);
  TestProcess add(halyardctlPath(),
                  {"schedule", "add", "--description", "next-minute", "--document", "/tmp/next-minute.hsync", "--type",
                   "4", "--hours", std::to_string(utc.tm_hour), "--minutes", std::to_string(utc.tm_min)},
                  session_.address(), {}, environment());
  ASSERT_TRUE(add.waitForExit());
  ASSERT_EQ(add.process().exitCode(), 0) << add.output();
  auto agent = startAgent();
  ASSERT_TRUE(app.waitForOutput("item \"next-minute\"", std::chrono::seconds(125)));
  const double late = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count() -
                      static_cast<double>(due);
  EXPECT_GE(late, 0.0);
  EXPECT_LT(late, 1.0);  // within the due second
}

TEST_F(AgentProcessTest, LosingTheSessionBusStopsTheAgentWithAFailureStatus) {
  auto logind = startLogind();
  auto agent = startAgent();
  session_.stop();
  ASSERT_TRUE(agent->waitForExit(std::chrono::seconds(5)));
  EXPECT_EQ(agent->process().exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(agent->process().exitCode(), 2);
  EXPECT_NE(agent->output().find("The session bus is gone"), std::string::npos) << agent->output();
}

TEST_F(AgentProcessTest, WatchShowsNotificationsWithHandOversDecoded) {
  TestProcess watch(halyardctlPath(), {"watch", "--count", "2"}, session_.address());
  ASSERT_TRUE(watch.waitForOutput("watching"));
  TestProcess notify(halyardctlPath(), {"notify", "com.vantrel.halyard.scheduler_state_changed", "--state", "false"},
                     session_.address());
  ASSERT_TRUE(notify.waitForExit());
  QDBusConnection connection = session_.connect("poster");
  {
    DBusNotificationBus bus(connection);
    bus.post("VTHalyardAddScheduledItems", handOverUserInfo({makeItem("shown", 9, 0)}));
    ASSERT_TRUE(watch.waitForExit());
  }
  QDBusConnection::disconnectFromBus("poster");
  const std::string output = watch.output();
  EXPECT_NE(output.find("com.vantrel.halyard.scheduler_state_changed state=false\n"), std::string::npos) << output;
  EXPECT_NE(output.find("1 scheduled item(s)\n  item \"shown\""), std::string::npos) << output;
}

// A daemon in this process on a session bus of its own, beating on the real
// clock (UTC), whose main application is started only by activation.
class ActivatedAgent {
 public:
  // `exec`: the activation command; `startTimeoutMs`: how long the bus waits for it.
  ActivatedAgent(const std::string& name, const std::string& exec, int startTimeoutMs)
      : bus_("session", startTimeoutMs), connection_(bus_.connect(QString::fromStdString(name))) {
    bus_.addActivatableService(kApplicationBusName, exec);
    notifications_ = std::make_unique<DBusNotificationBus>(connection_);
    preferences_ = std::make_unique<Preferences>(dir_.path() + "/halyard.conf");
    launcher_ = std::make_unique<LinuxLaunchPlatform>(connection_);
    waitUntil([&] { return launcher_->knowsApplicationState(); });
  }
  ~ActivatedAgent() {
    daemon_.reset();
    launcher_.reset();
    notifications_.reset();
    QDBusConnection::disconnectFromBus(connection_.name());
  }
  std::string path(const std::string& relative) const { return dir_.path().toStdString() + "/" + relative; }
  void start(const std::vector<std::shared_ptr<KSScheduledItem>>& items) {
    writeSchedule(path("ScheduleData.sched"), items);
    daemon_ = std::make_unique<HalyardDaemon>(DaemonEnvironment{.clock = clock_,
                                                                .bus = *notifications_,
                                                                .preferences = *preferences_,
                                                                .launcher = *launcher_,
                                                                .paths = {.scheduleFile = path("ScheduleData.sched"),
                                                                          .launchPathFile = path("LaunchPath"),
                                                                          .volumesRoot = path("media"),
                                                                          .applicationPaths = {},
                                                                          .dataDirs = {}},
                                                                .standardOutput = &out_,
                                                                .terminate = {},
                                                                .steppedBeats = false});
    daemon_->awakeFromNib();
  }
  HalyardDaemon& daemon() { return *daemon_; }
  std::string out() const { return out_.str(); }

 private:
  QTemporaryDir dir_;
  PrivateBus bus_;
  QDBusConnection connection_;
  RealTimeClock clock_;
  std::unique_ptr<DBusNotificationBus> notifications_;
  std::unique_ptr<Preferences> preferences_;
  std::unique_ptr<LinuxLaunchPlatform> launcher_;
  std::ostringstream out_;
  std::unique_ptr<HalyardDaemon> daemon_;
};

double unixNow() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

TEST(SlowActivation, ALaunchAtSecond53LeavesTheNextMinutesSecondZeroOnTime) {
  ensureApplication();
  QTemporaryDir logs;
  const std::string serveLog = logs.path().toStdString() + "/serve.log";
  ActivatedAgent slow("slow", "/bin/sh -c 'sleep 8; exec " + halyardctlPath() + " serve-app >> " + serveLog + " 2>&1'",
                      25000);
  ActivatedAgent silent("silent", "/bin/sleep 20", 12000);  // never takes the name; the bus gives up after 12 s

  // The next minute boundary at least 9 s away, the launch 7 s before it.
  const auto boundary = static_cast<std::time_t>(unixNow() + 9) / 60 * 60 + 60;
  std::tm utc{};
  gmtime_r(&boundary, &utc);
  for (ActivatedAgent* agent : {&slow, &silent}) agent->start({makeItem("next-minute", utc.tm_hour, utc.tm_min)});
  const double launchAt = static_cast<double>(boundary) - 7;
  ASSERT_TRUE(waitUntil([&] { return unixNow() >= launchAt; }, std::chrono::seconds(75)));
  for (ActivatedAgent* agent : {&slow, &silent}) agent->daemon().launchJobs({makeItem("at-53", 0, 0)});

  const TimeInterval due = fromUnixSeconds(static_cast<double>(boundary));
  for (ActivatedAgent* agent : {&slow, &silent}) {
    ASSERT_TRUE(
        waitUntil([&] { return agent->daemon().lastCheckDate().value_or(0) >= due; }, std::chrono::seconds(15)));
    EXPECT_EQ(agent->daemon().status().lastCheckMode, HeartbeatMode::New);
    EXPECT_LT(*agent->daemon().lastCheckDate() - due, 1.0) << "the check ran in the due second";
    EXPECT_LT(*agent->daemon().timings().beatLateness.worst(fromUnixSeconds(unixNow())), 1.0);
  }
  EXPECT_EQ(descriptions(silent.daemon().notifyMonitor()->addedItems()), std::vector<std::string>{"next-minute"});
  // The slow application gets the item of second 0 once it is up; the silent
  // one's start fails with the bus's own error.
  const auto served = [&] {
    const auto log = readWholeFile(serveLog);
    return log && log->find("item \"next-minute\"") != std::string::npos;
  };
  ASSERT_TRUE(waitUntil(served, std::chrono::seconds(15)));
  // Both launches joined the one pending start, and both fail with it.
  ASSERT_TRUE(waitUntil([&] { return silent.out().find("Error", 1) != std::string::npos; }, std::chrono::seconds(15)));
  EXPECT_EQ(silent.out(), "Error -10810 (signature 'dylH').\nError -10810 (signature 'dylH').\n");
  EXPECT_EQ(slow.out(), "");
}

}  // namespace
}  // namespace halyard::agent::testing
