// The schedule file under load: decoding a file of 1,000 scheduled items, and
// the check the agent makes at second 0 of every minute on a 10,000-item
// file (read the file afresh, decode it, match every item against the
// minute). The baseline is a plain copy of the same bytes, measured in the
// same run.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <cctz/civil_time.h>
#include <cctz/time_zone.h>

#include "schedule/schedule_file.h"

namespace {

using namespace halyard;

constexpr TimeInterval kMinute = 794307600;  // 2026-03-04 10:00:00 Berlin

std::shared_ptr<CalendarDate> fixedNow() { return CalendarDate::make(kMinute, TimeZone::make("Europe/Berlin", true)); }

ScheduleItems makeItems(int count) {
  ScheduleItems items;
  for (int i = 0; i < count; ++i) {
    auto item = std::make_shared<KSScheduledItem>(fixedNow());
    item->setDocumentPathName("/home/user/Documents/sync-" + std::to_string(i) + ".halyard");
    item->setDescription("Nightly backup " + std::to_string(i));
    item->setScheduledMinutes(std::string(60, '0').replace(static_cast<std::size_t>(i % 60), 1, "1"));
    items.push_back(std::move(item));
  }
  return items;
}

std::string scheduleBytes(int count) { return encodeScheduleData({Dictionary::make(true), makeItems(count)}); }

// A schedule file in a folder of its own, removed with the fixture.
struct ScheduleOnDisk {
  explicit ScheduleOnDisk(int count) {
    char pattern[] = "/tmp/halyard-bench-XXXXXX";
    folder = mkdtemp(pattern);
    path = folder + "/ScheduleData.sched";
    (void)writeScheduleFile(path, {Dictionary::make(true), makeItems(count)});
  }
  ~ScheduleOnDisk() { std::filesystem::remove_all(folder); }
  std::string folder;
  std::string path;
};

void copyBytes(benchmark::State& state, const std::string& bytes) {
  for (auto _ : state) {
    std::string copy = bytes;
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

void BM_CopyBaseline1000(benchmark::State& state) { copyBytes(state, scheduleBytes(1000)); }
BENCHMARK(BM_CopyBaseline1000);

void BM_DecodeSchedule1000(benchmark::State& state) {
  const std::string bytes = scheduleBytes(1000);
  const ClassRegistry registry = scheduleClassRegistry(fixedNow);
  for (auto _ : state) {
    auto data = decodeScheduleData(bytes, registry);
    if (!data || !data->items || data->items->size() != 1000) state.SkipWithError("the schedule did not decode");
    benchmark::DoNotOptimize(data);
  }
  state.SetItemsProcessed(state.iterations() * 1000);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(BM_DecodeSchedule1000)->Unit(benchmark::kMicrosecond);

void BM_CopyBaseline10000(benchmark::State& state) { copyBytes(state, scheduleBytes(10000)); }
BENCHMARK(BM_CopyBaseline10000);

// The calendar part of the second-0 check: minute, hour, month, day of week.
bool dueAt(const KSScheduledItem& item, const cctz::civil_second& at) {
  const int fromMonday = static_cast<int>(cctz::get_weekday(cctz::civil_day(at)));
  return item.active() && item.minuteIsSelected(static_cast<std::uint32_t>(at.minute())) &&
         item.hourIsSelected(static_cast<std::uint32_t>(at.hour())) &&
         item.monthIsSelected(static_cast<std::uint32_t>(at.month() - 1)) &&
         item.dayOfWeekIsSelected(static_cast<std::uint32_t>((fromMonday + 1) % 7));
}

void BM_SecondZeroCheck10000(benchmark::State& state) {
  const ScheduleOnDisk schedule(10000);
  cctz::time_zone zone;
  cctz::load_time_zone("Europe/Berlin", &zone);
  const cctz::civil_second at = cctz::convert(std::chrono::system_clock::from_time_t(978307200 + kMinute), zone);
  std::size_t due = 0;
  for (auto _ : state) {
    const auto items = readScheduleItems(schedule.path, fixedNow);
    if (!items) state.SkipWithError("the schedule did not read");
    due = 0;
    for (const auto& item : *items) due += dueAt(*item, at) ? 1 : 0;
    benchmark::DoNotOptimize(due);
  }
  state.counters["due_items"] = static_cast<double>(due);
  state.SetItemsProcessed(state.iterations() * 10000);
}
BENCHMARK(BM_SecondZeroCheck10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
