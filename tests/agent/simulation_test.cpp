// The simulation of the agent's heartbeat: skipping the beats that cannot
// hand anything over answers as visiting every beat, and named periods show
// each rule of the heartbeat as a user would meet it.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <tuple>

#include "simulation_support.h"

namespace halyard::agent::testing {
namespace {

// Each check as "HH:MM:SS.mmm+hh:mm new A,B".
std::vector<std::string> run(const ScheduleItems& items, const std::vector<SimulationEvent>& events,
                             SimulationOptions options) {
  std::vector<std::string> lines;
  const auto status = simulate(items, events, options, [&](const SimulatedCheck& check) {
    const SplitInstant split = splitInstant(check.beat);
    const auto millis = std::chrono::milliseconds(std::llround(split.fraction * 1000));
    std::ostringstream line;
    line << cctz::format("%d %H:%M:%E3S%Ez", split.seconds + millis, options.zone)
         << (check.mode == HeartbeatMode::New ? " new " : " missed ");
    for (std::size_t i = 0; i < check.items.size(); ++i) line << (i ? "," : "") << *check.items[i]->description();
    lines.push_back(line.str());
  });
  EXPECT_TRUE(status) << status.error().describe();
  return lines;
}

// Twelve items of random types and selections starting around `around`.
ScheduleItems randomItems(RandomDraws& random, TimeInterval around) {
  ScheduleItems made;
  for (int i = 0; i < 12; ++i) {
    auto one = timedItem("item" + std::to_string(i), random.pick({0, 3, 4, 5, 5, 6, 7, 9}), random.set(24, 0.3),
                         random.set(60, 0.05), around + random.uniform(-86400, 86400));
    one->setScheduledDaysOfWeek(random.set(7, 0.6));
    one->setScheduledDaysOfMonth(random.set(31, 0.5));
    one->setActive(random.chance(0.9));
    made.push_back(one);
  }
  return made;
}

// Sleeps, clock changes both ways, suspensions and restarts, of seconds to hours.
std::vector<SimulationEvent> randomEvents(RandomDraws& random, TimeInterval from, TimeInterval to) {
  std::vector<SimulationEvent> made;
  for (TimeInterval at = from + random.uniform(0, 20000); at < to; at += random.uniform(60, 30000)) {
    SimulationEvent event{static_cast<SimulationEvent::Kind>(random.pick({0, 1, 2, 3, 4})), std::round(at), 0};
    const double length =
        random.chance(0.5) ? std::round(random.uniform(1, 200)) : std::round(random.uniform(1, 7200)) + 0.5;
    event.to = event.kind == SimulationEvent::Kind::Clock && random.chance(0.4) ? event.at - length : event.at + length;
    made.push_back(event);
    at = std::max(at, event.to);
  }
  return made;
}

TEST(Simulation, SkippingBeatsAnswersAsVisitingEveryBeat) {
  for (int i = 0; i < 60; ++i) {
    SCOPED_TRACE(::testing::Message() << "case " << i << " in " << kZones[i % 3]);
    RandomDraws random(static_cast<std::uint64_t>(i) + 1);
    const cctz::time_zone zone = loadTimeZone(kZones[i % 3]).value();
    // Around the spring and the autumn change of each zone.
    const TimeInterval from = wall(zone, 2026, i % 2 ? 3 : 10, i % 2 ? 7 : 3, 12, 0) + random.uniform(0, 86400);
    SimulationOptions options{.from = from, .to = from + 3 * 86400, .zone = zone};
    options.beatFraction = std::round(random.uniform(0, 999999)) / 1e6;
    options.checkCost = std::round(random.uniform(0, 999999)) / 1e6;
    options.schedulerActive = random.chance(0.8);
    options.allChecks = i % 4 == 3;
    options.exactlyOnce = i % 5 == 4;
    options.catchUp = i % 3 == 0;
    const ScheduleItems items = randomItems(random, options.from);
    const auto events = randomEvents(random, options.from, options.to);
    const auto skipping = run(items, events, options);
    options.everyBeat = true;
    const auto visiting = run(items, events, options);
    const auto differs = std::mismatch(skipping.begin(), skipping.end(), visiting.begin(), visiting.end());
    EXPECT_TRUE(differs.first == skipping.end() && differs.second == visiting.end())
        << "skipping: " << (differs.first == skipping.end() ? "end" : *differs.first)
        << "\nvisiting: " << (differs.second == visiting.end() ? "end" : *differs.second);
  }
}

// A day in New York: 2026-03-04, a Wednesday.
struct Period {
  const char* name;
  std::vector<std::tuple<const char*, std::int32_t, int, int, int>> items;    // description, type, hour, minutes
  std::vector<std::tuple<SimulationEvent::Kind, int, int, int, int>> events;  // kind, at h:m:s, to m:s of 09:xx
  int fromMinute, toMinute;  // of 09:xx, from at second 59 of the minute before
  double checkCost;
  bool allChecks;
  std::vector<std::string> expected;
};

TEST(Simulation, NamedPeriodsShowEachHeartbeatRule) {
  using K = SimulationEvent::Kind;
  const auto zone = loadTimeZone("America/New_York").value();
  const Period periods[] = {
      Period("60 s after the last check is no gap: the new check runs", {{"A", 4, 9, 31, 31}},
             {{K::Clock, 9, 30, 30, 3100}}, 30, 32, 0, true,
             {"04 09:30:00.050-05:00 new ", "04 09:31:00.050-05:00 new A", "04 09:32:00.050-05:00 new "}),
      Period("60.9 s with a check cost truncates to 60: no check until the next beat", {{"A", 4, 9, 31, 31}},
             {{K::Clock, 9, 30, 30, 3101}}, 30, 32, 0.1, true,
             {"04 09:30:00.050-05:00 new ", "04 09:31:02.050-05:00 missed A", "04 09:32:00.050-05:00 new "}),
      Period("61 s is a gap: the missed check runs at once", {{"A", 4, 9, 31, 31}}, {{K::Clock, 9, 30, 30, 3101}}, 30,
             32, 0, true,
             {"04 09:30:00.050-05:00 new ", "04 09:31:01.050-05:00 missed A", "04 09:32:00.050-05:00 new "}),
      Period("a clock set back two minutes runs the same minute again", {{"B", 4, 9, 31, 31}},
             {{K::Clock, 9, 31, 30, 2930}}, 31, 32, 0.002, false,
             {"04 09:31:00.050-05:00 new B", "04 09:31:00.050-05:00 new B"}),
      Period("a sleep of several minutes: one missed check hands over each item once",
             {{"A", 4, 9, 31, 31}, {"C", 4, 9, 33, 34}}, {{K::Sleep, 9, 30, 30, 3520}}, 30, 36, 0.002, false,
             {"04 09:35:20.050-05:00 missed A,C"}),
      Period("a wake at second 0: the missed check covers that minute, no new check",
             {{"A", 4, 9, 31, 31}, {"C", 4, 9, 33, 33}}, {{K::Sleep, 9, 30, 30, 3300}}, 30, 34, 0.002, false,
             {"04 09:33:00.050-05:00 missed A,C"}),
      Period("suspended: nothing runs, and nothing is caught up on resuming",
             {{"A", 4, 9, 31, 31}, {"C", 4, 9, 33, 33}}, {{K::Suspend, 9, 30, 30, 0}, {K::Resume, 9, 32, 30, 0}}, 30,
             34, 0.002, false, {"04 09:33:00.050-05:00 new C"}),
      Period("types 0 and 9 never run by the minute", {{"T0", 0, 9, 31, 31}, {"A", 4, 9, 31, 31}, {"T9", 9, 9, 31, 31}},
             {}, 30, 32, 0.002, false, {"04 09:31:00.050-05:00 new A"}),
      Period("types 0 and 9 are caught up by the missed check",
             {{"T0", 0, 9, 31, 31}, {"A", 4, 9, 31, 31}, {"T9", 9, 9, 31, 31}}, {{K::Sleep, 9, 30, 30, 3130}}, 30, 32,
             0.002, false, {"04 09:31:30.050-05:00 missed T0,A,T9"}),
      Period("type 3 runs only once its start date has passed, by either check", {{"S", 3, 9, 30, 34}},
             {{K::Sleep, 9, 30, 30, 3230}}, 30, 34, 0.002, false,
             {"04 09:32:30.050-05:00 missed S", "04 09:33:00.050-05:00 new S", "04 09:34:00.050-05:00 new S"}),
  };
  for (const Period& period : periods) {
    SCOPED_TRACE(period.name);
    ScheduleItems items;
    for (const auto& [description, type, hour, first, last] : period.items) {
      // Type 3 starts at 09:32:00.5, after that minute's check; the missed
      // check counts from the start date, so minute 32 still runs after a wake.
      const TimeInterval start = type == 3 ? wall(zone, 2026, 3, 4, 9, 32, 0, 0.5) : wall(zone, 2026, 1, 1, 0, 0);
      items.push_back(timedItem(description, type, oneHour(hour), minutes(first, last), start));
    }
    std::vector<SimulationEvent> events;
    for (const auto& [kind, h, m, s, to] : period.events) {
      events.push_back({kind, wall(zone, 2026, 3, 4, h, m, s), wall(zone, 2026, 3, 4, 9, to / 100, to % 100)});
    }
    const SimulationOptions options{.from = wall(zone, 2026, 3, 4, 9, period.fromMinute - 1, 59),
                                    .to = wall(zone, 2026, 3, 4, 9, period.toMinute, 30),
                                    .zone = zone,
                                    .checkCost = period.checkCost,
                                    .allChecks = period.allChecks};
    EXPECT_EQ(run(items, events, options), period.expected);
  }
}

TEST(Simulation, BothDaylightSavingNightsOfNewYork) {
  const auto zone = loadTimeZone("America/New_York").value();
  const TimeInterval start = wall(zone, 2026, 1, 1, 0, 0);
  const ScheduleItems items = {timedItem("at 01:30", 4, oneHour(1), minutes(30, 30), start),
                               timedItem("at 02:30", 4, oneHour(2), minutes(30, 30), start),
                               timedItem("at 03:30", 4, oneHour(3), minutes(30, 30), start)};
  SimulationOptions options{.from = wall(zone, 2026, 3, 8, 0, 0), .to = wall(zone, 2026, 3, 8, 4, 0), .zone = zone};
  // Spring: 02:00 becomes 03:00, and the 02:30 item does not run that night.
  EXPECT_EQ(run(items, {}, options),
            (std::vector<std::string>{"08 01:30:00.050-05:00 new at 01:30", "08 03:30:00.050-04:00 new at 03:30"}));
  // Autumn: 01:00 to 02:00 comes twice, and so does the 01:30 run.
  options.from = wall(zone, 2026, 11, 1, 0, 0);
  options.to = wall(zone, 2026, 11, 1, 4, 0);
  EXPECT_EQ(run(items, {}, options),
            (std::vector<std::string>{"01 01:30:00.050-04:00 new at 01:30", "01 01:30:00.050-05:00 new at 01:30",
                                      "01 02:30:00.050-05:00 new at 02:30", "01 03:30:00.050-05:00 new at 03:30"}));
}

}  // namespace
}  // namespace halyard::agent::testing
