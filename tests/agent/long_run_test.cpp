// The daemon over a long run: a day of beats on the fake clock, a schedule
// whose items come due every hour and are handed to a running main
// application, and the memory the process holds at the end of it.

#include <QCoreApplication>

#include <fstream>
#include <iostream>
#include <string>

#include "daemon_fixture.h"

namespace halyard::agent::testing {
namespace {

// The resident set of this process, in kB, from /proc/self/status.
long residentKilobytes() {
  std::ifstream status("/proc/self/status");
  std::string key;
  long value = 0;
  while (status >> key) {
    if (key == "VmRSS:") {
      status >> value;
      return value;
    }
    status.ignore(1 << 10, '\n');
  }
  return -1;
}

using LongRunTest = DaemonFixture;

TEST_F(LongRunTest, ADayOfBeatsHandsOverEveryHourAndKeepsItsMemory) {
  TestProcess app(halyardctlPath(), {"serve-app"}, bus_.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  ASSERT_TRUE(waitForApplication());
  std::vector<std::shared_ptr<KSScheduledItem>> items;
  for (int hour = 0; hour < 24; ++hour) items.push_back(makeItem("hourly-" + std::to_string(hour), hour, 7));
  writeSchedule(path("ScheduleData.sched"), items);
  makeDaemon();

  const TimeInterval start = clock_.civil(2026, 3, 4, 0, 0, 0, 0.2);
  constexpr int kSecondsInADay = 24 * 60 * 60;
  long residentAfterAnHour = 0;
  for (int second = 0; second < kSecondsInADay; ++second) {
    clock_.set(start + second);
    daemon_->heartbeat();
    // The bus traffic of each minute goes out before the next.
    if (second % 60 == 59) QCoreApplication::processEvents();
    // The first hour brings the decoder, the bus and the hand-over up to size.
    if (second == 60 * 60) residentAfterAnHour = residentKilobytes();
  }
  ASSERT_TRUE(waitUntil([&] {
    QCoreApplication::processEvents();
    return occurrences(app.output(), "item \"hourly-") == 24;
  }));
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the resident set is not measured: AddressSanitizer holds freed memory in its quarantine";
#endif
  const long growth = residentKilobytes() - residentAfterAnHour;
  RecordProperty("rss_growth_kb", static_cast<int>(growth));
  std::cout << "resident set after the first hour " << residentAfterAnHour << " kB, grown by " << growth
            << " kB by the end of the day\n";
  EXPECT_LT(growth, 1024) << "resident set grew by " << growth << " kB over 23 simulated hours";
}

}  // namespace
}  // namespace halyard::agent::testing
