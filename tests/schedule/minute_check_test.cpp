// The minute check by the type table, and its search for coming minutes,
// checked against testing the minutes one by one.

#include <gtest/gtest.h>

#include <random>

#include "schedule/minute_check.h"
#include "schedule_test_support.h"

namespace halyard {
namespace {

using testing::newItem;

TimeInterval wallTime(const cctz::time_zone& zone, int y, int mo, int d, int h, int mi, double fraction = 0) {
  return joinInstant(cctz::convert(cctz::civil_second(y, mo, d, h, mi, 0), zone), fraction);
}

bool selectsAt(const KSScheduledItem& item, TimeInterval t, const cctz::time_zone& zone) {
  return minuteCheckSelects(item, cctz::convert(splitInstant(t).seconds, zone), t);
}

TEST(MinuteCheck, ReadsOnlyTheDaySetItsTypeNames) {
  const auto zone = loadTimeZone("America/New_York").value();
  // 2026-03-04 is a Wednesday (weekday 3), day index 3.
  const TimeInterval wednesday = wallTime(zone, 2026, 3, 4, 9, 30, 0.05);
  struct Case {
    const char* name;
    std::int32_t type;
    const char *daysOfWeek, *daysOfMonth;
    bool active, expected;
  } cases[] = {
      {"weekly, weekday selected, no day of month (a new item)", 5, "0111110", "", true, true},
      {"weekly, weekday not selected", 5, "1000001", "", true, false},
      {"monthly reads the day of month", 7, "0000000", "0001", true, true},
      {"monthly, day not selected", 7, "1111111", "1110", true, false},
      {"daily ignores both day sets", 4, "0000000", "", true, true},
      {"inactive never", 4, "1111111", "", false, false},
      {"volume mount never", 6, "1111111", "", true, false},
      {"type 0 never", 0, "1111111", "", true, false},
      {"type 9 never", 9, "1111111", "", true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto item = newItem();
    item->setScheduleType(c.type);
    item->setActive(c.active);
    item->setScheduledDaysOfWeek(std::string(c.daysOfWeek));
    item->setScheduledDaysOfMonth(std::string(c.daysOfMonth) +
                                  std::string(31 - std::string(c.daysOfMonth).size(), '0'));
    item->setScheduledHours(std::string(9, '0') + "1" + std::string(14, '0'));
    item->setScheduledMinutes(std::string(30, '0') + "1" + std::string(29, '0'));
    EXPECT_EQ(selectsAt(*item, wednesday, zone), c.expected);
    EXPECT_FALSE(selectsAt(*item, wednesday + 60, zone)) << "minute 31 is not selected";
  }
}

TEST(MinuteCheck, StartDateTypeRunsOnlyOnceItsStartHasPassed) {
  const auto zone = loadTimeZone("Europe/Berlin").value();
  auto item = newItem();
  item->setType(ScheduleType::FromStartDate);
  item->selectEveryMinute();
  item->selectEveryHour();
  const TimeInterval beat = wallTime(zone, 2026, 3, 4, 9, 30, 0.4);
  for (auto [offset, expected] : {std::pair{-0.4, true}, {0.0, false}, {0.1, false}}) {
    SCOPED_TRACE(offset);
    item->setStartDate(CalendarDate::make(beat + offset, TimeZone::make("Europe/Berlin")));
    EXPECT_EQ(selectsAt(*item, beat, zone), expected);
  }
  // Searched: the first minute strictly after a start in the future.
  item->setStartDate(CalendarDate::make(beat + 600, TimeZone::make("Europe/Berlin")));
  EXPECT_EQ(nextMinuteCheckSelection(*item, beat - 3600, kDistantFuture, zone), beat + 660);
}

// The search answers what testing every minute from `after` answers, over
// random patterns and types around both DST nights.
TEST(MinuteCheck, SearchEqualsTestingEveryMinute) {
  std::mt19937_64 rng(19);
  auto randomSet = [&](std::size_t length, double density) {
    std::string set(length, '0');
    for (char& c : set) c = std::bernoulli_distribution(density)(rng) ? '1' : '0';
    return set;
  };
  const char* const kZones[] = {"America/New_York", "Europe/Berlin", "Australia/Lord_Howe"};
  for (int i = 0; i < 300; ++i) {
    const auto zone = loadTimeZone(kZones[i % 3]).value();
    auto item = newItem();
    item->setScheduleType(std::uniform_int_distribution<int>(2, 8)(rng));
    item->setScheduledMonths(randomSet(12, 0.7));
    item->setScheduledDaysOfMonth(randomSet(31, 0.2));
    item->setScheduledDaysOfWeek(randomSet(7, 0.4));
    item->setScheduledHours(randomSet(24, 0.15));
    item->setScheduledMinutes(randomSet(60, 0.05));
    const TimeInterval after = wallTime(zone, 2026, 3 + 7 * (i % 2), 1 + i % 28, i % 24, 0, 0.05);
    item->setStartDate(CalendarDate::make(after + (i % 5) * 3000.3, TimeZone::make("UTC")));
    const TimeInterval before = after + 10 * 86400;
    std::optional<TimeInterval> expected;
    for (TimeInterval t = after; t < before && !expected; t += 60) {
      if (selectsAt(*item, t, zone)) expected = t;
    }
    SCOPED_TRACE(::testing::Message() << "case " << i << " type " << item->scheduleType());
    EXPECT_EQ(nextMinuteCheckSelection(*item, after, before, zone), expected);
  }
}

}  // namespace
}  // namespace halyard
