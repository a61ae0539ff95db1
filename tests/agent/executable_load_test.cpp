// The agent executable under load, on private buses with the real clock and a
// running main application; the agent itself measures its beats and checks and
// reports them through its Status method. A schedule of 10,000 items: every
// beat of the minute and its second-0 check still come within their second.
// In a private mount namespace, 10,000 mount events (tmpfs mounted and
// unmounted) within a minute: every mount of a volume-mount item's own volume
// amid them is handed over, and the beats stay on time.

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iostream>

#include "agent/status_service.h"
#include "agent_test_support.h"
#include "volumes/mount_namespace_support.h"

namespace halyard::agent::testing {
namespace {

// Prints what the agent measured of its beats and checks; answers the worst beat lateness.
double worstLatenessReported(const QVariantMap& figures) {
  std::cout << "beat lateness: worst " << figures.value(status_keys::kWorstBeatLateness).toDouble() << " s, median "
            << figures.value(status_keys::kMedianBeatLateness).toDouble() << " s; check time: worst "
            << figures.value(status_keys::kWorstCheckTime).toDouble() << " s, median "
            << figures.value(status_keys::kMedianCheckTime).toDouble() << " s\n";
  return figures.value(status_keys::kWorstBeatLateness).toDouble();
}

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
  EXPECT_LT(worstLatenessReported(figures), 1.0) << agent->output();
}

constexpr int kBursts = 5;
constexpr int kMountsPerBurst = 1000;  // each mounted and unmounted: two events

TEST(MountStorm, EveryMountOfTheItemsVolumeAmidTenThousandEventsIsHandedOver) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  ::halyard::testing::Scratch scratch;
  if (!scratch.makeImage("wanted.img", "Wanted", 1600000000)) GTEST_SKIP() << "mkfs.ext4 cannot make an image here";
  auto item = mountItemRecordedFrom(scratch, "wanted.img");
  if (!item) GTEST_SKIP() << "cannot loop-mount ext4 here";

  AgentOnBuses onBuses;
  writeSchedule(onBuses.dataFolder() + "/ScheduleData.sched", {item});
  auto app = onBuses.spawn(halyardctlPath(), {"serve-app"});
  ASSERT_TRUE(app->waitForOutput("running as"));
  auto agent = onBuses.start();
  ASSERT_TRUE(agent->waitForOutput("is running."));

  const std::string storm = scratch.path("storm");
  std::filesystem::create_directories(storm);
  for (int burst = 1; burst <= kBursts; ++burst) {
    for (int i = 0; i < kMountsPerBurst; ++i) {
      ASSERT_EQ(::mount("tmpfs", storm.c_str(), "tmpfs", 0, "size=64k"), 0) << std::strerror(errno);
      ASSERT_EQ(::umount2(storm.c_str(), 0), 0) << std::strerror(errno);
    }
    const std::string where = "wanted-" + std::to_string(burst);
    ASSERT_TRUE(scratch.mount("-o loop", scratch.path("wanted.img"), where));
    ASSERT_TRUE(waitUntil([&] { return occurrences(app->output(), "item \"on-mount\"") == std::size_t(burst); },
                          std::chrono::seconds(5)))
        << "burst " << burst << ": " << app->output() << agent->output();
    ASSERT_TRUE(scratch.unmount(where));
  }

  const QVariantMap figures = onBuses.status();
  ASSERT_TRUE(figures.contains(status_keys::kWorstBeatLateness)) << agent->output();
  EXPECT_LT(worstLatenessReported(figures), 0.1) << agent->output();
}

}  // namespace
}  // namespace halyard::agent::testing
