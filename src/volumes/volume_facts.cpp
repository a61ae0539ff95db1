#include "volumes/volume_facts.h"

#include <array>

#include "volumes/mount_table.h"
#include "volumes/volume_mounts.h"

namespace halyard {
namespace {

// Seconds from 1904-01-01 to 1970-01-01.
constexpr std::int64_t kUnixFrom1904 = 2082844800;
constexpr std::int64_t kMax48Bits = (std::int64_t{1} << 48) - 1;

bool isOneOf(const std::string& type, std::initializer_list<std::string_view> types) {
  for (std::string_view t : types) {
    if (type == t) return true;
  }
  return false;
}

// File systems that keep no POSIX owners.
bool keepsNoOwnership(const MountEntry& mount) {
  if (isOneOf(mount.fsType, {"vfat", "msdos", "exfat", "fuseblk"})) return true;
  return mount.fsType == "iso9660" && hasMountOption(mount.options, "norock");
}

std::string lastComponent(const std::string& mountPoint) {
  if (mountPoint == "/") return "/";
  const std::size_t slash = mountPoint.find_last_of('/');
  return slash == std::string::npos ? mountPoint : mountPoint.substr(slash + 1);
}

}  // namespace

UTCDateTime utcDateTimeFromKernelTime(const KernelTime& time) {
  const std::int64_t seconds = time.seconds + kUnixFrom1904;
  if (seconds < 0 || seconds > kMax48Bits) return {};
  UTCDateTime date;
  date.highSeconds = static_cast<std::uint16_t>(seconds >> 32);
  date.lowSeconds = static_cast<std::uint32_t>(seconds & 0xFFFFFFFF);
  date.fraction = static_cast<std::uint16_t>((std::uint64_t{time.nanoseconds} << 16) / 1000000000u);
  return date;
}

TimeInterval instantOfUTCDateTime(const UTCDateTime& date) {
  const std::int64_t seconds = (std::int64_t{date.highSeconds} << 32) | date.lowSeconds;
  return fromUnixSeconds(static_cast<double>(seconds - kUnixFrom1904)) + date.fraction / 65536.0;
}

bool hasReliableIdentity(std::uint32_t fsType) {
  constexpr std::array<std::uint32_t, 5> kReliable{0x482B, 0xEF53, 0x58465342, 0x9123683E, 0xF2F52010};
  for (std::uint32_t type : kReliable) {
    if (type == fsType) return true;
  }
  return false;
}

std::optional<VolumeLocation> locateMountStatistics(const VolumeQueries& queries, const std::vector<MountEntry>& table,
                                                    const MountEntry& mount) {
  const MountEntry& standing = canonicalMount(table, mount);
  const auto stats = queries.fileSystemStats(standing.mountPoint);
  if (!stats) return std::nullopt;
  return VolumeLocation{standing, *stats, {}};
}

void addDeviceFacts(const VolumeQueries& queries, VolumeLocation& volume) {
  if (!isNetworkFileSystem(volume.mount.fsType)) volume.device = queries.deviceProperties(volume.mount);
}

std::optional<VolumeLocation> locateMount(const VolumeQueries& queries, const std::vector<MountEntry>& table,
                                          const MountEntry& mount) {
  auto volume = locateMountStatistics(queries, table, mount);
  if (volume) addDeviceFacts(queries, *volume);
  return volume;
}

std::optional<VolumeLocation> locateVolume(const VolumeQueries& queries, const std::string& path) {
  const auto place = queries.placeOf(path);
  if (!place) return std::nullopt;
  const auto table = mountsInReach(queries.mountTable());
  const MountEntry* mount = mountHolding(table, *place);
  if (!mount) return std::nullopt;
  return locateMount(queries, table, *mount);
}

std::string volumeNameOf(const VolumeLocation& volume) {
  const auto& label = volume.device.label;
  return label && !label->empty() ? *label : lastComponent(volume.mount.mountPoint);
}

VolumeParms getParms(const VolumeLocation& volume) {
  const MountEntry& mount = volume.mount;
  VolumeParms parms;
  parms.onServer = isNetworkFileSystem(mount.fsType);
  parms.removable = !parms.onServer && volume.device.removable;
  const bool fat = isOneOf(mount.fsType, {"vfat", "msdos"});
  parms.largeFiles = !fat;
  parms.symbolicLinks = !fat && mount.fsType != "exfat";
  parms.acls = !fat && mount.fsType != "exfat" && !hasMountOption(mount.options, "noacl");
  parms.caseSensitive = !fat && !isOneOf(mount.fsType, {"exfat", "ntfs", "ntfs3", "fuseblk"});
  parms.nameLengthLimit = volume.stats.nameMax;
  parms.mountInfo = serverMountInfo(mount);
  parms.url = serverURL(mount);
  return parms;
}

VolumeInfo getInfoForVolume(const VolumeQueries& queries, const VolumeLocation& volume) {
  const FileSystemStats& stats = volume.stats;
  VolumeInfo info;
  info.name = volumeNameOf(volume);
  info.rootPath = volume.mount.mountPoint;
  if (auto born = queries.birthTime(info.rootPath)) info.creationDate = utcDateTimeFromKernelTime(*born);
  info.blockSize = stats.blockSize;
  info.fileSystemID = static_cast<std::uint16_t>(stats.type >> 16);
  info.signature = static_cast<std::uint16_t>(stats.type & 0xFFFF);
  info.totalBytes = stats.totalBlocks * stats.fragmentSize;
  info.freeBytes = stats.freeBlocks * stats.fragmentSize;
  return info;
}

MountFlags statfsPath(const VolumeLocation& volume) {
  return MountFlags{volume.stats.noSuid || keepsNoOwnership(volume.mount), volume.stats.readOnly};
}

std::map<std::string, std::string> getDetailedDiskInformation(const VolumeLocation& volume) {
  std::map<std::string, std::string> description;
  if (isNetworkFileSystem(volume.mount.fsType)) return description;
  const DeviceProperties& device = volume.device;
  if (device.model) description["DADeviceModel"] = *device.model;
  if (device.bus) description["DADeviceProtocol"] = *device.bus;
  if (device.uuid) description["DAVolumeUUID"] = *device.uuid;
  return description;
}

std::optional<VolumeParms> getParms(const VolumeQueries& queries, const std::string& path) {
  const auto volume = locateVolume(queries, path);
  if (!volume) return std::nullopt;
  return getParms(*volume);
}

std::optional<VolumeInfo> getInfoForVolume(const VolumeQueries& queries, const std::string& path) {
  const auto volume = locateVolume(queries, path);
  if (!volume) return std::nullopt;
  return getInfoForVolume(queries, *volume);
}

std::optional<MountFlags> statfsPath(const VolumeQueries& queries, const std::string& path) {
  const auto volume = locateVolume(queries, path);
  if (!volume) return std::nullopt;
  return statfsPath(*volume);
}

std::map<std::string, std::string> getDetailedDiskInformation(const VolumeQueries& queries, const std::string& path) {
  const auto volume = locateVolume(queries, path);
  return volume ? getDetailedDiskInformation(*volume) : std::map<std::string, std::string>();
}

std::string fileSystemFormatStringForNSPath(const VolumeQueries& queries, const std::string& path) {
  const auto volume = locateVolume(queries, path);
  return volume ? volume->mount.fsType : std::string();
}

}  // namespace halyard
