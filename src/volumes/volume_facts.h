#pragma once
// The file manager's volume calls as this platform answers them: the volume
// parameters (what a volume can do), the volume information (who it is), its
// mount flags, its disk description and its format name. Each call finds the
// volume that holds a path (the file system of the path's device, at the
// mount that stands for it) and reads it through VolumeQueries.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

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
  std::int32_t grade = 0;            // none here: 0, the 4 MiB buffer
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
