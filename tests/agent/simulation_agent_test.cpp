// The scheduling modes in the daemon itself. The simulation answers as the
// agent: the daemon, stepped beat by beat on a fake clock over a period with a
// sleep, clock changes and a suspension, hands over what `simulate` says it
// will, at the same beats, in both modes. The opt-in preferences: the last
// check kept across a restart to catch up what passed while the agent was not
// running, and the menu's next run in the exactly-once mode.

#include "agent/rules/simulation.h"
#include "daemon_fixture.h"
#include "foundation/file_io.h"

namespace halyard::agent::testing {
namespace {

using K = SimulationEvent::Kind;

class SimulationAgreesTest : public DaemonFixture {
 protected:
  // One beat per second from `from` to `to` (instants at the fraction), with
  // the events applied as the simulation applies them. Each hand-over as
  // "beat instant: descriptions".
  std::vector<std::string> stepDaemon(TimeInterval from, TimeInterval to, const std::vector<SimulationEvent>& events) {
    std::vector<std::string> handedOver;
    std::size_t next = 0;
    for (TimeInterval second = std::floor(toUnixSeconds(from)); second < toUnixSeconds(to); ++second) {
      const TimeInterval beat = fromUnixSeconds(second) + kFraction;
      if (next < events.size() && events[next].at <= beat) {
        const SimulationEvent& event = events[next++];
        if (event.kind == K::Sleep) daemon_->setAwokeFromSleep(true);
        if (event.kind == K::Suspend || event.kind == K::Resume) {
          daemon_->schedulerStateChanged({{"state", event.kind == K::Resume}});
        }
        if (event.kind == K::Sleep || event.kind == K::Clock) {
          second = std::ceil(toUnixSeconds(event.to) - kFraction) - 1;
          continue;
        }
      }
      clock_.set(beat);
      daemon_->heartbeat();
      if (!parked().empty()) handedOver.push_back(line(beat, parked()));
      daemon_->notifyMonitor()->setAddedItems({});
    }
    return handedOver;
  }

  std::string line(TimeInterval beat, const std::vector<std::string>& names) const {
    std::string text = formatInstant(beat, clock_.zone()) + ":";
    for (const auto& name : names) text += " " + name;
    return text;
  }

  static constexpr TimeInterval kFraction = 0.25;
};

TEST_F(SimulationAgreesTest, TheDaemonHandsOverWhatTheSimulationSays) {
  const auto at = [&](int h, int m, int s) { return clock_.civil(2026, 3, 4, h, m, s); };
  const ScheduleItems items = {makeItem("at-9:31", 9, 31, 4),   makeItem("at-9:45", 9, 45, 5),
                               makeItem("at-10:05", 10, 5, 7),  makeItem("at-10:20", 10, 20, 4),
                               makeItem("at-10:40", 10, 40, 4), makeItem("type-9", 9, 50, 9)};
  writeSchedule(path("ScheduleData.sched"), items);
  const std::vector<SimulationEvent> events = {
      {K::Sleep, at(9, 40, 30), at(9, 52, 10)},    // catches up 9:45 and type 9
      {K::Clock, at(10, 6, 0), at(10, 4, 30)},     // back 90 s: 10:05 runs again
      {K::Suspend, at(10, 15, 0), at(10, 15, 0)},  // 10:20 does not run
      {K::Resume, at(10, 25, 0), at(10, 25, 0)},
      {K::Clock, at(10, 35, 0), at(10, 41, 30)},  // forward: 10:40 caught up
  };
  for (const bool exactlyOnce : {false, true}) {
    SCOPED_TRACE(exactlyOnce ? "exactly once" : "as the heartbeat's rules say");
    preferences_->setBool(prefs::kExactlyOnceScheduling, exactlyOnce);
    preferences_->setBool(prefs::kSchedulerActive, true);
    clock_.set(at(9, 30, 0));  // the agent starts where the simulation does
    makeDaemon();
    // No check cost: the fake clock stands still during a check.
    const SimulationOptions options{.from = at(9, 30, 0),
                                    .to = at(10, 50, 0),
                                    .zone = clock_.zone(),
                                    .beatFraction = kFraction,
                                    .checkCost = 0,
                                    .exactlyOnce = exactlyOnce};
    std::vector<std::string> simulated;
    ASSERT_TRUE(simulate(daemon_->loadItems().value(), events, options, [&](const SimulatedCheck& check) {
      std::vector<std::string> names;
      for (const auto& item : check.items) names.push_back(*item->description());
      simulated.push_back(line(check.beat, names));
    }));
    const auto stepped = stepDaemon(options.from, options.to, events);
    EXPECT_EQ(stepped, simulated);
    EXPECT_GE(stepped.size(), 4u);
  }
}

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
    clock_.setCivil(2026, 3, 4, 9, 29, 50);
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
