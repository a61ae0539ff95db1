// Named run-date cases: each DST shape of the test zones, the rounding of the
// walk's double candidates, the bounds and the distant future. Every row with
// a bound short enough to walk is also checked against the minute walk.

#include "schedule/run_dates.h"

#include <cctz/civil_time.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <vector>

#include "foundation/dates.h"
#include "schedule/minute_walk.h"

namespace halyard {
namespace {

constexpr double kYear = 365.25 * 86400;

std::string only(int width, std::initializer_list<int> picks) {
  std::string set(width, '0');
  for (int i : picks) set[i] = '1';
  return set;
}

std::string all(int width) { return std::string(width, '1'); }

// Every day of every month at the given hours and minutes, started long ago.
RunPattern daily(std::initializer_list<int> hours, std::initializer_list<int> minutes) {
  return {true, -3e9, all(12), all(31), all(7), only(24, hours), only(60, minutes)};
}

RunPattern with(RunPattern p, std::string RunPattern::*set, std::string value) {
  p.*set = std::move(value);
  return p;
}

// `p` on the given days of the given months only (both counted from zero).
RunPattern on(RunPattern p, std::initializer_list<int> months, std::initializer_list<int> days) {
  return with(with(p, &RunPattern::months, only(12, months)), &RunPattern::daysOfMonth, only(31, days));
}

TimeInterval utc(int year, int month, int day, int hour, int minute, double second = 0) {
  const auto at = cctz::convert(cctz::civil_second(year, month, day, hour, minute, 0), cctz::utc_time_zone());
  return fromUnixSeconds(static_cast<double>(at.time_since_epoch().count()) + second);
}

std::string shown(std::optional<TimeInterval> t, const cctz::time_zone& zone) {
  return t ? formatInstant(*t, zone) : "absent";
}

struct ForwardCase {
  const char *name, *zone;
  RunPattern pattern;
  TimeInterval after;
  std::optional<TimeInterval> before;
  const char* expected;
};

std::vector<ForwardCase> forwardCases() {
  RunPattern inactive = daily({0}, {0});
  inactive.active = false;
  RunPattern future = daily({9}, {20});
  future.startDate = utc(2024, 5, 1, 9, 17, 42.25);
  const RunPattern eight = daily({8}, {0});
  const RunPattern mondaysAndFirsts =
      with(with(eight, &RunPattern::daysOfWeek, only(7, {1})), &RunPattern::daysOfMonth, only(31, {0}));
  return {
      {"inactive", "Europe/Berlin", inactive, utc(2024, 1, 1, 0, 0), utc(2024, 2, 1, 0, 0), "absent"},
      {"new-item-without-days-of-month", "Europe/Berlin",
       with(daily({0}, {0}), &RunPattern::daysOfMonth, std::string(31, '0')), utc(2024, 1, 1, 0, 0), std::nullopt,
       "absent"},
      {"start-in-the-future-keeps-its-seconds", "UTC", future, utc(2024, 1, 1, 0, 0), utc(2025, 1, 1, 0, 0),
       "2024-05-01 09:20:42.250 +0000"},
      {"the-current-minute-counts", "UTC", daily({10}, {0}), utc(2024, 5, 6, 10, 0, 37), utc(2024, 6, 1, 0, 0),
       "2024-05-06 10:00:37 +0000"},
      {"weekdays-with-every-day-of-month", "UTC", with(eight, &RunPattern::daysOfWeek, "0111110"),
       utc(2024, 6, 1, 9, 0), utc(2024, 7, 1, 0, 0), "2024-06-03 08:00:00 +0000"},
      {"mondays-or-firsts", "UTC", mondaysAndFirsts, utc(2024, 5, 28, 9, 0), utc(2024, 7, 1, 0, 0),
       "2024-06-01 08:00:00 +0000"},
      {"limit-equal-to-first-candidate-returned-untested", "UTC", daily({3}, {3}), utc(2024, 5, 1, 0, 0),
       utc(2024, 5, 1, 0, 0), "2024-05-01 00:00:00 +0000"},
      {"limit-before-first-candidate", "UTC", daily({0}, {0}), utc(2024, 5, 1, 0, 0), utc(2024, 4, 1, 0, 0), "absent"},
      {"foreign-characters-select-nothing", "UTC", with(eight, &RunPattern::hours, "xx"), utc(2024, 5, 1, 0, 0),
       utc(2024, 5, 3, 0, 0), "2024-05-03 00:00:00 +0000"},
      {"new-york-spring-gap-skips-0230", "America/New_York", daily({2}, {30}), utc(2024, 3, 10, 5, 0),
       utc(2024, 4, 1, 0, 0), "2024-03-11 02:30:00 -0400"},
      {"new-york-repeated-0130-met-again", "America/New_York", daily({1}, {30}), utc(2024, 11, 3, 5, 31),
       utc(2024, 12, 1, 0, 0), "2024-11-03 01:30:00 -0500"},
      {"berlin-spring-gap", "Europe/Berlin", daily({2}, {15}), utc(2024, 3, 30, 23, 0), utc(2024, 5, 1, 0, 0),
       "2024-04-01 02:15:00 +0200"},
      {"lord-howe-half-hour-gap", "Australia/Lord_Howe", daily({2}, {15}), utc(2024, 10, 5, 13, 30),
       utc(2024, 11, 1, 0, 0), "2024-10-07 02:15:00 +1100"},
      {"lord-howe-after-the-gap", "Australia/Lord_Howe", daily({2}, {45}), utc(2024, 10, 5, 13, 30),
       utc(2024, 11, 1, 0, 0), "2024-10-06 02:45:00 +1100"},
      {"lord-howe-half-hour-repeat", "Australia/Lord_Howe", daily({1}, {45}), utc(2024, 4, 6, 14, 50),
       utc(2024, 5, 1, 0, 0), "2024-04-07 01:45:00 +1030"},
      {"kathmandu-quarter-hour-offset", "Asia/Kathmandu", daily({0}, {0}), utc(2024, 1, 1, 0, 0), utc(2024, 2, 1, 0, 0),
       "2024-01-02 00:00:00 +0545"},
      {"kathmandu-1986-skips-a-quarter-hour", "Asia/Kathmandu", daily({0}, {5}), utc(1985, 12, 31, 17, 30),
       utc(1986, 2, 1, 0, 0), "1986-01-02 00:05:00 +0545"},
      {"apia-skipped-30-december-2011", "Pacific/Apia", on(daily({12}, {0}), {11}, {29}), utc(2011, 12, 29, 0, 0),
       utc(2013, 1, 1, 0, 0), "2012-12-30 12:00:00 +1400"},
      {"new-york-past-the-transition-table", "America/New_York", daily({2}, {30}), utc(3001, 3, 8, 5, 0),
       utc(3001, 4, 1, 0, 0), "3001-03-09 02:30:00 -0400"},
      {"leap-day-skips-2100", "UTC", on(daily({0}, {0}), {1}, {28}), utc(2097, 1, 1, 0, 0), std::nullopt,
       "2104-02-29 00:00:00 +0000"},
      {"rounding-step-at-2^29-skips-a-minute", "Europe/Berlin", daily({19}, {48}), 536870880.0 - std::ldexp(1, -24),
       utc(2018, 1, 10, 0, 0), "2018-01-06 19:48:00 +0100"},
      {"never-from-a-whole-minute-is-the-distant-future", "UTC", on(daily({0}, {0}), {1}, {29}), utc(2024, 5, 1, 0, 0),
       std::nullopt, "4001-01-01 00:00:00 +0000"},
      {"never-from-a-second-within-a-minute-is-absent", "UTC", on(daily({0}, {0}), {3}, {30}),
       utc(2024, 5, 1, 0, 0, 30), std::nullopt, "absent"},
  };
}

TEST(RunDates, NextRunDate) {
  for (const ForwardCase& c : forwardCases()) {
    SCOPED_TRACE(c.name);
    const cctz::time_zone zone = loadTimeZone(c.zone).value();
    const auto next = nextScheduledDateAfter(c.pattern, c.after, c.before, 0, zone);
    EXPECT_EQ(shown(next, zone), c.expected);
    if (c.before) {
      testing::MinuteWalk walk(c.pattern, zone);
      EXPECT_EQ(walk.next(c.after, c.before, 0), next);
    }
  }
}

struct BackwardCase {
  const char *name, *zone;
  RunPattern pattern;
  std::optional<TimeInterval> before, after;
  TimeInterval now;
  const char* expected;
};

std::vector<BackwardCase> backwardCases() {
  RunPattern noStart = daily({1}, {30});
  noStart.startDate.reset();
  const RunPattern berlinLate = daily({2}, {30});
  return {
      {"lower-bound-after-before", "UTC", daily({0}, {0}), utc(2024, 5, 1, 0, 0), utc(2024, 5, 2, 0, 0),
       utc(2024, 6, 1, 0, 0), "absent"},
      {"starts-from-now-when-before-is-later", "UTC", daily({0}, {0}), utc(2024, 6, 1, 0, 0), utc(2024, 4, 1, 0, 0),
       utc(2024, 5, 10, 12, 0, 5), "2024-05-10 00:00:05 +0000"},
      {"starts-from-before-when-now-is-later", "UTC", daily({0}, {0}), utc(2024, 5, 3, 12, 0), utc(2024, 4, 1, 0, 0),
       utc(2024, 5, 10, 12, 0), "2024-05-03 00:00:00 +0000"},
      {"lower-bound-reached-exactly-is-returned", "UTC", daily({0}, {0}), std::nullopt, utc(2024, 5, 3, 12, 0),
       utc(2024, 5, 3, 13, 0), "2024-05-03 12:00:00 +0000"},
      {"no-start-and-no-after", "UTC", noStart, std::nullopt, std::nullopt, utc(2024, 5, 3, 13, 0), "absent"},
      {"no-start-but-after", "UTC", noStart, std::nullopt, utc(2024, 5, 1, 0, 0), utc(2024, 5, 3, 13, 0),
       "2024-05-03 01:30:00 +0000"},
      {"new-york-second-0130-first", "America/New_York", daily({1}, {30}), std::nullopt, utc(2024, 11, 1, 0, 0),
       utc(2024, 11, 3, 6, 45), "2024-11-03 01:30:00 -0500"},
      {"new-york-first-0130-before-the-repeat", "America/New_York", daily({1}, {30}), std::nullopt,
       utc(2024, 11, 1, 0, 0), utc(2024, 11, 3, 6, 29), "2024-11-03 01:30:00 -0400"},
      {"berlin-gap-backwards", "Europe/Berlin", berlinLate, std::nullopt, utc(2024, 3, 1, 0, 0), utc(2024, 3, 31, 3, 0),
       "2024-03-30 02:30:00 +0100"},
      // A hair before 05:12 UTC steps back to 05:11:00 exactly: 06:11 Berlin
      // is read twice and 06:10 is met one step later than without rounding.
      {"rounding-step-below-minus-2^29", "Europe/Berlin", daily({6}, {10}), std::nullopt, utc(1983, 12, 1, 0, 0),
       -536870880.0 - std::ldexp(1, -24), "1983-12-28 06:10:00 +0100"},
  };
}

TEST(RunDates, PreviousRunDate) {
  for (const BackwardCase& c : backwardCases()) {
    SCOPED_TRACE(c.name);
    const cctz::time_zone zone = loadTimeZone(c.zone).value();
    const auto previous = previousScheduledDateBefore(c.pattern, c.before, c.after, c.now, zone);
    EXPECT_EQ(shown(previous, zone), c.expected);
    testing::MinuteWalk walk(c.pattern, zone);
    EXPECT_EQ(walk.previous(c.before, c.after, c.now), previous);
  }
}

TEST(RunDates, OutOfCalendarInputsAnswerAbsentAtOnce) {
  const cctz::time_zone zone = cctz::utc_time_zone();
  RunPattern never = on(daily({0}, {0}), {1}, {30});
  never.startDate = -1e30;
  RunPattern notADate = daily({0}, {0});
  notADate.startDate = std::numeric_limits<double>::quiet_NaN();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(nextScheduledDateAfter(never, 0.0, 1e30, 0, zone));  // the walk would never end
  EXPECT_FALSE(previousScheduledDateBefore(never, 0.0, -1e30, 0, zone));
  EXPECT_FALSE(nextScheduledDateAfter(notADate, nan, std::nullopt, 0, zone));
  EXPECT_FALSE(previousScheduledDateBefore(daily({0}, {0}), nan, std::nullopt, nan, zone));
  EXPECT_FALSE(nextScheduledDateAfter(daily({0}, {0}), 2e15, 1e30, 0, zone));  // past 2^50 s
}

}  // namespace
}  // namespace halyard
