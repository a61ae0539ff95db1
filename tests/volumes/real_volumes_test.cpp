// Volume records of real file systems, each made in a loop image and mounted
// in a private mount namespace: a record made from a file deep inside is the
// record of the mount point, the mount check finds the volume, and a second
// image with the same label and type but another UUID is told apart under
// strict identification and taken for the same volume without it. A kind the
// kernel or the machine lacks is skipped with the reason.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

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

INSTANTIATE_TEST_SUITE_P(Kinds, RealVolumes, ::testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace halyard
