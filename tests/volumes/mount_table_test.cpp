// The mount table as data: mountinfo lines parsed and unescaped, a path tied
// to its mount by mount ID (never by device number), volumes told apart by
// device and btrfs subvolume, images and pseudo file systems left out.

#include <gtest/gtest.h>

#include <sstream>

#include "volumes/mount_table.h"
#include "volumes/volume_mounts.h"

namespace halyard {
namespace {

// A btrfs file system (0:39 in the table) with its top at /data and its
// subvolume "home" at /home, a bind mount of a folder of the top, an ext4
// root, a snap's squashfs image, a tmpfs mounted over a folder of /data, lines
// the parser refuses, then a USB stick mounted twice and an NFS share.
constexpr const char* kTable =
    "22 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
    "40 22 0:39 / /data rw,relatime shared:7 - btrfs /dev/loop0 rw,space_cache=v2,subvolid=5,subvol=/\n"
    "41 22 0:39 /home /home rw master:2 - btrfs /dev/loop0 rw,subvolid=256,subvol=/home\n"
    "42 22 0:39 /pics /srv/My\\040Pictures rw - btrfs /dev/loop0 rw,subvolid=5,subvol=/\n"
    "43 22 7:3 / /snap/core/1 ro,nodev - squashfs /dev/loop3 ro\n"
    "44 40 0:45 / /data/tmp rw - tmpfs tmpfs rw\n"
    "bad line\n"
    "45 22 x:1 / /broken rw - tmpfs tmpfs rw\n"
    "46 22 0:46 / /no-type rw -\n"
    "47 22 0:47 relative /odd rw - tmpfs tmpfs rw\n"
    "48 22 8:17 / /media/u/Stick rw - vfat /dev/sdb1 rw\n"
    "49 22 8:17 / /mnt/again rw - vfat /dev/sdb1 rw\n"
    "50 22 0:50 / /mnt/share rw - nfs4 server:/export rw\n";

std::vector<MountEntry> table() {
  auto entries = parseMountTable(kTable);
  for (MountEntry& e : entries) e.sourceIsBlockDevice = e.source.rfind("/dev/", 0) == 0;
  return entries;
}

TEST(MountTable, LinesAreParsedAndUnescaped) {
  const auto entries = table();
  ASSERT_EQ(entries.size(), 9u);
  EXPECT_EQ(entries[0].mountID, 22u);
  EXPECT_EQ(entries[0].parentID, 1u);
  EXPECT_EQ(entries[5].parentID, 40u);
  EXPECT_EQ(entries[0].device, (254u << 8));
  EXPECT_EQ(entries[1].fsType, "btrfs");
  EXPECT_EQ(entries[1].source, "/dev/loop0");
  EXPECT_EQ(entries[1].device, 39u);
  EXPECT_EQ(entries[2].root, "/home");
  EXPECT_EQ(entries[2].options, "rw,rw,subvolid=256,subvol=/home") << "mount options, then the file system's";
  EXPECT_EQ(entries[3].mountPoint, "/srv/My Pictures");
  EXPECT_EQ(unescapeMountField("tail\\134"), "tail\\");
  EXPECT_EQ(unescapeMountField("\\777\\04"), "\\777\\04") << "escapes beyond a byte or cut short stay";
}

TEST(MountTable, APathIsTiedToItsMountByMountIDNeverByDevice) {
  const auto entries = table();
  struct Case {
    const char* name;
    PathPlace place;
    const char* mountPoint;
  } cases[] = {
      {"mount ID of the subvolume", {41, "/home/ann/doc"}, "/home"},
      {"mount ID wins over the path", {40, "/home/ann/doc"}, "/data"},
      {"no ID: longest mount point", {std::nullopt, "/data/tmp/x"}, "/data/tmp"},
      {"no ID: not a mere name prefix", {std::nullopt, "/database"}, "/"},
      {"unknown ID: longest mount point", {99, "/srv/My Pictures/a"}, "/srv/My Pictures"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const MountEntry* mount = mountHolding(entries, c.place);
    ASSERT_TRUE(mount);
    EXPECT_EQ(mount->mountPoint, c.mountPoint);
  }
  EXPECT_FALSE(mountHolding({}, {std::nullopt, "/x"}));
}

TEST(MountTable, VolumesAreDevicesAndSubvolumesNotImagesOrPseudoFileSystems) {
  const auto entries = table();
  std::vector<std::string> points;
  for (const MountEntry& e : localVolumeMounts(entries)) points.push_back(e.mountPoint);
  EXPECT_EQ(points, (std::vector<std::string>{"/", "/data", "/home", "/media/u/Stick", "/mnt/share"}));
  std::vector<MountEntry> rootLast(entries.begin() + 1, entries.end());
  rootLast.push_back(entries[0]);
  EXPECT_EQ(localVolumeMounts(rootLast).front().mountPoint, "/") << "the root comes first";
  const auto appeared = newlyMountedVolumes({entries[0]}, {entries[0], entries[6], entries[8]});
  ASSERT_EQ(appeared.size(), 2u);
  EXPECT_EQ(appeared[0].mountPoint, "/media/u/Stick");
  EXPECT_EQ(kindOfMount(entries[4]), MountKind::DiskImage);
  EXPECT_EQ(kindOfMount(entries[5]), MountKind::PseudoFileSystem);
  EXPECT_EQ(volumeRootOf(entries[2]), "/home");
  EXPECT_EQ(volumeRootOf(entries[3]), "/") << "a bind mount of a folder is its subvolume's";
  EXPECT_EQ(canonicalMount(entries, entries[3]).mountPoint, "/data");
  EXPECT_EQ(canonicalMount(entries, entries[2]).mountPoint, "/home");
}

// The root (22) and then the lines given, as mountinfo: "id parent
// major:minor mount-point", each an ext4 file system on /dev/sd<minor>.
std::vector<MountEntry> tableOf(std::initializer_list<const char*> lines) {
  std::string text = "22 1 254:0 / / rw - ext4 /dev/vda rw\n";
  for (const char* line : lines) {
    std::istringstream fields(line);
    std::string id, parent, device, point;
    fields >> id >> parent >> device >> point;
    text += id + " " + parent + " " + device + " / " + point + " rw - ext4 /dev/sd" +
            device.substr(device.find(':') + 1) + " rw\n";
  }
  auto entries = parseMountTable(text);
  for (MountEntry& e : entries) e.sourceIsBlockDevice = true;
  return entries;
}

// Each volume as "source at mount point".
std::vector<std::string> placesOf(const std::vector<MountEntry>& volumes) {
  std::vector<std::string> places;
  for (const MountEntry& e : volumes) places.push_back(e.source + " at " + e.mountPoint);
  return places;
}

TEST(MountTable, AMountALaterMountCoversIsNoVolume) {
  struct Case {
    const char* name;
    std::vector<MountEntry> table;
    std::vector<std::string> volumes;
  } cases[] = {
      {"mounted over at its mount point",
       tableOf({"60 22 8:1 /m/a", "61 60 8:2 /m/a"}),
       {"/dev/vda at /", "/dev/sd2 at /m/a"}},
      {"mounted over twice",
       tableOf({"60 22 8:1 /m/a", "61 60 8:2 /m/a", "62 61 8:3 /m/a"}),
       {"/dev/vda at /", "/dev/sd3 at /m/a"}},
      {"covered by a later mount at a folder above",
       tableOf({"60 22 8:1 /m/a/in", "61 22 8:2 /m/a"}),
       {"/dev/vda at /", "/dev/sd2 at /m/a"}},
      {"covered with the mount it holds",
       tableOf({"60 22 8:1 /m/a", "61 60 8:3 /m/a/in", "62 60 8:2 /m/a"}),
       {"/dev/vda at /", "/dev/sd2 at /m/a"}},
      {"mounted inside a mount made before it",
       tableOf({"60 22 8:2 /m/a", "61 60 8:1 /m/a/in"}),
       {"/dev/vda at /", "/dev/sd2 at /m/a", "/dev/sd1 at /m/a/in"}},
      {"mounted inside the mount that covers another",
       tableOf({"60 22 8:1 /m/a", "61 60 8:2 /m/a", "62 61 8:3 /m/a/in"}),
       {"/dev/vda at /", "/dev/sd2 at /m/a", "/dev/sd3 at /m/a/in"}},
      {"covered at one mount point, reached at another",
       tableOf({"60 22 8:1 /m/a", "61 22 8:1 /m/b", "62 60 8:2 /m/a"}),
       {"/dev/vda at /", "/dev/sd1 at /m/b", "/dev/sd2 at /m/a"}},
      {"beside a mount point its own begins with",
       tableOf({"60 22 8:1 /m/ab", "61 22 8:2 /m/a"}),
       {"/dev/vda at /", "/dev/sd1 at /m/ab", "/dev/sd2 at /m/a"}},
      {"parents in a loop",
       tableOf({"60 61 8:1 /m/a", "61 60 8:2 /m/b"}),
       {"/dev/vda at /", "/dev/sd1 at /m/a", "/dev/sd2 at /m/b"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(placesOf(localVolumeMounts(c.table)), c.volumes);
  }
}

// The monitor compares the volumes of two looks at the table.
TEST(MountTable, AVolumeIsNewOnlyWhereItWasMountedNowhereBefore) {
  struct Case {
    const char* name;
    std::vector<MountEntry> before, after;
    std::vector<std::string> appeared;
  } cases[] = {
      {"first mount", tableOf({}), tableOf({"60 22 8:1 /m/a"}), {"/dev/sd1 at /m/a"}},
      {"a second mount", tableOf({"60 22 8:1 /m/a"}), tableOf({"60 22 8:1 /m/a", "61 22 8:1 /m/b"}), {}},
      {"the first of two mounts unmounted",
       tableOf({"60 22 8:1 /m/a", "61 22 8:1 /m/b"}),
       tableOf({"61 22 8:1 /m/b"}),
       {}},
      {"moved", tableOf({"60 22 8:1 /m/b"}), tableOf({"60 22 8:1 /m/c"}), {}},
      {"another file system at the same mount point",
       tableOf({"60 22 8:1 /m/a"}),
       tableOf({"61 22 8:2 /m/a"}),
       {"/dev/sd2 at /m/a"}},
      {"uncovered", tableOf({"60 22 8:1 /m/a", "61 60 8:2 /m/a"}), tableOf({"60 22 8:1 /m/a"}), {"/dev/sd1 at /m/a"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(placesOf(newlyMountedVolumes(localVolumeMounts(c.before), localVolumeMounts(c.after))), c.appeared);
  }
}

}  // namespace
}  // namespace halyard
