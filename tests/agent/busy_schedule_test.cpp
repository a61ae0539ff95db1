// The agent executable with a schedule of 10,000 items, on private buses with
// the real clock and a running main application: every beat of the minute and
// its second-0 check still come within their second, as the agent itself
// measures and reports them through its Status method.

#include <chrono>
#include <cmath>
#include <ctime>
#include <iostream>

#include <gtest/gtest.h>

#include "agent/status_service.h"
#include "agent_test_support.h"

namespace halyard::agent::testing {
namespace {

constexpr int kItemCount = 10000;

double unixNow() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

TEST(BusyScheduleTest, TenThousandItemsLeaveEveryBeatWithinItsSecond) {
  AgentOnBuses onBuses;
  auto app = onBuses.spawn(halyardctlPath(), {"serve-app"});
  ASSERT_TRUE(app->waitForOutput("running as"));
  // Spread over every minute of the day: about seven items come due each minute.
  std::vector<std::shared_ptr<KSScheduledItem>> items;
  for (int i = 0; i < kItemCount; ++i) {
    const int minuteOfDay = i % (24 * 60);
    items.push_back(makeItem("load-" + std::to_string(i), minuteOfDay / 60, minuteOfDay % 60));
  }
  writeSchedule(onBuses.dataFolder() + "/ScheduleData.sched", items);
  auto agent = onBuses.start();
  ASSERT_TRUE(agent->waitForOutput("is running."));

  // Past the next minute's second 0 (UTC), and the hand-over of that minute's items.
  const double boundary = std::floor(unixNow() / 60) * 60 + 60;
  const auto due = static_cast<std::time_t>(boundary);
  std::tm utc{};
  gmtime_r(&due, &utc);
  const int firstDue = utc.tm_hour * 60 + utc.tm_min;
  ASSERT_TRUE(app->waitForOutput("item \"load-" + std::to_string(firstDue) + "\"", std::chrono::seconds(75)))
      << agent->output();
  ASSERT_TRUE(waitUntil([&] { return unixNow() >= boundary + 3; }, std::chrono::seconds(10)));

  const QVariantMap figures = onBuses.status();
  EXPECT_EQ(figures.value(status_keys::kItemCount).toInt(), kItemCount);
  ASSERT_TRUE(figures.contains(status_keys::kWorstBeatLateness)) << agent->output();
  const double worstLateness = figures.value(status_keys::kWorstBeatLateness).toDouble();
  std::cout << "beat lateness: worst " << worstLateness << " s, median "
            << figures.value(status_keys::kMedianBeatLateness).toDouble() << " s; check time: worst "
            << figures.value(status_keys::kWorstCheckTime).toDouble() << " s, median "
            << figures.value(status_keys::kMedianCheckTime).toDouble() << " s\n";
  EXPECT_LT(worstLateness, 1.0) << agent->output();
}

}  // namespace
}  // namespace halyard::agent::testing
