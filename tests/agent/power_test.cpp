// Power registration with a fake logind on a private system bus: no bus,
// and a wake after logind or the system bus restarted.

#include "foundation/log_sink.h"
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
