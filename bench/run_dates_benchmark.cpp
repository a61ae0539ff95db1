// Run-date searches against the minute walk over the same queries: forward
// within a year (a yearly pattern, and 29 February searched over a year
// without one, which the walk walks to the end), backward over a 30-day gap,
// and a pattern that never matches (30 February). Each benchmark reports the mean time per query from
// its loop and, as the counter median_ns, the median of the queries timed
// one by one; the walk's figures are the baseline.
//
// The fast search looks for the never-matching pattern without a limit and
// answers at once; the walk is given one year there (walking on to the
// distant future would take it about a minute per query), so its figure is
// the cost of one year out of almost two thousand.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <vector>

#include "foundation/dates.h"
#include "schedule/minute_walk.h"
#include "schedule/run_dates.h"

namespace {

using namespace halyard;

constexpr double kDay = 86400.0;
constexpr double kStartOf2024 = 725846400.0;  // 2024-01-01 00:00:00 UTC

struct Query {
  RunPattern pattern;
  std::optional<TimeInterval> after, before;
  TimeInterval now;
};

enum class Kind { ForwardYear, FullYear, BackwardMonth, Never };

std::string one(int width, int index) {
  std::string set(width, '0');
  set[index] = '1';
  return set;
}

std::vector<Query> makeQueries(Kind kind) {
  std::mt19937_64 rng(7);
  auto pick = [&rng](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  std::vector<Query> queries;
  for (int i = 0; i < 64; ++i) {
    // Once a year: one month, one day, one hour and one minute.
    RunPattern pattern{
        true, 0.0, one(12, pick(12)), one(31, pick(28)), std::string(7, '1'), one(24, pick(24)), one(60, pick(60))};
    double now = kStartOf2024 + 60.0 * pick(365 * 1440);
    if (kind == Kind::FullYear) {  // 29 February, searched from March 2024 for a year: no match, the whole year walked
      pattern.months = one(12, 1);
      pattern.daysOfMonth = one(31, 28);
      now = kStartOf2024 + 61 * kDay + 60.0 * pick(300 * 1440);
    } else if (kind == Kind::Never) {
      pattern.months = one(12, 1);
      pattern.daysOfMonth = one(31, 29);
    }
    if (kind == Kind::BackwardMonth) {
      queries.push_back({pattern, now - 30 * kDay, std::nullopt, now});
    } else {
      queries.push_back({pattern, now, kind == Kind::Never ? std::nullopt : std::optional(now + 365 * kDay), now});
    }
  }
  return queries;
}

const cctz::time_zone& berlin() {
  static const cctz::time_zone zone = loadTimeZone("Europe/Berlin").value();
  return zone;
}

std::optional<TimeInterval> fastAnswer(Kind kind, const Query& q) {
  return kind == Kind::BackwardMonth ? previousScheduledDateBefore(q.pattern, q.before, q.after, q.now, berlin())
                                     : nextScheduledDateAfter(q.pattern, q.after, q.before, q.now, berlin());
}

std::optional<TimeInterval> walkAnswer(Kind kind, const Query& q) {
  testing::MinuteWalk walk(q.pattern, berlin());
  if (kind == Kind::BackwardMonth) return walk.previous(q.before, q.after, q.now);
  return walk.next(q.after, kind == Kind::Never ? std::optional(q.now + 365 * kDay) : q.before, q.now);
}

// The forward walk as a calendar date does it: every candidate's civil
// fields read afresh in the zone (no cached offsets or days). A second
// baseline beside the cheap oracle walk, so the ratio is also stated against
// the walk as the platform performs it.
bool selected(const std::string& set, int index) {
  return index >= 0 && static_cast<std::size_t>(index) < set.size() && set[static_cast<std::size_t>(index)] == '1';
}

std::optional<TimeInterval> calendarWalkForward(const Query& q) {
  const RunPattern& p = q.pattern;
  TimeInterval candidate = std::max(*p.startDate, q.after.value_or(q.now));
  const TimeInterval limit = q.before.value_or(q.now + 365 * kDay);
  const bool everyDay = p.daysOfMonth.find('0') == std::string::npos || p.daysOfWeek.find('0') == std::string::npos;
  for (; limit > candidate; candidate += 60.0) {
    const auto seconds =
        cctz::time_point<cctz::seconds>(cctz::seconds(static_cast<std::int64_t>(std::floor(toUnixSeconds(candidate)))));
    const cctz::civil_second civil = cctz::convert(seconds, berlin());
    if (!selected(p.minutes, civil.minute()) || !selected(p.hours, civil.hour()) ||
        !selected(p.months, civil.month() - 1)) {
      continue;
    }
    const int weekday = (static_cast<int>(cctz::get_weekday(cctz::civil_day(civil))) + 1) % 7;  // Sunday = 0
    const bool byWeek = selected(p.daysOfWeek, weekday), byMonth = selected(p.daysOfMonth, civil.day() - 1);
    if (everyDay ? (byWeek && byMonth) : (byWeek || byMonth)) break;
  }
  return limit < candidate ? std::nullopt : std::optional(candidate);
}

template <typename Answer>
double medianNanoseconds(const std::vector<Query>& queries, Answer answer, int repeats) {
  std::vector<double> times;
  for (const Query& q : queries) {
    const auto start = std::chrono::steady_clock::now();
    for (int r = 0; r < repeats; ++r) benchmark::DoNotOptimize(answer(q));
    times.push_back(std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() /
                    repeats);
  }
  std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
  return times[times.size() / 2];
}

void BM_RunDates(benchmark::State& state, Kind kind) {
  const std::vector<Query> queries = makeQueries(kind);
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(fastAnswer(kind, queries[i++ % queries.size()]));
  state.counters["median_ns"] = medianNanoseconds(
      queries, [kind](const Query& q) { return fastAnswer(kind, q); }, 2000);
}

void BM_MinuteWalk(benchmark::State& state, Kind kind) {
  const std::vector<Query> queries = makeQueries(kind);
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(walkAnswer(kind, queries[i++ % queries.size()]));
  state.counters["median_ns"] = medianNanoseconds(
      queries, [kind](const Query& q) { return walkAnswer(kind, q); }, 1);
}

void BM_CalendarWalk(benchmark::State& state, Kind kind) {
  const std::vector<Query> queries = makeQueries(kind);
  for (const Query& q : queries) {
    if (calendarWalkForward(q) != fastAnswer(kind, q)) state.SkipWithError("the calendar walk disagrees");
  }
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(calendarWalkForward(queries[i++ % queries.size()]));
  state.counters["median_ns"] = medianNanoseconds(queries, calendarWalkForward, 1);
}

BENCHMARK_CAPTURE(BM_RunDates, forward_within_a_year, Kind::ForwardYear);
BENCHMARK_CAPTURE(BM_CalendarWalk, forward_within_a_year, Kind::ForwardYear)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_MinuteWalk, forward_within_a_year, Kind::ForwardYear)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RunDates, forward_whole_year_without_match, Kind::FullYear);
BENCHMARK_CAPTURE(BM_MinuteWalk, forward_whole_year_without_match, Kind::FullYear)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CalendarWalk, forward_whole_year_without_match, Kind::FullYear)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RunDates, backward_30_day_gap, Kind::BackwardMonth);
BENCHMARK_CAPTURE(BM_MinuteWalk, backward_30_day_gap, Kind::BackwardMonth)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RunDates, never_matching_unlimited, Kind::Never);
BENCHMARK_CAPTURE(BM_MinuteWalk, never_matching_one_year, Kind::Never)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
