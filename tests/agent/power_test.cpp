// Power registration with a fake logind on a private system bus: a sleep
// across a scheduled minute with wake-to-sync on, end to end, and a wake
// after logind or the system bus restarted.

#include "foundation/log_sink.h"
#include "recording_wake_tool.h"
#include "sleep_fixture.h"

namespace halyard::agent::testing {
namespace {

TEST(LogindPower, NoSystemBusIsARegistrationFailure) {
  ensureApplication();
  LogindPower power(
      [] { return QDBusConnection::connectToBus(QString("unix:path=/nonexistent/system_bus_socket"), "none"); },
      [](PowerMessage) {});
  EXPECT_FALSE(power.registerForSystemPower());
}

TEST_F(SleepTest, AfterASleepAcrossAScheduledMinuteTheItemIsHandedOverOnceAndTheWakeUpCancelled) {
  TestProcess logind("/usr/bin/python3", {fakeLogindPath()}, bus_.address(), system_.address());
  ASSERT_TRUE(logind.waitForOutput("ready"));
  TestProcess app(halyardctlPath(), {"serve-app"}, bus_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  ASSERT_TRUE(waitForApplication());
  writeSchedule(path("ScheduleData.sched"), {makeItem("asleep", 10, 2)});
  auto tool = std::make_shared<RecordingWakeTool>();
  wakeTool_ = tool;
  preferences_->setBool(prefs::kWakeSystemToSynch, true);
  makeDaemon();
  std::vector<PowerMessage> messages;
  LogindPower power(connector(), [&](PowerMessage message) {
    messages.push_back(message);
    if (message == PowerMessage::HasPoweredOn) daemon_->systemHasPoweredOn();
  });
  power.setSleepPreparation([&](std::function<void()> allow) { daemon_->systemWillSleep(std::move(allow)); });
  ASSERT_TRUE(power.registerForSystemPower());
  ASSERT_TRUE(waitUntil([&] { return power.holdsInhibitor(); }));

  beatAt(10, 1, 0);
  emitPrepareForSleep(true);
  ASSERT_TRUE(waitUntil([&] { return tool->requests().size() == 1; }));
  EXPECT_TRUE(power.holdsInhibitor());  // the sleep waits until the wake-up is set
  tool->letAnswer();
  ASSERT_TRUE(waitUntil([&] { return !power.holdsInhibitor(); }));  // the sleep is allowed
  ASSERT_TRUE(logind.waitForOutput("inhibitor released"));
  ASSERT_EQ(tool->requests().size(), 2u);
  EXPECT_EQ(tool->requests()[0].command, wake::Command::CancelOwnEvents);
  EXPECT_EQ(tool->requests()[1].command, wake::Command::SchedulePowerOn);
  // 10:02:00 would be only 60 s away: the wake-up is placed 100 s after falling asleep.
  EXPECT_EQ(tool->requests()[1].powerOnUnixSeconds, toUnixSeconds(clock_.civil(2026, 3, 4, 10, 2, 40)));
  clock_.setCivil(2026, 3, 4, 10, 2, 40);  // the machine slept through 10:02
  emitPrepareForSleep(false);
  ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep() && power.holdsInhibitor(); }));
  EXPECT_EQ(messages, (std::vector<PowerMessage>{PowerMessage::WillSleep, PowerMessage::HasPoweredOn}));
  ASSERT_TRUE(waitUntil([&] { return tool->requests().size() == 3; }));
  EXPECT_EQ(tool->requests()[2].command, wake::Command::CancelOwnEvents);

  beatAt(10, 2, 40);  // 100 s after the last check, and just woken: the missed check
  beatAt(10, 2, 41);
  beatAt(10, 3, 0);
  daemon_->launchJobs({makeItem("marker", 0, 0)});
  ASSERT_TRUE(app.waitForOutput("item \"marker\""));
  const std::string output = app.output();
  const auto first = output.find("item \"asleep\"");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(output.find("item \"asleep\"", first + 1), std::string::npos) << output;
}

TEST_F(SleepTest, AfterLogindOrTheSystemBusRestartsAWakeStillMakesAMissedCheck) {
  struct Case {
    const char* name;
    bool busRestarts;
  } cases[] = {{"logind restarts", false}, {"the system bus and logind restart", true}};
  writeSchedule(path("ScheduleData.sched"), {makeItem("asleep", 10, 2)});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    auto logind = startLogind();
    makeDaemon();
    LogindPower power(connector(), [&](PowerMessage message) {
      if (message == PowerMessage::HasPoweredOn) daemon_->setAwokeFromSleep(true);
    });
    ASSERT_TRUE(power.registerForSystemPower());
    ASSERT_TRUE(waitUntil([&] { return power.holdsInhibitor(); }));
    beatAt(10, 1, 0);

    logind.reset();
    if (c.busRestarts) system_.restart();
    logind = startLogind();
    ASSERT_TRUE(waitUntil([&] { return inhibitors() == 1; }));  // taken again from the new logind
    EXPECT_EQ(power.resubscriptions(), c.busRestarts ? 1 : 0);
    emitPrepareForSleep(true);
    ASSERT_TRUE(logind->waitForOutput("inhibitor released"));  // the signal reached the agent
    clock_.setCivil(2026, 3, 4, 10, 2, 40);
    emitPrepareForSleep(false);
    ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep(); }));
    beatAt(10, 2, 40);
    EXPECT_EQ(daemon_->status().lastCheckMode, HeartbeatMode::Missed);
    EXPECT_EQ(parked(), std::vector<std::string>{"asleep"});

    std::string lines;
    for (const std::string& line : log.lines()) lines += line + "\n";
    EXPECT_NE(lines.find("taking the sleep delay inhibitor again"), std::string::npos) << lines;
    EXPECT_EQ(lines.find("The system bus is gone") != std::string::npos, c.busRestarts) << lines;
    EXPECT_EQ(lines.find("The system bus is back") != std::string::npos, c.busRestarts) << lines;
  }
}

}  // namespace
}  // namespace halyard::agent::testing
