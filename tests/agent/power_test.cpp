// Power registration with a fake logind on a private system bus, and a sleep
// across a scheduled minute.

#include <QDBusMessage>

#include "agent/power_logind.h"
#include "daemon_fixture.h"

namespace halyard::agent::testing {
namespace {

TEST(LogindPower, NoSystemBusIsARegistrationFailure) {
  ensureApplication();
  QDBusConnection none = QDBusConnection::connectToBus(QString("unix:path=/nonexistent/system_bus_socket"), "none");
  LogindPower power(none, [](PowerMessage) {});
  EXPECT_FALSE(power.registerForSystemPower());
  QDBusConnection::disconnectFromBus("none");
}

class SleepTest : public DaemonFixture {
 protected:
  SleepTest() : system_("system"), systemConnection_(system_.connect("system-" + agentName_)) {}
  ~SleepTest() override { QDBusConnection::disconnectFromBus("system-" + agentName_); }
  void emitPrepareForSleep(bool start) {
    QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.login1", "/org/freedesktop/login1",
                                                      "test.FakeLogind", "EmitPrepareForSleep");
    call << start;
    ASSERT_EQ(systemConnection_.call(call).type(), QDBusMessage::ReplyMessage);
  }
  PrivateBus system_;
  QDBusConnection systemConnection_;
};

TEST_F(SleepTest, AfterASleepAcrossAScheduledMinuteTheItemIsHandedOverOnce) {
  TestProcess logind("/usr/bin/python3", {fakeLogindPath()}, bus_.address(), system_.address());
  ASSERT_TRUE(logind.waitForOutput("ready"));
  TestProcess app(halyardctlPath(), {"serve-app"}, bus_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  writeSchedule(path("ScheduleData.sched"), {makeItem("asleep", 10, 2)});
  makeDaemon();
  std::vector<PowerMessage> messages;
  LogindPower power(systemConnection_, [&](PowerMessage message) {
    messages.push_back(message);
    if (message == PowerMessage::HasPoweredOn) daemon_->setAwokeFromSleep(true);
  });
  ASSERT_TRUE(power.registerForSystemPower());
  ASSERT_TRUE(waitUntil([&] { return power.holdsInhibitor(); }));

  beatAt(10, 1, 0);
  emitPrepareForSleep(true);
  ASSERT_TRUE(waitUntil([&] { return !power.holdsInhibitor(); }));  // the sleep is allowed
  ASSERT_TRUE(logind.waitForOutput("inhibitor released"));
  clock_.setCivil(2026, 3, 4, 10, 2, 40);  // the machine slept through 10:02
  emitPrepareForSleep(false);
  ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep() && power.holdsInhibitor(); }));
  EXPECT_EQ(messages, (std::vector<PowerMessage>{PowerMessage::WillSleep, PowerMessage::HasPoweredOn}));

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

}  // namespace
}  // namespace halyard::agent::testing
