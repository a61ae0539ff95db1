// HalyardDaemon in-process: start-up and preferences, a wake's missed check,
// the monitor's hand-over and mounts, quit requests and suspension. The
// heartbeat's gap rules are the simulation's tests, which the daemon is
// compared with.

#include <QFile>

#include "agent/hand_over.h"
#include "daemon_fixture.h"
#include "foundation/log_sink.h"
#include "schedule/schedule_file.h"

namespace halyard::agent::testing {
namespace {

using DaemonTest = DaemonFixture;

TEST_F(DaemonTest, FirstStartSeedsThePreferencesAndBroadcastsTheState) {
  struct Case {
    const char* name;
    std::optional<bool> stored;
    bool expectedActive;
  } cases[] = {
      {"absent: active and written", std::nullopt, true}, {"stored false", false, false}, {"stored true", true, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    QFile::remove(QString::fromStdString(path("halyard.conf")));
    preferences_ = std::make_unique<Preferences>(QString::fromStdString(path("halyard.conf")));
    if (c.stored) preferences_->setBool(prefs::kSchedulerActive, *c.stored);
    seen_.clear();
    LogCapture log;
    makeDaemon();
    EXPECT_EQ(daemon_->schedulerActive(), c.expectedActive);
    EXPECT_EQ(Preferences(QString::fromStdString(path("halyard.conf"))).boolValue(prefs::kSchedulerActive),
              c.expectedActive);
    EXPECT_FALSE(preferences_->boolValue(prefs::kShowStatusMenu).has_value());
    daemon_->awakeFromNib();
    EXPECT_EQ(preferences_->boolValue(prefs::kShowStatusMenu), true);
    ASSERT_TRUE(waitForSeen(notifications::kSchedulerStateChanged));
    EXPECT_EQ(seen(notifications::kSchedulerStateChanged).front().value("state"), QVariant(c.expectedActive));
    daemon_->shutdown();
    EXPECT_EQ(log.lines(), (Names{kRunningMessage, kTerminatedMessage}));
    daemon_.reset();
  }
}

TEST_F(DaemonTest, AWakeMakesSecondZeroRunTheMissedCheck) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("at-10:01", 10, 1), makeItem("at-10:02", 10, 2)});
  makeDaemon();
  mounts_.mount(dir_.path().toStdString());
  beatAt(10, 0, 30);  // a mounted-volume check: the last check is 10:00:30
  beatAt(10, 1, 20);  // nothing to do between whole minutes
  daemon_->setAwokeFromSleep(true);
  beatAt(10, 2, 0);
  EXPECT_FALSE(daemon_->awokeFromSleep());
  // The missed check covers 10:00:30 to now: both minutes, where the new check would find 10:02 only.
  EXPECT_EQ(parked(), (Names{"at-10:01", "at-10:02"}));
}

TEST_F(DaemonTest, MountsSeenAtSecondZeroAreCheckedAtSecondOne) {
  makeDaemon();
  mounts_.mount(dir_.path().toStdString());
  beatAt(10, 1, 0);
  EXPECT_EQ(daemon_->notifyMonitor()->mountedVolumes().size(), 1u);
  EXPECT_EQ(daemon_->lastCheckDate(), clock_.civil(2026, 3, 4, 10, 1, 0));
  beatAt(10, 1, 1);
  EXPECT_TRUE(daemon_->notifyMonitor()->mountedVolumes().empty());
  EXPECT_EQ(daemon_->lastCheckDate(), clock_.civil(2026, 3, 4, 10, 1, 1));
}

TEST_F(DaemonTest, QuitRequestEndsTheAgentAtTheEndOfTheNextBeat) {
  makeDaemon();
  recorder_->post(notifications::kBackgrounderShouldQuit);
  ASSERT_TRUE(waitUntil([&] { return daemon_->notifyMonitor()->shouldQuit(); }));
  EXPECT_EQ(terminations_, 0);
  beatAt(10, 1, 17);
  EXPECT_EQ(terminations_, 1);
}

TEST_F(DaemonTest, MountedPathsAreRecordedWhenTheyExist) {
  QDir(dir_.path()).mkpath("media/USBSTICK");
  const std::string existing = path("data");
  struct Case {
    const char* name;
    std::string devicePath;
    std::vector<std::string> recorded;
  } cases[] = {
      {"an existing path as it is", existing, {existing}},
      {"a bare name under the volumes folder", "USBSTICK", {path("media/USBSTICK")}},
      {"a path that resolves nowhere is dropped", "/no/such/volume", {}},
      {"no path", "", {}},
  };
  makeDaemon();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    daemon_->notifyMonitor()->setMountedVolumes({});
    mounts_.mount(c.devicePath);
    EXPECT_EQ(daemon_->notifyMonitor()->mountedVolumes(), c.recorded);
  }
}

TEST_F(DaemonTest, SchedulerDidStartHandsOverOnlyTheLatestParkedItemsOnce) {
  makeDaemon();
  // Nothing parked: an application started by hand gets nothing.
  notifications_->observe(this, notifications::kSchedulerDidStart,
                          [this](const QVariantMap&) { notifications_->post("test.sentinel"); });
  recorder_->post(notifications::kSchedulerDidStart);
  ASSERT_TRUE(waitForSeen("test.sentinel"));
  EXPECT_TRUE(seen(notifications::kAddScheduledItems).empty());

  daemon_->launchJobs({makeItem("first", 9, 0)});
  daemon_->launchJobs({makeItem("second", 9, 5), makeItem("third", 9, 6)});
  EXPECT_EQ(parked(), (Names{"second", "third"}));
  recorder_->post(notifications::kSchedulerDidStart);
  ASSERT_TRUE(waitForSeen(notifications::kShouldQuitWhenFinished));
  ASSERT_EQ(seen(notifications::kAddScheduledItems).size(), 1u);
  const QByteArray data = seen(notifications::kAddScheduledItems).front().value("data").toByteArray();
  auto items = decodeHandOver(data.toStdString(), scheduleClassRegistry(systemCalendarClock()));
  ASSERT_TRUE(items.ok());
  EXPECT_EQ(descriptions(*items), (Names{"second", "third"}));
  EXPECT_FALSE(daemon_->notifyMonitor()->lastLaunchTime().has_value());
  notifications_->removeObserver(this);
}

TEST_F(DaemonTest, SchedulerStateChangesGateTheChecksAndAreStored) {
  writeSchedule(path("ScheduleData.sched"), {makeItem("at-10:01", 10, 1)});
  makeDaemon();
  recorder_->post(notifications::kSchedulerStateChanged, {{"state", false}});
  ASSERT_TRUE(waitUntil([&] { return !daemon_->schedulerActive(); }));
  EXPECT_EQ(preferences_->boolValue(prefs::kSchedulerActive), false);
  beatAt(10, 1, 0);
  EXPECT_TRUE(parked().empty());
  EXPECT_EQ(daemon_->lastCheckDate(), clock_.civil(2026, 3, 4, 10, 1, 0));  // beats go on while suspended
}

}  // namespace
}  // namespace halyard::agent::testing
