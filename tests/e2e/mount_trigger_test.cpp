// A volume-mount item end to end: the agent executable on private buses, in
// a private mount namespace, watching the kernel's mount table. Mounting the
// item's volume (btrfs, whose paths carry device numbers the mount table
// does not show) hands the item to the running application once; mounting
// an unrelated volume hands nothing over. Which beat runs the mounted-volume
// check is the heartbeat's own test, on a fake clock: a wall-clock limit here
// would measure the machine's load.

#include <gtest/gtest.h>

#include <chrono>

#include "agent/agent_test_support.h"
#include "volumes/mount_namespace_support.h"

namespace halyard::agent::testing {
namespace {

TEST(MountTrigger, MountingTheItemsVolumeHandsItOverOnce) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  ::halyard::testing::Scratch scratch;
  if (!scratch.makeFileSystem("wanted.img", "128M", "mkfs.btrfs -q -f -L Wanted") ||
      !scratch.makeImage("other.img", "Other", 1600000001)) {
    GTEST_SKIP() << "mkfs.btrfs or mkfs.ext4 cannot make an image here";
  }
  auto item = mountItemRecordedFrom(scratch, "wanted.img");
  if (!item) GTEST_SKIP() << "cannot loop-mount btrfs here";

  AgentOnBuses onBuses;
  writeSchedule(onBuses.dataFolder() + "/ScheduleData.sched", {item});
  auto app = onBuses.spawn(halyardctlPath(), {"serve-app"});
  ASSERT_TRUE(app->waitForOutput("running as"));
  auto agent = onBuses.start();
  ASSERT_TRUE(agent->waitForOutput("Halyard Backgrounder v4.0.5 is running."));

  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("other.img"), "other"));
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("wanted.img"), "again"));
  ASSERT_TRUE(app->waitForOutput("item \"on-mount\"", std::chrono::seconds(5))) << agent->output();

  // Stopping the agent flushes whatever it would still have handed over.
  auto quit = onBuses.spawn(halyardctlPath(), {"notify", "VTHalyardBackgrounderShouldQuit"});
  ASSERT_TRUE(quit->waitForExit());
  ASSERT_TRUE(agent->waitForExit());
  EXPECT_EQ(occurrences(app->output(), "item \""), 1u) << app->output();
}

}  // namespace
}  // namespace halyard::agent::testing
