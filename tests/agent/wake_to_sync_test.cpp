// Power registration and wake-to-sync with a fake logind on a private system
// bus: no bus, a wake after logind or the system bus restarted, the idle-sleep
// veto as a block inhibitor, a sleep across a scheduled minute end to end, and
// the wake tool's requests around a sleep when wake-to-sync is off, the tool's
// folder is on a bad volume or the RTC cannot wake.

#include <QDBusArgument>
#include <QDBusMessage>

#include <cerrno>
#include <cstring>

#include "agent/power_logind.h"
#include "agent/wake_to_sync.h"
#include "daemon_fixture.h"
#include "foundation/log_sink.h"
#include "foundation/strings_table.h"
#include "recording_wake_tool.h"

namespace halyard::agent::testing {
namespace {

// A daemon in the test process beside a private system bus on which a fake
// logind can run: the agent's power registration connects there.
class SleepTest : public DaemonFixture {
 protected:
  // What the agent's power registration is given: a new connection to the
  // private system bus each time, at its address of the moment.
  LogindPower::Connector connector() {
    return [this] { return system_.connect(QString("power-%1-%2").arg(agentName_).arg(++connections_)); };
  }
  void emitPrepareForSleep(bool start) {
    const QDBusMessage call = QDBusMessage::createMethodCall("org.freedesktop.login1", "/org/freedesktop/login1",
                                                             "test.FakeLogind", "EmitPrepareForSleep")
                              << start;
    ASSERT_EQ(callOnSystemBus(call).type(), QDBusMessage::ReplyMessage);
  }
  // How many inhibitors the logind of the moment holds (of that mode, when given).
  int inhibitors(const QString& wantedMode = QString()) {
    const QDBusMessage reply = callOnSystemBus(QDBusMessage::createMethodCall(
        "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "ListInhibitors"));
    if (reply.type() != QDBusMessage::ReplyMessage) return -1;
    const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
    int count = 0;
    list.beginArray();
    while (!list.atEnd()) {
      QString what, who, why, mode;
      uint uid = 0, pid = 0;
      list.beginStructure();
      list >> what >> who >> why >> mode >> uid >> pid;
      list.endStructure();
      if (wantedMode.isEmpty() || mode == wantedMode) ++count;
    }
    list.endArray();
    return count;
  }
  // A call over a connection of its own, so that it works across restarts of the bus.
  QDBusMessage callOnSystemBus(const QDBusMessage& call) {
    const QString name = QString("call-%1-%2").arg(agentName_).arg(++connections_);
    QDBusMessage reply = system_.connect(name).call(call);
    QDBusConnection::disconnectFromBus(name);
    return reply;
  }
  std::unique_ptr<TestProcess> startLogind() { return startFakeLogind(bus_, system_); }
  PrivateBus system_{"system"};
  int connections_ = 0;
};

TEST(LogindPower, NoSystemBusIsARegistrationFailure) {
  ensureApplication();
  LogindPower power(
      [] { return QDBusConnection::connectToBus(QString("unix:path=/nonexistent/system_bus_socket"), "none"); },
      [](PowerMessage) {});
  EXPECT_FALSE(power.registerForSystemPower());
}

TEST_F(SleepTest, AfterLogindOrTheSystemBusRestartsAWakeStillMakesAMissedCheck) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("asleep", 10, 2)});
  for (const bool busRestarts : {false, true}) {
    SCOPED_TRACE(busRestarts ? "the system bus and logind restart" : "logind restarts");
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
    if (busRestarts) system_.restart();
    logind = startLogind();
    ASSERT_TRUE(waitUntil([&] { return inhibitors() == 1; }));  // taken again from the new logind
    EXPECT_EQ(power.resubscriptions(), busRestarts ? 1 : 0);
    emitPrepareForSleep(true);
    ASSERT_TRUE(logind->waitForOutput("inhibitor released"));  // the signal reached the agent
    clock_.setCivil(2026, 3, 4, 10, 2, 40);
    emitPrepareForSleep(false);
    ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep(); }));
    beatAt(10, 2, 40);
    EXPECT_EQ(daemon_->status().lastCheckMode, HeartbeatMode::Missed);
    EXPECT_EQ(parked(), Names{"asleep"});

    std::string lines;
    for (const std::string& line : log.lines()) lines += line + "\n";
    EXPECT_NE(lines.find("taking the sleep delay inhibitor again"), std::string::npos) << lines;
    EXPECT_EQ(lines.find("The system bus is gone") != std::string::npos, busRestarts) << lines;
    EXPECT_EQ(lines.find("The system bus is back") != std::string::npos, busRestarts) << lines;
  }
}

