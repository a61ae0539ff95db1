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
#include "volumes/volume_specifier.h"

namespace halyard::agent::testing {
namespace {

TEST(MountTrigger, MountingTheItemsVolumeHandsItOverOnce) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  ensureApplication();
  ::halyard::testing::Scratch scratch;
  if (!scratch.makeFileSystem("wanted.img", "128M", "mkfs.btrfs -q -f -L Wanted") ||
      !scratch.makeImage("other.img", "Other", 1600000001)) {
    GTEST_SKIP() << "mkfs.btrfs or mkfs.ext4 cannot make an image here";
  }
  // The item's target volume, recorded while it is mounted once.
  if (!scratch.mount("-o loop", scratch.path("wanted.img"), "first")) GTEST_SKIP() << "cannot loop-mount btrfs here";
  auto item = makeItem("on-mount", 0, 0, 6);
  item->setScheduledLeftTargetMounts(1);
  item->setLeftTargetVolumeSpecifier(
      VolumeSpecifier::volumeSpecifierWithPath(scratch.path("first"), fileservices::VTFileManager::make()));
  ASSERT_TRUE(scratch.unmount("first"));

  QTemporaryDir home;
  writeSchedule(home.path().toStdString() + "/data/Halyard/ScheduleData.sched", {item});
  const TestProcess::Environment environment{
      {"XDG_DATA_HOME", home.path() + "/data"}, {"XDG_CONFIG_HOME", home.path() + "/config"}, {"TZ", "UTC"}};
  PrivateBus session;
  PrivateBus system("system");
  TestProcess logind("/usr/bin/python3", {fakeLogindPath()}, session.address(), system.address());
  ASSERT_TRUE(logind.waitForOutput("ready"));
  TestProcess app(halyardctlPath(), {"serve-app"}, session.address());
  ASSERT_TRUE(app.waitForOutput("running as"));
  TestProcess agent(backgrounderPath(), {"--log-stderr"}, session.address(), system.address(), environment);
  ASSERT_TRUE(agent.waitForOutput("Halyard Backgrounder v4.0.5 is running."));

  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("other.img"), "other"));
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("wanted.img"), "again"));
  ASSERT_TRUE(app.waitForOutput("item \"on-mount\"", std::chrono::seconds(5))) << agent.output();

  // Stopping the agent flushes whatever it would still have handed over.
  TestProcess quit(halyardctlPath(), {"notify", "VTHalyardBackgrounderShouldQuit"}, session.address());
  ASSERT_TRUE(quit.waitForExit());
  ASSERT_TRUE(agent.waitForExit());
  EXPECT_EQ(occurrences(app.output(), "item \""), 1u) << app.output();
}

}  // namespace
}  // namespace halyard::agent::testing
