// The exactly-once mode over a year in three zones, with random items, sleeps,
// clock changes both ways and agent restarts: the checks' windows cover every
// civil minute of the year once, and each check hands over exactly the items
// that a plain minute-by-minute count finds selected in its window.

#include <gtest/gtest.h>

#include <random>

#include "agent/rules/simulation.h"

namespace halyard::agent {
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

class RandomYear {
 public:
  explicit RandomYear(std::uint64_t seed) : rng_(seed) {}

  ScheduleItems items(TimeInterval from) {
    ScheduleItems made;
    for (int i = 0; i < 10; ++i) {
      // Whole-minute starts are as common as others: their first minute is an edge.
      const TimeInterval start = from + 60 * std::round(uniform(-1e6, 3e7) / 60) +
                                 (chance(0.5) ? 0 : std::round(uniform(0, 59)) + (chance(0.5) ? 0.5 : 0));
      auto item = std::make_shared<KSScheduledItem>(CalendarDate::make(start, TimeZone::make("UTC")));
      item->setDescription("item " + std::to_string(i));
      item->setScheduleType(std::vector<int>{3, 4, 5, 5, 7, 0, 9, 6}[i % 8]);
      item->setActive(i != 9);
      item->setScheduledMonths(set(12, 0.8));
      item->setScheduledDaysOfMonth(set(31, 0.4));
      item->setScheduledDaysOfWeek(set(7, 0.5));
      item->setScheduledHours(set(24, 0.3));
      item->setScheduledMinutes(set(60, 0.08));
      made.push_back(item);
    }
    return made;
  }

  std::vector<SimulationEvent> events(TimeInterval from, TimeInterval until) {
    std::vector<SimulationEvent> made;
    TimeInterval clock = from;
    for (TimeInterval at = from + uniform(3600, 86400 * 4); at < until; at = clock + uniform(600, 86400 * 4)) {
      const K kind = std::vector<K>{K::Sleep, K::Clock, K::Clock, K::Restart}[static_cast<std::size_t>(uniform(0, 4))];
      const double length = std::round(uniform(30, kind == K::Clock ? 3 * 3600 : 12 * 3600)) + (chance(0.3) ? 0.25 : 0);
      const bool back = kind == K::Clock && chance(0.5);
      made.push_back({kind, std::round(at), std::round(at) + (back ? -std::min(length, 5400.0) : length)});
      clock = std::max(made.back().at, made.back().to);
    }
    return made;
  }

 private:
  double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(rng_); }
  bool chance(double p) { return std::bernoulli_distribution(p)(rng_); }
  std::string set(std::size_t length, double density) {
    std::string made(length, '0');
    for (char& c : made) c = chance(density) ? '1' : '0';
    return made;
  }
  std::mt19937_64 rng_;
};

TEST(ExactlyOnce, EveryCivilMinuteOfAYearIsCoveredOnceAndEachSelectedItemHandedOver) {
  const char* const kZones[] = {"America/New_York", "Europe/Berlin", "Australia/Lord_Howe"};
  for (int z = 0; z < 3; ++z) {
    SCOPED_TRACE(kZones[z]);
    const cctz::time_zone zone = loadTimeZone(kZones[z]).value();
    RandomYear random(static_cast<std::uint64_t>(z) + 40);
    SimulationOptions options;
    options.zone = zone;
    options.from = joinInstant(cctz::convert(cctz::civil_second(2026, 1, 1, 0, 0, 0), zone), 0);
    options.to = joinInstant(cctz::convert(cctz::civil_second(2027, 1, 1, 0, 0, 30), zone), 0);
    options.exactlyOnce = true;
    options.catchUp = true;
    options.allChecks = true;
    const ScheduleItems items = random.items(options.from);
    const auto events = random.events(options.from, options.to - 86400);
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
  const TimeInterval minute = joinInstant(cctz::convert(cctz::civil_second(2026, 3, 2, 9, 30, 0), zone), 0);
  const struct {
    const char* name;
    double startAfterMinute;
    bool due;
  } rows[] = {{"a start on the whole minute", 0, true},
              {"a start half a second into the minute", 0.5, false},
              {"a start half a second before the minute", -0.5, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    auto item =
        std::make_shared<KSScheduledItem>(CalendarDate::make(minute + row.startAfterMinute, TimeZone::make("UTC")));
    item->setScheduleType(3);
    item->setScheduledHours(std::string(9, '0') + "1" + std::string(14, '0'));
    item->setScheduledMinutes(std::string(30, '0') + "1" + std::string(29, '0'));
    ExactlyOnceWindow window;
    window.setCovered(civilMinuteAt(minute - 60, zone));
    EXPECT_EQ(window.check({item}, minute + 0.05, zone, true).size(), row.due ? 1u : 0u);
  }
}

}  // namespace halyard::agent