class WakeToSyncTest : public SleepTest {
 protected:
  void SetUp() override {
    logind_ = startLogind();
    writeSchedule(path("ScheduleData.sched"), {makeItem("night", 3, 0)});
    wakeTool_ = tool_;
    idleSleepVeto_ = [this](bool veto) { power_.setIdleVeto(veto); };
    ASSERT_TRUE(power_.registerForSystemPower());
    power_.setSleepPreparation([this](std::function<void()> allow) { daemon_->systemWillSleep(std::move(allow)); });
    ASSERT_TRUE(waitUntil([&] { return power_.holdsInhibitor(); }));
  }
  void setUp(bool wakeToSync, bool schedulerActive) {
    preferences_->setBool(prefs::kWakeSystemToSynch, wakeToSync);
    preferences_->setBool(prefs::kSchedulerActive, schedulerActive);
    makeDaemon();
  }
  std::unique_ptr<TestProcess> logind_;
  std::shared_ptr<RecordingWakeTool> tool_ = std::make_shared<RecordingWakeTool>();
  LogindPower power_{connector(), [this](PowerMessage message) {
                       if (message == PowerMessage::HasPoweredOn) daemon_->systemHasPoweredOn();
                     }};
};

TEST_F(WakeToSyncTest, IdleSleepIsRefusedOnlyWithinTwoMinutesOfTheWakeUp) {
  setUp(true, true);
  beatAt(2, 56, 59);  // the wake-up at 02:59:00 is 121 s ahead
  EXPECT_FALSE(daemon_->idleSleepVetoed());
  beatAt(2, 57, 30);  // 90 s ahead
  EXPECT_TRUE(daemon_->idleSleepVetoed());
  ASSERT_TRUE(waitUntil([&] { return inhibitors("block") == 1; }));
  beatAt(3, 0, 1);  // the run has passed; the next is tomorrow
  EXPECT_FALSE(daemon_->idleSleepVetoed());
  ASSERT_TRUE(waitUntil([&] { return inhibitors("block") == 0; }));
}

TEST_F(WakeToSyncTest, AfterASleepAcrossAScheduledMinuteTheItemIsHandedOverOnceAndTheWakeUpCancelled) {
  TestProcess app(halyardctlPath(), {"serve-app"}, bus_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  ASSERT_TRUE(waitForApplication());
  writeSchedule(path("ScheduleData.sched"), {makeItem("asleep", 10, 2)});
  setUp(true, true);
  beatAt(10, 1, 0);
  emitPrepareForSleep(true);
  ASSERT_TRUE(waitUntil([&] { return tool_->requests().size() == 1; }));
  EXPECT_TRUE(power_.holdsInhibitor());  // the sleep waits until the wake-up is set
  tool_->letAnswer();
  ASSERT_TRUE(waitUntil([&] { return !power_.holdsInhibitor(); }));  // the sleep is allowed
  ASSERT_TRUE(logind_->waitForOutput("inhibitor released"));
  const auto requests = tool_->requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].command, wake::Command::CancelOwnEvents);
  EXPECT_EQ(requests[1].command, wake::Command::SchedulePowerOn);
  // 10:02:00 would be only 60 s away: the wake-up is placed 100 s after falling asleep.
  EXPECT_EQ(requests[1].powerOnUnixSeconds, toUnixSeconds(clock_.civil(2026, 3, 4, 10, 2, 40)));
  clock_.setCivil(2026, 3, 4, 10, 2, 40);  // the machine slept through 10:02
  emitPrepareForSleep(false);
  ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep() && power_.holdsInhibitor(); }));
  ASSERT_TRUE(waitUntil([&] { return tool_->requests().size() == 3; }));
  EXPECT_EQ(tool_->requests()[2].command, wake::Command::CancelOwnEvents);

  beatAt(10, 2, 40);  // 100 s after the last check, and just woken: the missed check
  beatAt(10, 2, 41);
  beatAt(10, 3, 0);
  daemon_->launchJobs({makeItem("marker", 0, 0)});
  ASSERT_TRUE(app.waitForOutput("item \"marker\""));
  EXPECT_EQ(occurrences(app.output(), "item \"asleep\""), 1u) << app.output();
}

