#pragma once
// The identity facts of a block device, read so that a machine with a udev
// database and one without it give the same answer: the label and UUID from
// udev's record of the file system when there is one (its ID_FS_LABEL_ENC
// decoded to the raw label, never the mangled ID_FS_LABEL), else from the
// superblock through libblkid (the volume queries ask a mounted file system
// for its label where the device node cannot be read); the model, bus and
// removability from sysfs, which every Linux machine has. udev's ID_MODEL
// and ID_BUS are not used: for ATA disks udev reads the drive's full model
// while sysfs shows the 16-character SCSI view, and a record must not depend
// on which was read.
//
//   DeviceProperties facts = readDeviceFacts("/dev/sdb1", device, {systemUdevDatabase()});

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "volumes/volume_queries.h"

namespace halyard {

// The udev database, behind a seam: machines without udev (containers,
// minimal systems) have none, and tests describe one in data.
class UdevDatabase {
 public:
  virtual ~UdevDatabase() = default;
  // udev's properties of a block device, absent when udev keeps no record of it.
  virtual std::optional<std::map<std::string, std::string>> propertiesOf(std::uint64_t device) const = 0;
};

// The machine's udev database through libudev.
std::shared_ptr<const UdevDatabase> systemUdevDatabase();

// Where the facts come from.
struct DeviceFactSources {
  std::shared_ptr<const UdevDatabase> udev;  // null: a machine without udev
  std::string sysfsRoot = "/sys";
};

// The facts of the block device `device` (its number) at `devicePath`,
// which libblkid probes when udev has no record of its file system.
DeviceProperties readDeviceFacts(const std::string& devicePath, std::uint64_t device, const DeviceFactSources& sources);

// The label a mounted file system gives through a folder of it
// (FS_IOC_GETFSLABEL: ext4, btrfs, xfs, f2fs), which needs no read access to
// the device; absent when the file system keeps none or does not tell.
std::optional<std::string> labelOfMountedFileSystem(const std::string& folder);

// The machine's volume queries with device facts from these sources
// (linuxVolumeQueries() uses the machine's udev database and /sys).
std::shared_ptr<const VolumeQueries> linuxVolumeQueriesWith(DeviceFactSources sources);

// udev's encoded text ("My\x20Backup") decoded; malformed escapes are kept.
std::string decodeUdevText(std::string_view encoded);

// The bus a disk hangs on, from its resolved sysfs path and the subsystems
// of its ancestors in the device tree; absent for virtual devices (loop).
std::optional<std::string> busOfDisk(std::string_view sysfsPath, const std::vector<std::string>& ancestorSubsystems);

// A text without its leading and trailing white space (sysfs pads models).
std::string trimmedText(std::string_view text);

}  // namespace halyard
