// The simulation of the agent's heartbeat over a week of 200 items with two
// sleeps, skipping the beats that cannot hand anything over, against
// visiting every beat (the baseline, measured in the same run); and a whole
// year skipped, of 200 and of 10,000 items. The counter hand_overs shows that
// both ways find the same checks; compare the times as a ratio to the
// baseline's.

#include <benchmark/benchmark.h>

#include <random>

#include "agent/rules/simulation.h"

namespace {

using namespace halyard;
using namespace halyard::agent;

const cctz::time_zone& berlin() {
  static const cctz::time_zone zone = loadTimeZone("Europe/Berlin").value();
  return zone;
}

TimeInterval wall(int y, int mo, int d, int h) {
  return joinInstant(cctz::convert(cctz::civil_second(y, mo, d, h, 0, 0), berlin()), 0);
}

// Items as people make them: one to thirteen hours, a minute or a few, on
// weekdays or days of the month.
ScheduleItems makeItems(int count) {
  std::mt19937_64 rng(11);
  auto chance = [&rng](double p) { return std::bernoulli_distribution(p)(rng); };
  ScheduleItems items;
  for (int i = 0; i < count; ++i) {
    auto item = std::make_shared<KSScheduledItem>(CalendarDate::make(wall(2026, 1, 1, 0), TimeZone::make("UTC")));
    item->setDescription("item " + std::to_string(i));
    item->setScheduleType(chance(0.6) ? 5 : chance(0.5) ? 4 : 7);
    std::string hours(24, '0'), minutes(60, '0'), days(31, '0');
    for (int h = 0; h < (chance(0.5) ? 13 : 2); ++h) hours[std::uniform_int_distribution<int>(0, 23)(rng)] = '1';
    minutes[std::uniform_int_distribution<int>(0, 59)(rng)] = '1';
    for (char& day : days) day = chance(0.3) ? '1' : '0';
    item->setScheduledHours(hours);
    item->setScheduledMinutes(minutes);
    item->setScheduledDaysOfMonth(days);
    items.push_back(item);
  }
  return items;
}

void simulatePeriod(benchmark::State& state, int count, int days, bool everyBeat) {
  const ScheduleItems items = makeItems(count);
  SimulationOptions options;
  options.zone = berlin();
  options.from = wall(2026, 3, 23, 0);
  options.to = options.from + days * 86400.0;
  options.everyBeat = everyBeat;
  const std::vector<SimulationEvent> events = {
      {SimulationEvent::Kind::Sleep, options.from + 3600 * 23, options.from + 3600 * 31},
      {SimulationEvent::Kind::Sleep, options.from + 3600 * 70, options.from + 3600 * 75}};
  std::size_t handOvers = 0;
  for (auto _ : state) {
    handOvers = 0;
    const auto status = simulate(items, events, options, [&](const SimulatedCheck&) { ++handOvers; });
    benchmark::DoNotOptimize(status);
  }
  state.counters["hand_overs"] = static_cast<double>(handOvers);
}

void BM_WeekEveryBeat(benchmark::State& state) { simulatePeriod(state, 200, 7, true); }
void BM_WeekSkipping(benchmark::State& state) { simulatePeriod(state, 200, 7, false); }
void BM_YearSkipping200(benchmark::State& state) { simulatePeriod(state, 200, 365, false); }
void BM_YearSkipping10000(benchmark::State& state) { simulatePeriod(state, 10000, 365, false); }

BENCHMARK(BM_WeekEveryBeat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WeekSkipping)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_YearSkipping200)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_YearSkipping10000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
