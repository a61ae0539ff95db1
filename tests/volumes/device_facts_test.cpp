// Device facts read the same with and without udev: udev's encoded label
// decoded, else the superblock (a real ext4 image probed by libblkid), else,
// for a user who cannot read the device, the mounted file system; the model,
// bus and removability from a sysfs tree laid out as the kernel lays out a
// USB stick.

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>

#include "volumes/device_facts.h"
#include "volumes/mount_namespace_support.h"
#include "volumes/volume_specifier.h"

namespace halyard {
namespace {

namespace fs = std::filesystem;

// udev's record of one device, as a udev database would hold it.
class FakeUdev final : public UdevDatabase {
 public:
  std::map<std::string, std::string> record;
  std::optional<std::map<std::string, std::string>> propertiesOf(std::uint64_t) const override { return record; }
};

// udev's record of an ext4 file system labelled "Sauvegarde été".
std::shared_ptr<FakeUdev> udevOfLabelledExt4(const std::string& uuid) {
  auto udev = std::make_shared<FakeUdev>();
  udev->record = {{"ID_FS_LABEL", "Sauvegarde_\xc3\xa9t\xc3\xa9"},
                  {"ID_FS_LABEL_ENC", "Sauvegarde\\x20\xc3\xa9t\xc3\xa9"},
                  {"ID_FS_UUID", uuid},
                  {"ID_FS_TYPE", "ext4"}};
  return udev;
}

void write(const fs::path& file, const std::string& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

// /sys of a machine with a USB stick: sdb1 on sdb, behind a SCSI host on a
// USB device; the model padded as SCSI pads it.
std::string fakeSysfs(const fs::path& root) {
  const fs::path usb = root / "devices/pci0000:00/0000:00:14.0/usb1/1-1";
  const fs::path scsi = usb / "1-1:1.0/host6/target6:0:0/6:0:0:0";
  const fs::path disk = scsi / "block/sdb";
  write(disk / "sdb1/partition", "1\n");
  write(disk / "removable", "0\n");
  write(scsi / "model", "Cruzer Blade    \n");
  fs::create_directories(root / "bus/usb");
  fs::create_directories(root / "bus/scsi");
  fs::create_directories(root / "dev/block");
  fs::create_directory_symlink(root / "bus/usb", usb.parent_path() / "subsystem");
  fs::create_directory_symlink(root / "bus/usb", usb / "subsystem");
  fs::create_directory_symlink(root / "bus/scsi", scsi / "subsystem");
  fs::create_directory_symlink(scsi, disk / "device");
  fs::create_directory_symlink(disk / "sdb1", root / "dev/block/8:17");
  return root.string();
}

TEST(DeviceFacts, UdevTextIsDecoded) {
  const std::pair<const char*, const char*> cases[] = {
      {"My\\x20Backup", "My Backup"}, {"Sauvegarde\\x20\xc3\xa9t\xc3\xa9", "Sauvegarde \xc3\xa9t\xc3\xa9"},
      {"a\\x2fb\\x5c", "a/b\\"},      {"cut\\x2", "cut\\x2"},
      {"bad\\xzz", "bad\\xzz"},
  };
  for (const auto& [encoded, decoded] : cases) {
    SCOPED_TRACE(encoded);
    EXPECT_EQ(decodeUdevText(encoded), decoded);
  }
}

TEST(DeviceFacts, TheBusIsTheDisksOwnTransport) {
  struct Case {
    const char* path;
    std::vector<std::string> subsystems;
    std::optional<std::string> bus;
  } cases[] = {
      {"/sys/devices/pci/usb1/1-1/1-1:1.0/host6/target6:0:0/6:0:0:0/block/sdb", {"scsi", "scsi", "usb", "usb"}, "usb"},
      {"/sys/devices/pci/0000:00:1f.2/ata3/host2/target2:0:0/2:0:0:0/block/sda", {"scsi", "scsi", "pci"}, "ata"},
      {"/sys/devices/pci/0000:3d:00.0/nvme/nvme0/nvme0n1", {"nvme", "pci"}, "nvme"},
      {"/sys/devices/pci/0000:00:04.0/virtio1/block/vda", {"virtio", "pci"}, "virtio"},
      {"/sys/devices/platform/data3/block/sdc", {"scsi"}, "scsi"},
      {"/sys/devices/virtual/block/loop0", {}, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(busOfDisk(c.path, c.subsystems), c.bus);
  }
}

TEST(DeviceFacts, TheSameWithAndWithoutUdev) {
  testing::Scratch scratch;
  constexpr const char* kUuid = "0b2c1d4e-0000-4000-8000-00000000e7e7";
  if (!scratch.makeFileSystem("label.img", "16M",
                              std::string("mkfs.ext4 -q -F -L 'Sauvegarde \xc3\xa9t\xc3\xa9' -U ") + kUuid)) {
    GTEST_SKIP() << "mkfs.ext4 cannot make an image here";
  }
  const std::string image = scratch.path("label.img");
  const std::string sysfs = fakeSysfs(scratch.path("sys"));
  auto udev = udevOfLabelledExt4(kUuid);
  udev->record.insert({{"ID_MODEL", "Cruzer_Blade"}, {"ID_BUS", "usb"}});
  const std::uint64_t device = makedev(8, 17);
  const DeviceProperties withUdev = readDeviceFacts(image, device, {udev, sysfs});
  const DeviceProperties withoutUdev = readDeviceFacts(image, device, {nullptr, sysfs});
  EXPECT_EQ(withUdev.label, "Sauvegarde \xc3\xa9t\xc3\xa9");
  EXPECT_EQ(withUdev.uuid, kUuid);
  EXPECT_EQ(withUdev.model, "Cruzer Blade");
  EXPECT_EQ(withUdev.bus, "usb");
  EXPECT_TRUE(withUdev.removable) << "a USB disk is removable whatever its flag";
  EXPECT_EQ(withUdev, withoutUdev);

  udev->record = {{"DEVNAME", "/dev/sdb1"}};
  EXPECT_EQ(readDeviceFacts(image, device, {udev, sysfs}), withoutUdev)
      << "a device udev has not probed is read from its superblock";
  EXPECT_EQ(readDeviceFacts(image, makedev(8, 33), {nullptr, sysfs}).model, std::nullopt);
}

// A mounted volume's record made where udev knows the device equals,
// strictly, its record made where there is no udev.
TEST(DeviceFacts, ARecordMadeWithUdevEqualsOneMadeWithout) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  testing::Scratch scratch;
  if (!scratch.makeFileSystem("label.img", "16M", "mkfs.ext4 -q -F -L 'Sauvegarde \xc3\xa9t\xc3\xa9'")) {
    GTEST_SKIP() << "mkfs.ext4 cannot make an image here";
  }
  if (!scratch.mount("-o loop", scratch.path("label.img"), "v")) GTEST_SKIP() << "this machine cannot loop-mount";
  const auto blkid = readDeviceFacts(scratch.path("label.img"), 0, {nullptr, scratch.path("no-sysfs")});
  auto udev = udevOfLabelledExt4(blkid.uuid.value_or(""));
  const auto recordWith = [&](std::shared_ptr<const UdevDatabase> database) {
    auto manager = fileservices::VTFileManager::make();
    manager->setVolumeQueries(linuxVolumeQueriesWith({std::move(database)}));
    return VolumeSpecifier::volumeSpecifierWithPath(scratch.path("v"), manager);
  };
  auto withUdev = recordWith(udev);
  auto withoutUdev = recordWith(nullptr);
  EXPECT_EQ(withUdev->volumeName(), "Sauvegarde \xc3\xa9t\xc3\xa9");
  EXPECT_TRUE(withUdev->strictVolumeIdentification());
  EXPECT_EQ(withUdev->identityMismatch(*withoutUdev), IdentityMismatch::None);
  EXPECT_EQ(withoutUdev->identityMismatch(*withUdev), IdentityMismatch::None);
}

// Without udev's record the superblock is out of an ordinary user's reach
// (the device node is root's alone); the mounted file system still tells
// its label, so the volume keeps its name.
TEST(DeviceFacts, AnUnprivilegedUserReadsTheLabelOfAMountedVolume) {
  RUN_INSIDE_PRIVATE_MOUNT_NAMESPACE();
  testing::Scratch scratch;
  if (!scratch.makeImage("label.img", "Photos", 1600000000)) GTEST_SKIP() << "mkfs.ext4 cannot make an image here";
  if (!scratch.mount("-o loop", scratch.path("label.img"), "v")) GTEST_SKIP() << "this machine cannot loop-mount";
  fs::permissions(scratch.path(""), fs::perms::others_exec, fs::perm_options::add);
  const std::string asNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
  const std::string halyardctl = std::string(HALYARD_BINARY_DIR) + "/src/tools/halyardctl";
  if (!testing::run(asNobody + halyardctl + " --version")) {
    GTEST_SKIP() << "user 65534 cannot run " << halyardctl << " (setpriv missing or the build folder closed to it)";
  }
  const std::string listing = testing::outputOf(asNobody + halyardctl + " volumes");
  EXPECT_NE(listing.find(scratch.path("v") + ": can start an item\n  name: Photos\n"), std::string::npos) << listing;
}

}  // namespace
}  // namespace halyard
