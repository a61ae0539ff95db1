// Volume records of real mounts: the test machine's own volumes, and ext4
// images loop-mounted in a private mount namespace (the test runs itself
// again under `unshare -m --propagation private`, so neither the host nor
// other tests see the mounts; it is skipped, with the reason, where the
// machine cannot mount).

#include <gtest/gtest.h>

#include "volumes/mount_monitor.h"
#include "volumes/mount_namespace_support.h"
#include "volumes/volume_mounts.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

using testing::Scratch;

std::shared_ptr<VolumeSpecifier> recordOf(const std::string& path) {
  return VolumeSpecifier::volumeSpecifierWithPath(path, fileservices::VTFileManager::make());
}

TEST(MachineVolumes, EveryMountedVolumeIsItselfAndNoOther) {
  const auto paths = mountedLocalVolumePaths(*linuxVolumeQueries());
  if (paths.empty()) GTEST_SKIP() << "no block device or network share is mounted here (a container or chroot)";
  if (std::count(paths.begin(), paths.end(), "/") != 0) {
    EXPECT_EQ(paths.front(), "/");
  }
  std::vector<std::shared_ptr<VolumeSpecifier>> records;
  for (const std::string& path : paths) records.push_back(recordOf(path));
  for (std::size_t i = 0; i < paths.size(); ++i) {
    SCOPED_TRACE(paths[i]);
    EXPECT_TRUE(records[i]->isEqual(recordOf(paths[i])));
    for (std::size_t j = 0; j < paths.size(); ++j) {
      if (j == i) continue;
      EXPECT_FALSE(records[i]->isEqual(records[j])) << "also equal to " << paths[j];
    }
    EXPECT_TRUE(records[i]->isMounted(0.0));
    EXPECT_EQ(records[i]->volumePath(), paths[i]);
  }
}

TEST(MachineVolumes, AliasesAndTheUsersFolderLeadToTheirVolumes) {
  auto fm = fileservices::VTFileManager::make();
  const char* home = std::getenv("HOME");
  ASSERT_TRUE(home);
  EXPECT_TRUE(VolumeSpecifier::volumeSpecifierWithFileManager(fm)->isEqual(recordOf(home)));
  auto viaAlias = VolumeSpecifier::volumeSpecifierWithAlias(fm->createAliasObjectFromNSPath("/tmp"), fm);
  ASSERT_TRUE(viaAlias);
  EXPECT_TRUE(viaAlias->isEqual(recordOf("/tmp")));
  EXPECT_FALSE(VolumeSpecifier::volumeSpecifierWithAlias(Data::make("not an alias"), fm));
}

TEST(MachineVolumes, TwoImagesOfOneLabelAreToldApartStrictly) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  Scratch scratch;
  if (!scratch.makeImage("a.img", "Twin", 1600000000) || !scratch.makeImage("b.img", "Twin", 1600000001))
    GTEST_SKIP() << "mkfs.ext4 failed";
  auto monitor = MountMonitor::open(linuxVolumeQueries());
  ASSERT_TRUE(monitor.ok()) << monitor.error().describe();
  if (!scratch.mount("-o loop", scratch.path("a.img"), "a")) GTEST_SKIP() << "this machine cannot loop-mount images";
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("b.img"), "b"));
  ASSERT_TRUE((*monitor)->waitForChange(2000));
  EXPECT_EQ((*monitor)->takeNewMountPoints(), (std::vector<std::string>{scratch.path("a"), scratch.path("b")}));

  // Twins of one kind are told apart in the real volume tests; these differ
  // in their creation dates too.
  auto a = recordOf(scratch.path("a"));
  auto b = recordOf(scratch.path("b"));
  EXPECT_FALSE(a->creationDate() == b->creationDate());
  EXPECT_FALSE(a->isEqual(b));

  // A bind mount is the same volume, listed once, at its first mount point.
  ASSERT_TRUE(scratch.mount("--bind", scratch.path("a"), "bound"));
  EXPECT_TRUE(recordOf(scratch.path("bound"))->isEqual(a));
  EXPECT_EQ(recordOf(scratch.path("bound"))->volumePath(), scratch.path("a"));
  const auto paths = mountedLocalVolumePaths(*linuxVolumeQueries());
  EXPECT_EQ(std::count(paths.begin(), paths.end(), scratch.path("bound")), 0);
  (*monitor)->waitForChange(2000);
  EXPECT_TRUE((*monitor)->takeNewMountPoints().empty()) << "a second mount of a mounted volume is no new volume";

  // Mounted again elsewhere, the volume is found there.
  ASSERT_TRUE(scratch.unmount("bound") && scratch.unmount("a"));
  (*monitor)->takeNewMountPoints();
  EXPECT_FALSE(a->isMounted(0.0));
  ASSERT_TRUE(scratch.mount("-o loop", scratch.path("a.img"), "c"));
  EXPECT_TRUE(a->isMounted(0.0));
  EXPECT_EQ(a->volumePath(), scratch.path("c"));
  ASSERT_TRUE(scratch.mount("-t tmpfs -o size=1m", "tmpfs", "t"));
  ASSERT_TRUE((*monitor)->waitForChange(2000));
  EXPECT_EQ((*monitor)->takeNewMountPoints(), (std::vector<std::string>{scratch.path("c")}))
      << "pseudo file systems are no volumes";
}

}  // namespace
}  // namespace halyard
