// The exactly-once mode over a year in three zones, with random items, sleeps,
// clock changes both ways and agent restarts: the checks' windows cover every
// civil minute of the year once, and each check hands over exactly the items
// that a plain minute-by-minute count finds selected in its window.

#include <gtest/gtest.h>

#include "simulation_support.h"

namespace halyard::agent::testing {
namespace {

using K = SimulationEvent::Kind;

// The type table, read plainly: one civil minute, one item.
bool plainlySelected(const KSScheduledItem& item, const cctz::civil_minute& m, const cctz::time_zone& zone) {
  auto on = [](const std::string* set, long index) {
    return set && index < static_cast<long>(set->size()) && (*set)[index] == '1';
  };
  if (!item.active()) return false;
  const int type = item.scheduleType();
  if (type < 3 || type == 6 || type > 7) return false;
  if (type == 3) {
    const SplitInstant start = splitInstant(item.startDate()->seconds);
    const cctz::civil_second reading = cctz::convert(start.seconds, zone);
    const bool begunByMinute =
        cctz::civil_second(m) > reading || (cctz::civil_second(m) == reading && start.fraction == 0);
    if (!begunByMinute) return false;
  }
  if (!on(item.scheduledMinutes(), m.minute()) || !on(item.scheduledHours(), m.hour()) ||
      !on(item.scheduledMonths(), m.month() - 1)) {
    return false;
  }
  const long weekday = (static_cast<long>(cctz::get_weekday(cctz::civil_day(m))) + 1) % 7;
  if (type == 5) return on(item.scheduledDaysOfWeek(), weekday);
  if (type == 7) return on(item.scheduledDaysOfMonth(), m.day() - 1);
  return true;
}

cctz::civil_minute civilOf(CivilMinute minute) { return cctz::civil_minute(1970, 1, 1, 0, 0) + minute; }

// Ten items of every type, one inactive, starting anywhere in the year.
ScheduleItems randomItems(RandomDraws& random, TimeInterval from) {
  ScheduleItems made;
  for (int i = 0; i < 10; ++i) {
    // Whole-minute starts are as common as others: their first minute is an edge.
    const TimeInterval start =
        from + 60 * std::round(random.uniform(-1e6, 3e7) / 60) +
        (random.chance(0.5) ? 0 : std::round(random.uniform(0, 59)) + (random.chance(0.5) ? 0.5 : 0));
    auto item = std::make_shared<KSScheduledItem>(CalendarDate::make(start, TimeZone::make("UTC")));
    item->setDescription("item " + std::to_string(i));
    item->setScheduleType(std::vector<int>{3, 4, 5, 5, 7, 0, 9, 6}[i % 8]);
    item->setActive(i != 9);
    item->setScheduledMonths(random.set(12, 0.8));
    item->setScheduledDaysOfMonth(random.set(31, 0.4));
    item->setScheduledDaysOfWeek(random.set(7, 0.5));
    item->setScheduledHours(random.set(24, 0.3));
    item->setScheduledMinutes(random.set(60, 0.08));
    made.push_back(item);
  }
  return made;
}

// Sleeps, clock changes both ways and restarts, every few days.
std::vector<SimulationEvent> randomEvents(RandomDraws& random, TimeInterval from, TimeInterval until) {
  std::vector<SimulationEvent> made;
  TimeInterval clock = from;
  for (TimeInterval at = from + random.uniform(3600, 86400 * 4); at < until;
       at = clock + random.uniform(600, 86400 * 4)) {
    const K kind =
        std::vector<K>{K::Sleep, K::Clock, K::Clock, K::Restart}[static_cast<std::size_t>(random.uniform(0, 4))];
    const double length =
        std::round(random.uniform(30, kind == K::Clock ? 3 * 3600 : 12 * 3600)) + (random.chance(0.3) ? 0.25 : 0);
    const bool back = kind == K::Clock && random.chance(0.5);
    made.push_back({kind, std::round(at), std::round(at) + (back ? -std::min(length, 5400.0) : length)});
    clock = std::max(made.back().at, made.back().to);
  }
  return made;
}

TEST(ExactlyOnce, EveryCivilMinuteOfAYearIsCoveredOnceAndEachSelectedItemHandedOver) {
  for (int z = 0; z < 3; ++z) {
    SCOPED_TRACE(kZones[z]);
    const cctz::time_zone zone = loadTimeZone(kZones[z]).value();
    RandomDraws random(static_cast<std::uint64_t>(z) + 40);
    const SimulationOptions options{.from = wall(zone, 2026, 1, 1, 0, 0),
                                    .to = wall(zone, 2027, 1, 1, 0, 0, 30),
                                    .zone = zone,
                                    .allChecks = true,
                                    .exactlyOnce = true,
                                    .catchUp = true};
    const ScheduleItems items = randomItems(random, options.from);
    const auto events = randomEvents(random, options.from, options.to - 86400);
    ASSERT_GT(events.size(), 30u);

    CivilMinute next = civilMinuteAt(options.from, zone);
    std::size_t checks = 0, handOvers = 0;
    const auto status = simulate(items, events, options, [&](const SimulatedCheck& check) {
      ++checks;
      if (check.coveredFrom > check.coveredTo) {  // a clock set back: nothing new covered
        EXPECT_TRUE(check.items.empty());
        return;
      }
      ASSERT_EQ(check.coveredFrom, next) << formatInstant(check.beat, zone);
      next = check.coveredTo + 1;
      ScheduleItems expected;
      for (const auto& item : items) {
        for (CivilMinute m = check.coveredFrom; m <= check.coveredTo; ++m) {
          if (plainlySelected(*item, civilOf(m), zone)) {
            expected.push_back(item);
            break;
          }
        }
      }
      EXPECT_EQ(check.items, expected) << formatInstant(check.beat, zone);
      handOvers += check.items.size();
    });
    ASSERT_TRUE(status) << status.error().describe();
    EXPECT_EQ(next, civilMinuteAt(options.to, zone) + 1) << "the year's last minute";
    EXPECT_GT(handOvers, 1000u);
    EXPECT_GT(checks, 400000u);
  }
}

}  // namespace
// A type-3 item runs at its start minute in both modes when the start lies
// on the whole minute: the beat at second 0 comes after it.
TEST(ExactlyOnce, ATypeThreeStartOnTheWholeMinuteRunsInThatMinute) {
  const cctz::time_zone zone = loadTimeZone("Europe/Berlin").value();
  const TimeInterval minute = wall(zone, 2026, 3, 2, 9, 30);
  const struct {
    const char* name;
    double startAfterMinute;
    bool due;
  } rows[] = {{"a start on the whole minute", 0, true},
              {"a start half a second into the minute", 0.5, false},
              {"a start half a second before the minute", -0.5, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto item = timedItem("", 3, oneHour(9), minutes(30, 30), minute + row.startAfterMinute);
    ExactlyOnceWindow window;
    window.setCovered(civilMinuteAt(minute - 60, zone));
    EXPECT_EQ(window.check({item}, minute + 0.05, zone, true).size(), row.due ? 1u : 0u);
  }
}

// In the hour that autumn repeats, a start in its second pass reads earlier
// than the first pass's minutes: the item still waits for its start.
TEST(ExactlyOnce, ATypeThreeItemIsNotHandedOverBeforeItsStartInARepeatedHour) {
  const cctz::time_zone zone = loadTimeZone("Europe/Berlin").value();
  const TimeInterval firstPass = wall(zone, 2026, 10, 25, 2, 30);                         // 02:30 CEST
  auto item = timedItem("", 3, oneHour(2), minutes(30, 30), firstPass + 3600 - 20 * 60);  // 02:10 CET
  ExactlyOnceWindow window;
  window.setCovered(civilMinuteAt(firstPass - 60, zone));
  EXPECT_TRUE(window.check({item}, firstPass + 0.05, zone, true).empty());
}

// An agent stalled before its first check (a loaded machine at login)
// still hands over the minutes since it started, once; the minute it starts
// in counts only when it starts at that minute's second 0.
TEST(ExactlyOnce, TheFirstCheckCoversEveryMinuteSinceTheAgentStarted) {
  const cctz::time_zone zone = loadTimeZone("Europe/Berlin").value();
  const TimeInterval ten = wall(zone, 2026, 3, 2, 10, 0);
  std::string hours(24, '0'), minutesSet(60, '0');
  hours[9] = hours[10] = minutesSet[0] = minutesSet[59] = '1';  // 09:59 and 10:00 (and 09:00, 10:59)
  auto item = timedItem("", 4, hours, minutesSet, ten - 3600);
  const struct {
    const char* name;
    TimeInterval start, firstCheck;
    bool due;
  } rows[] = {{"started at 09:59:58, first check at 10:01", ten - 2, ten + 60.05, true},
              {"started at 10:00:00, first check at once", ten, ten + 0.05, true},
              {"started at 10:00:01, first check at 10:01", ten + 1, ten + 60.05, false},
              {"started at 09:59:00.5, first check at 09:59:01", ten - 59.5, ten - 59, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ExactlyOnceWindow window;
    window.startAt(row.start, zone);
    EXPECT_EQ(window.check({item}, row.firstCheck, zone, true).size(), row.due ? 1u : 0u);
  }
}

}  // namespace halyard::agent::testing
