#include "volumes/volume_facts.h"

#include <array>

#include "volumes/volume_mounts.h"

namespace halyard {
namespace {

// Seconds from 1904-01-01 to 1970-01-01.
constexpr std::int64_t kUnixFrom1904 = 2082844800;
constexpr std::int64_t kMax48Bits = (std::int64_t{1} << 48) - 1;

// The volume that holds a path: the mount standing for its file system.
struct Located {
  MountEntry mount;
  FileSystemStats stats;
};

std::optional<Located> locate(const VolumeQueries& queries, const std::string& path) {
  const auto device = queries.deviceOf(path);
  if (!device) return std::nullopt;
  const auto table = queries.mountTable();
  const MountEntry* mount = canonicalMount(table, *device);
  if (!mount) return std::nullopt;
  const auto stats = queries.fileSystemStats(mount->mountPoint);
  if (!stats) return std::nullopt;
  return Located{*mount, *stats};
}

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

std::optional<VolumeParms> getParms(const VolumeQueries& queries, const std::string& path) {
  const auto located = locate(queries, path);
  if (!located) return std::nullopt;
  const MountEntry& mount = located->mount;
  VolumeParms parms;
  parms.onServer = isNetworkFileSystem(mount.fsType);
  parms.removable = !parms.onServer && queries.deviceProperties(mount).removable;
  const bool fat = isOneOf(mount.fsType, {"vfat", "msdos"});
  parms.largeFiles = !fat;
  parms.symbolicLinks = !fat && mount.fsType != "exfat";
  parms.acls = !fat && mount.fsType != "exfat" && !hasMountOption(mount.options, "noacl");
  parms.caseSensitive = !fat && !isOneOf(mount.fsType, {"exfat", "ntfs", "ntfs3", "fuseblk"});
  parms.nameLengthLimit = located->stats.nameMax;
  parms.mountInfo = serverMountInfo(mount);
  parms.url = serverURL(mount);
  return parms;
}

std::optional<VolumeInfo> getInfoForVolume(const VolumeQueries& queries, const std::string& path) {
  const auto located = locate(queries, path);
  if (!located) return std::nullopt;
  const MountEntry& mount = located->mount;
  const FileSystemStats& stats = located->stats;
  VolumeInfo info;
  std::optional<std::string> label;
  if (!isNetworkFileSystem(mount.fsType)) label = queries.deviceProperties(mount).label;
  info.name = label && !label->empty() ? *label : lastComponent(mount.mountPoint);
  info.rootPath = mount.mountPoint;
  if (auto born = queries.birthTime(mount.mountPoint)) info.creationDate = utcDateTimeFromKernelTime(*born);
  info.blockSize = stats.blockSize;
  info.fileSystemID = static_cast<std::uint16_t>(stats.type >> 16);
  info.signature = static_cast<std::uint16_t>(stats.type & 0xFFFF);
  info.totalBytes = stats.totalBlocks * stats.fragmentSize;
  info.freeBytes = stats.freeBlocks * stats.fragmentSize;
  return info;
}

std::optional<MountFlags> statfsPath(const VolumeQueries& queries, const std::string& path) {
  const auto located = locate(queries, path);
  if (!located) return std::nullopt;
  return MountFlags{located->stats.noSuid || keepsNoOwnership(located->mount), located->stats.readOnly};
}

std::map<std::string, std::string> getDetailedDiskInformation(const VolumeQueries& queries, const std::string& path) {
  std::map<std::string, std::string> description;
  const auto located = locate(queries, path);
  if (!located || isNetworkFileSystem(located->mount.fsType)) return description;
  const DeviceProperties device = queries.deviceProperties(located->mount);
  if (device.model) description["DADeviceModel"] = *device.model;
  if (device.bus) description["DADeviceProtocol"] = *device.bus;
  if (device.uuid) description["DAVolumeUUID"] = *device.uuid;
  return description;
}

std::string fileSystemFormatStringForNSPath(const VolumeQueries& queries, const std::string& path) {
  const auto located = locate(queries, path);
  return located ? located->mount.fsType : std::string();
}

}  // namespace halyard
