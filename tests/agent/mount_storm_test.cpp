// The agent executable in a private mount namespace while 10,000 mount events
// (tmpfs mounted and unmounted) come in within a minute: every mount of a
// volume-mount item's own volume amid them is handed over, and the beats stay
// on time, as the agent's Status tells.

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "agent/status_service.h"
#include "agent_test_support.h"
#include "volumes/mount_namespace_support.h"
#include "volumes/volume_specifier.h"

namespace halyard::agent::testing {
namespace {

constexpr int kBursts = 5;
constexpr int kMountsPerBurst = 1000;  // each mounted and unmounted: two events

TEST(MountStorm, EveryMountOfTheItemsVolumeAmidTenThousandEventsIsHandedOver) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  ::halyard::testing::Scratch scratch;
  if (!scratch.makeImage("wanted.img", "Wanted", 1600000000)) GTEST_SKIP() << "mkfs.ext4 cannot make an image here";
  if (!scratch.mount("-o loop", scratch.path("wanted.img"), "first")) GTEST_SKIP() << "cannot loop-mount ext4 here";
  auto item = makeItem("on-mount", 0, 0, 6);
  item->setScheduledLeftTargetMounts(1);
  item->setLeftTargetVolumeSpecifier(
      VolumeSpecifier::volumeSpecifierWithPath(scratch.path("first"), fileservices::VTFileManager::make()));
  ASSERT_TRUE(scratch.unmount("first"));

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
  const double worstLateness = figures.value(status_keys::kWorstBeatLateness).toDouble();
  std::cout << "beat lateness: worst " << worstLateness << " s, median "
            << figures.value(status_keys::kMedianBeatLateness).toDouble() << " s\n";
  EXPECT_LT(worstLateness, 0.1) << agent->output();
}

}  // namespace
}  // namespace halyard::agent::testing
