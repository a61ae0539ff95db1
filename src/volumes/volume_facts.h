#pragma once
// The file manager's volume calls as this platform answers them: the volume
// parameters (what a volume can do), the volume information (who it is), its
// mount flags, its disk description and its format name. Each call by path
// finds the volume that holds the path (the path's mount by its mount ID, and
// the mount that stands for that mount's volume) and reads it through
// VolumeQueries; the calls on a VolumeLocation read nothing more, so that a
// record is made from one reading of the machine.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/dates.h"
#include "volumes/volume_queries.h"

namespace halyard {

// A volume's creation date as the 8-byte UTC date-time: seconds since
// 1904-01-01 00:00:00 UTC in 48 bits (high 16, low 32) and a 16-bit fraction.
// All zero when unknown.
struct UTCDateTime {
  std::uint16_t highSeconds = 0;
  std::uint32_t lowSeconds = 0;
  std::uint16_t fraction = 0;
  bool operator==(const UTCDateTime&) const = default;
};

UTCDateTime utcDateTimeFromKernelTime(const KernelTime& time);
// The date-time as an instant (seconds since 2001-01-01 UTC).
TimeInterval instantOfUTCDateTime(const UTCDateTime& date);

// What a volume can do, and where it comes from.
struct VolumeParms {
  bool onServer = false;
  bool removable = false;
  bool largeFiles = false;
  bool symbolicLinks = false;
  bool caseSensitive = false;
  bool acls = false;
  std::int32_t grade = 0;  // none here: 0, the 4 MiB buffer
  std::uint32_t nameLengthLimit = 0;
  std::optional<std::string> mountInfo;  // network volumes: the mount-info block
  std::optional<std::string> url;        // network volumes: the mount URL
};

// Who a volume is.
struct VolumeInfo {
  std::string name;
  std::string rootPath;
  UTCDateTime creationDate;
  std::uint32_t blockSize = 0;
  std::uint16_t fileSystemID = 0;
  std::uint16_t signature = 0;
  std::uint64_t totalBytes = 0;
  std::uint64_t freeBytes = 0;
};

// How a volume is mounted: whether it ignores ownership, whether it is read-only.
struct MountFlags {
  bool ignoresOwnership = false;
  bool readOnly = false;
};

// A volume as read from the machine once: the mount that stands for it, its
// file-system statistics and the facts of its device (none for network
// volumes and pseudo file systems).
struct VolumeLocation {
  MountEntry mount;
  FileSystemStats stats;
  DeviceProperties device;
};

// The volume that holds an existing path; absent when none does.
std::optional<VolumeLocation> locateVolume(const VolumeQueries& queries, const std::string& path);
// The volume a mount of `table` shows, read at the mount that stands for it.
std::optional<VolumeLocation> locateMount(const VolumeQueries& queries, const std::vector<MountEntry>& table,
                                          const MountEntry& mount);
// The same in two steps, for callers that can stop after the statistics:
// the location without device facts, then its device facts.
std::optional<VolumeLocation> locateMountStatistics(const VolumeQueries& queries, const std::vector<MountEntry>& table,
                                                    const MountEntry& mount);
void addDeviceFacts(const VolumeQueries& queries, VolumeLocation& volume);

// The volume's name: its label, else the mount point's last component ("/"
// for the root).
std::string volumeNameOf(const VolumeLocation& volume);

VolumeParms getParms(const VolumeLocation& volume);
VolumeInfo getInfoForVolume(const VolumeQueries& queries, const VolumeLocation& volume);
MountFlags statfsPath(const VolumeLocation& volume);
std::map<std::string, std::string> getDetailedDiskInformation(const VolumeLocation& volume);

// The same calls by path; absent (or empty) when no volume holds the path.
std::optional<VolumeParms> getParms(const VolumeQueries& queries, const std::string& path);
std::optional<VolumeInfo> getInfoForVolume(const VolumeQueries& queries, const std::string& path);
std::optional<MountFlags> statfsPath(const VolumeQueries& queries, const std::string& path);
// "DADeviceModel", "DADeviceProtocol", "DAVolumeUUID": those known of the
// volume's device; empty for a network volume or an unknown device.
std::map<std::string, std::string> getDetailedDiskInformation(const VolumeQueries& queries, const std::string& path);
// The file-system type of the volume that holds a path ("ext4"), empty when none.
std::string fileSystemFormatStringForNSPath(const VolumeQueries& queries, const std::string& path);

// statfs f_type values of the native journaled file systems, whose creation
// date and UUID are reliable: identity is strict for them.
bool hasReliableIdentity(std::uint32_t fsType);

}  // namespace halyard
