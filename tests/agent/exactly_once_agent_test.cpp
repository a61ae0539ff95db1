// The agent's opt-in scheduling preferences in the daemon itself: the last
// check kept across a restart to catch up what passed while the agent was
// not running, and the menu's next run in the exactly-once mode. The
// exactly-once checks themselves: the simulation's tests.

#include "daemon_fixture.h"
#include "foundation/file_io.h"

namespace halyard::agent::testing {
namespace {

using Names = std::vector<std::string>;

class OptInSchedulingTest : public DaemonFixture {
 protected:
  OptInSchedulingTest() {
    writeSchedule(path("ScheduleData.sched"), {makeItem("at-9:31", 9, 31, 4), makeItem("at-9:33", 9, 33, 4)});
  }
};

TEST_F(OptInSchedulingTest, ARestartedAgentCatchesUpWhatPassedWhileItWasStopped) {
  struct Case {
    const char* name;
    bool catchUp, exactlyOnce;
    Names parked;
  } cases[] = {
      {"no catch-up: the minutes while stopped are lost", false, false, {}},
      {"catch-up: the gap since the saved check is a missed check", true, false, {"at-9:31", "at-9:33"}},
      {"catch-up, exactly once: the same, from the saved minute", true, true, {"at-9:31", "at-9:33"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    QFile::remove(QString::fromStdString(path("state/last-check")));
    preferences_->setBool(prefs::kCatchUpMissedRuns, c.catchUp);
    preferences_->setBool(prefs::kExactlyOnceScheduling, c.exactlyOnce);
    makeDaemon();
    beatAt(9, 30, 0);
    EXPECT_EQ(readWholeFile(path("state/last-check")).ok(), c.catchUp);
    clock_.setCivil(2026, 3, 4, 9, 35, 10);
    makeDaemon();  // stopped at 09:30:30, started again at 09:35:10
    beatAt(9, 35, 11);
    EXPECT_EQ(parked(), c.parked);
  }
}

TEST_F(OptInSchedulingTest, TheMenuShowsTheNextHandOverOfTheMode) {
  // A new item: weekdays, no day of month, so no run date, yet the minute
  // check hands it over on weekdays.
  auto weekdays = makeItem("weekdays", 9, 45, 5);
  weekdays->setScheduledDaysOfMonth(std::string(31, '0'));
  writeSchedule(path("ScheduleData.sched"), {weekdays});
  clock_.setCivil(2026, 3, 4, 9, 0, 0);
  for (const bool exactlyOnce : {false, true}) {
    SCOPED_TRACE(exactlyOnce);
    preferences_->setBool(prefs::kExactlyOnceScheduling, exactlyOnce);
    makeDaemon();
    const StatusMenuModel model = daemon_->menuNeedsUpdate();
    ASSERT_EQ(model.nextRun.size(), exactlyOnce ? 2u : 1u);
    if (exactlyOnce) {
      EXPECT_EQ(model.nextRun[0].title, "weekdays");
    }
  }
}

TEST_F(OptInSchedulingTest, ADamagedSavedCheckIsIgnored) {
  preferences_->setBool(prefs::kCatchUpMissedRuns, true);
  QDir().mkpath(QString::fromStdString(path("state")));
  ASSERT_TRUE(writeFileAtomically(path("state/last-check"), "lastCheck nonsense\n"));
  makeDaemon();
  EXPECT_FALSE(daemon_->lastCheckDate().has_value());
  beatAt(9, 31, 0);
  EXPECT_EQ(parked(), (Names{"at-9:31"}));
}

}  // namespace
}  // namespace halyard::agent::testing