TEST_F(WakeToSyncTest, SuspendedOrSwitchedOffNeitherVetoesNorAsksTheTool) {
  const struct {
    const char* name;
    bool wakeToSync, schedulerActive;
  } cases[] = {{"preference off", false, true}, {"scheduler suspended", true, false}};
  tool_->letAnswer();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    setUp(c.wakeToSync, c.schedulerActive);
    beatAt(2, 58, 50);
    EXPECT_FALSE(daemon_->idleSleepVetoed());
    emitPrepareForSleep(true);
    ASSERT_TRUE(waitUntil([&] { return !power_.holdsInhibitor(); }));
    EXPECT_EQ(inhibitors("block"), 0);
    EXPECT_TRUE(tool_->requests().empty());
    emitPrepareForSleep(false);
    ASSERT_TRUE(waitUntil([&] { return power_.holdsInhibitor(); }));
  }
}

TEST_F(WakeToSyncTest, ABadVolumeAsksBeforeTheTemporaryItemsFolderIsUsed) {
  using enum HelperFolderType;
  const struct {
    const char* name;
    AlertResponse choice;
    std::vector<HelperFolderType> located;
    std::size_t requests;
  } cases[] = {{"OK", AlertResponse::Stop, {ApplicationSupport, TemporaryItems}, 2},
               {"Cancel", AlertResponse::Abort, {ApplicationSupport}, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    tool_ = std::make_shared<RecordingWakeTool>();
    tool_->setBadVolume(ApplicationSupport);
    tool_->letAnswer();
    wakeTool_ = tool_;
    alertPanel_.answer = c.choice;
    alertPanel_.requests.clear();
    setUp(true, true);
    beatAt(2, 50, 0);
    emitPrepareForSleep(true);
    ASSERT_TRUE(waitUntil([&] { return !power_.holdsInhibitor(); }));  // either way the machine sleeps
    EXPECT_EQ(tool_->located(), c.located);
    EXPECT_EQ(tool_->requests().size(), c.requests);
    for (const std::string& tool : tool_->tools()) EXPECT_EQ(tool, "temporary/WakeToSyncTool");
    emitPrepareForSleep(false);
    ASSERT_TRUE(waitUntil([&] { return daemon_->awokeFromSleep() && daemon_->pendingWakeRequests() == 0; }));
    ASSERT_TRUE(waitUntil([&] { return power_.holdsInhibitor(); }));
    // The wake's cancel goes the same way without asking again.
    EXPECT_EQ(tool_->requests().size(), c.requests + c.requests / 2);
    ASSERT_EQ(alertPanel_.requests.size(), 1u);
    EXPECT_EQ(alertPanel_.requests[0].title, localizedString("BAD_VOLUME_FOR_HELPER_TOOL_ALERT_TITLE"));
    EXPECT_EQ(alertPanel_.requests[0].okTitle, localizedString("OK"));
    EXPECT_EQ(alertPanel_.requests[0].cancelTitle, localizedString("CANCEL"));
  }
}

TEST_F(WakeToSyncTest, AnRtcThatCannotWakeTurnsWakeToSyncOffAndIsToldOnce) {
  LogCapture log;
  tool_->letAnswer(ENOENT);
  setUp(true, true);
  beatAt(2, 50, 0);
  emitPrepareForSleep(true);
  ASSERT_TRUE(waitUntil([&] { return !power_.holdsInhibitor(); }));
  ASSERT_TRUE(waitForSeen(notifications::kWakeToSynchUpdated));
  EXPECT_FALSE(seen(notifications::kWakeToSynchUpdated).back().value(notifications::kStateKey).toBool());
  EXPECT_FALSE(preferences_->boolForKey(prefs::kWakeSystemToSynch));
  EXPECT_EQ(daemon_->status().wakeAlarmProblem, std::strerror(ENOENT));
  EXPECT_EQ(tool_->requests().size(), 1u);  // the cancel failed: nothing was scheduled

  // Turned on again, the RTC still cannot wake: it stays off, and the log said it once.
  daemon_->wakeToSynchStateChanged({{notifications::kStateKey, true}});
  ASSERT_TRUE(waitForSeen(notifications::kWakeToSynchUpdated, 2));
  EXPECT_FALSE(seen(notifications::kWakeToSynchUpdated).back().value(notifications::kStateKey).toBool());
  EXPECT_FALSE(daemon_->status().wakeToSynch);
  int said = 0;
  for (const std::string& line : log.lines()) said += line.find("RTC wake alarm cannot be set") != std::string::npos;
  EXPECT_EQ(said, 1);
}

}  // namespace
}  // namespace halyard::agent::testing
