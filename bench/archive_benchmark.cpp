// Decode and encode of an archive shaped like a schedule file: a root
// dictionary holding 1,000 item dictionaries. Figures are items per second;
// the baseline is a plain copy of the same bytes, measured in the same run.

#include <benchmark/benchmark.h>

#include "foundation/archiver.h"
#include "foundation/unarchiver.h"
#include "foundation/values.h"

namespace {

using namespace halyard;

constexpr int kItems = 1000;

ObjectRef makeItemDictionary(int i) {
  auto item = Dictionary::make(true);
  item->set("documentPathNamekey", String::make("/home/user/Documents/sync-" + std::to_string(i) + ".halyard"));
  item->set("descriptionkey", String::make("Nightly backup " + std::to_string(i)));
  item->set("scheduleTypekey", Number::fromInt32(5));
  item->set("startDatekey", CalendarDate::make(700000000.0 + i, TimeZone::make("Europe/Berlin")));
  item->set("runOncekey", Number::fromBool(false));
  item->set("activekey", Number::fromBool(true));
  item->set("forceToRunkey", Number::fromBool(false));
  item->set("scheduledMonthskey", String::make(std::string(12, '1'), true));
  item->set("scheduledDaysOfMonthkey", String::make(std::string(31, '1'), true));
  item->set("scheduledDaysOfWeekkey", String::make("0111110", true));
  item->set("scheduledHourskey", String::make(std::string(24, '0').replace(2, 1, "1"), true));
  item->set("scheduledMinuteskey", String::make(std::string(60, '0').replace(i % 60, 1, "1"), true));
  item->set("scheduledLeftTargetMountskey", Number::fromInt32(0));
  item->set("scheduledRightTargetMountskey", Number::fromInt32(0));
  return item;
}

ObjectRef makeSchedule() {
  std::vector<ObjectRef> items;
  for (int i = 0; i < kItems; ++i) items.push_back(makeItemDictionary(i));
  auto root = Dictionary::make();
  root->set("scheduledItemsObjectkey", Array::make(std::move(items)));
  return root;
}

// Objects in the graph, counted as the archive holds them (keys too).
std::int64_t countObjects(const ObjectRef& object) {
  if (!object) return 0;
  std::int64_t count = 1;
  if (auto d = objectAs<Dictionary>(object)) {
    for (const auto& [k, v] : d->entries) count += countObjects(k) + countObjects(v);
  } else if (auto a = objectAs<Array>(object)) {
    for (const auto& item : a->items) count += countObjects(item);
  } else if (auto c = objectAs<CalendarDate>(object)) {
    count += countObjects(c->zone) + 2;  // the zone's name and the format string
  }
  return count;
}

void setObjectRate(benchmark::State& state, const ObjectRef& schedule) {
  state.counters["objects_per_second"] =
      benchmark::Counter(static_cast<double>(state.iterations() * countObjects(schedule)), benchmark::Counter::kIsRate);
}

void BM_CopyBytesBaseline(benchmark::State& state) {
  const std::string bytes = Archiver::archivedData(makeSchedule());
  for (auto _ : state) {
    std::string copy = bytes;
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetItemsProcessed(state.iterations() * kItems);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_CopyBytesBaseline);

void BM_Decode(benchmark::State& state) {
  const std::string bytes = Archiver::archivedData(makeSchedule());
  for (auto _ : state) {
    auto root = Unarchiver::unarchiveRootObject(bytes);
    if (!root) state.SkipWithError(root.error().message.c_str());
    benchmark::DoNotOptimize(root);
  }
  setObjectRate(state, makeSchedule());
  state.SetItemsProcessed(state.iterations() * kItems);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_Decode);

void BM_Encode(benchmark::State& state) {
  const ObjectRef schedule = makeSchedule();
  for (auto _ : state) {
    std::string bytes = Archiver::archivedData(schedule);
    benchmark::DoNotOptimize(bytes.data());
  }
  setObjectRate(state, schedule);
  state.SetItemsProcessed(state.iterations() * kItems);
}
BENCHMARK(BM_Encode);

}  // namespace

BENCHMARK_MAIN();
