// The cost of one heartbeat: an idle beat between whole minutes (the one the
// agent pays 3540 times an hour) against a beat at second 0 that reads a
// 20-item schedule and runs the new check (60 times an hour).

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QTemporaryDir>

#include "agent/halyard_daemon.h"
#include "schedule/schedule_file.h"

namespace {

using namespace halyard;
using namespace halyard::agent;

class BenchClock final : public Clock {
 public:
  BenchClock() { cctz::load_time_zone("Europe/Berlin", &zone_); }
  TimeInterval now() const override { return now_; }
  const cctz::time_zone& zone() const override { return zone_; }
  TimeInterval now_ = 794307600;  // 2026-03-04 10:00:00 Berlin

 private:
  cctz::time_zone zone_;
};

// A bus that goes nowhere: no beat below posts anything.
class NullBus final : public NotificationBus {
 public:
  void post(const QString&, const QVariantMap&) override {}
  void observe(const void*, const QString&, Handler) override {}
  void removeObserver(const void*) override {}
};

class NoLaunch final : public LaunchPlatform {
 public:
  std::int16_t findApplication() override { return launch_status::kNoError; }
  void activateApplication(StatusHandler done) override { done(launch_status::kNoError); }
  std::int16_t launchProgram(const std::vector<std::string>&, bool) override { return launch_status::kNoError; }
  void openDocument(const std::string&, OpenHandler done) override { done(0); }
};

struct Bench {
  Bench() {
    AgentPaths paths;
    paths.scheduleFile = dir.path().toStdString() + "/ScheduleData.sched";
    ScheduleItems items;
    for (int i = 0; i < 20; ++i) {
      auto item = std::make_shared<KSScheduledItem>(CalendarDate::make(0, TimeZone::make("UTC")));
      item->setScheduledMinutes(std::string(60, '0').replace(static_cast<std::size_t>(i + 1), 1, "1"));
      items.push_back(item);
    }
    (void)writeScheduleFile(paths.scheduleFile, {Dictionary::make(true), items});
    daemon = std::make_unique<HalyardDaemon>(DaemonEnvironment{.clock = clock,
                                                               .bus = bus,
                                                               .preferences = preferences,
                                                               .launcher = launcher,
                                                               .paths = paths,
                                                               .terminate = {},
                                                               .steppedBeats = true});
  }
  QTemporaryDir dir;
  BenchClock clock;
  NullBus bus;
  NoLaunch launcher;
  Preferences preferences{dir.path() + "/halyard.conf"};
  std::unique_ptr<HalyardDaemon> daemon;
};

void BM_IdleBeat(benchmark::State& state) {
  Bench bench;
  bench.clock.now_ += 17;  // second 17: nothing to check
  for (auto _ : state) bench.daemon->heartbeat();
}
BENCHMARK(BM_IdleBeat);

void BM_NewCheckBeat20Items(benchmark::State& state) {
  Bench bench;
  for (auto _ : state) bench.daemon->heartbeat();
}
BENCHMARK(BM_NewCheckBeat20Items);

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
