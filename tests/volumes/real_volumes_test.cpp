// Volume records of real mounts: the test machine's own volumes, and file
// systems made in loop images and mounted in a private mount namespace (the
// test runs itself again under `unshare -m --propagation private`, so neither
// the host nor other tests see the mounts). A record made from a file deep
// inside is the record of the mount point, the mount check finds the volume,
// and a second image with the same label and type but another UUID is told
// apart under strict identification and taken for the same volume without
// it. A kind the kernel or the machine lacks is skipped with the reason.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "volumes/mount_monitor.h"
#include "volumes/mount_namespace_support.h"
#include "volumes/volume_mounts.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

using testing::Scratch;

struct FileSystemKind {
  const char* name;
  const char* size;
  const char* mkfs;   // the label follows, then the image
  const char* label;  // as the file system keeps it
  const char* mountOptions;
  bool subvolume;  // mount a btrfs subvolume on its own
};

const FileSystemKind kKinds[] = {
    {"ext4", "16M", "mkfs.ext4 -q -F -L", "Twin Label", "-o loop", false},
    {"xfs", "320M", "mkfs.xfs -q -f -L", "Twin Label", "-o loop", false},
    {"btrfs", "128M", "mkfs.btrfs -q -f -L", "Twin Label", "-o loop", false},
    {"btrfs_subvolume", "128M", "mkfs.btrfs -q -f -L", "Twin Label", "-o loop,subvol=sub", true},
    {"vfat", "16M", "mkfs.vfat -n", "TWIN LABEL", "-o loop", false},
    {"exfat", "16M", "mkfs.exfat -L", "Twin Label", "-o loop", false},
};

std::shared_ptr<VolumeSpecifier> recordOf(const std::string& path) {
  return VolumeSpecifier::volumeSpecifierWithPath(path, fileservices::VTFileManager::make());
}

class RealVolumes : public ::testing::TestWithParam<FileSystemKind> {
 protected:
  // Formats an image and, for a subvolume kind, makes the subvolume "sub".
  bool makeImage(const std::string& image) {
    const FileSystemKind& kind = GetParam();
    if (!scratch_.makeFileSystem(image, kind.size, std::string(kind.mkfs) + " '" + kind.label + "'")) return false;
    if (!kind.subvolume) return true;
    return scratch_.mount("-o loop", scratch_.path(image), "prepare") &&
           testing::run("btrfs subvolume create " + scratch_.path("prepare/sub")) && scratch_.unmount("prepare");
  }
  bool mountImage(const std::string& image, const std::string& where) {
    return scratch_.mount(GetParam().mountOptions, scratch_.path(image), where);
  }
  Scratch scratch_;
};

TEST_P(RealVolumes, ADeepFileLeadsToItsVolumeAndTwinsAreToldApart) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  const FileSystemKind& kind = GetParam();
  if (!makeImage("a.img") || !makeImage("b.img")) GTEST_SKIP() << kind.name << ": cannot make an image here";
  if (!mountImage("a.img", "a")) GTEST_SKIP() << "this kernel cannot mount " << kind.name << " images";
  ASSERT_TRUE(mountImage("b.img", "b"));
  const std::string deep = scratch_.path("a/one/two/three/deep.txt");
  std::filesystem::create_directories(scratch_.path("a/one/two/three"));
  std::ofstream(deep) << "data";

  auto top = recordOf(scratch_.path("a"));
  auto fromDeep = recordOf(deep);
  EXPECT_EQ(fromDeep->volumeName(), kind.label);
  EXPECT_EQ(fromDeep->volumePath(), scratch_.path("a"));
  EXPECT_TRUE(fromDeep->deviceInfoValid()) << "the UUID is read without udev";
  EXPECT_TRUE(fromDeep->isEqual(top));
  EXPECT_TRUE(top->isEqual(fromDeep));
  EXPECT_TRUE(fromDeep->isMounted(0.0));
  EXPECT_EQ(fromDeep->volumePath(), scratch_.path("a"));

  auto twin = recordOf(scratch_.path("b"));
  EXPECT_EQ(twin->volumeName(), kind.label);
  EXPECT_NE(twin->deviceGUID(), top->deviceGUID());
  auto strict = top->copyWithZone();
  strict->setStrictVolumeIdentification(true);
  EXPECT_FALSE(strict->isEqual(twin));
  auto lenient = top->copyWithZone();
  lenient->setStrictVolumeIdentification(false);
  EXPECT_TRUE(lenient->isEqual(twin)) << "without strictness only name, type and flags count";
}

// With the top of the file system mounted too, the subvolume is still its
// own volume, found at its own mount point.
TEST(RealVolumesSubvolume, TheTopMountedBesideASubvolumeIsAnotherVolume) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  Scratch scratch;
  if (!scratch.makeFileSystem("pool.img", "128M", "mkfs.btrfs -q -f -L Pool")) GTEST_SKIP() << "no mkfs.btrfs";
  if (!scratch.mount("-o loop", scratch.path("pool.img"), "top")) GTEST_SKIP() << "this kernel cannot mount btrfs";
  ASSERT_TRUE(testing::run("btrfs subvolume create " + scratch.path("top/sub")));
  ASSERT_TRUE(scratch.mount("-o loop,subvol=sub", scratch.path("pool.img"), "sub"));
  auto top = recordOf(scratch.path("top"));
  auto sub = recordOf(scratch.path("sub"));
  EXPECT_EQ(sub->volumePath(), scratch.path("sub"));
  EXPECT_FALSE(sub->isEqual(top));
  EXPECT_TRUE(sub->isMounted(0.0));
  EXPECT_EQ(sub->volumePath(), scratch.path("sub"));
  EXPECT_EQ(recordOf(scratch.path("top/sub"))->volumePath(), scratch.path("top"))
      << "the subvolume reached through the top belongs to the top's mount";
}

// Read-only images that packaging systems loop-mount are no volumes.
TEST(RealVolumesImages, SquashfsImagesAreNoVolumes) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  Scratch scratch;
  std::filesystem::create_directories(scratch.path("content"));
  if (!testing::run("mksquashfs " + scratch.path("content") + " " + scratch.path("app.squashfs") + " -quiet")) {
    GTEST_SKIP() << "mksquashfs cannot make an image here";
  }
  if (!scratch.mount("-o loop", scratch.path("app.squashfs"), "app")) GTEST_SKIP() << "this kernel lacks squashfs";
  const auto paths = mountedLocalVolumePaths(*linuxVolumeQueries());
  EXPECT_EQ(std::count(paths.begin(), paths.end(), scratch.path("app")), 0);
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
      EXPECT_TRUE(j == i || !records[i]->isEqual(records[j])) << "also equal to " << paths[j];
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

  // Unmounted at its first mount point, the volume is still mounted: no
  // new volume at the second.
  ASSERT_TRUE(scratch.unmount("a"));
  ASSERT_TRUE((*monitor)->waitForChange(2000));
  EXPECT_TRUE((*monitor)->takeNewMountPoints().empty()) << "the volume stays mounted at its other mount point";

  // Mounted again elsewhere, the volume is found there.
  ASSERT_TRUE(scratch.unmount("bound"));
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

INSTANTIATE_TEST_SUITE_P(Kinds, RealVolumes, ::testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace halyard
