#include "volumes/volume_mounts.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "volumes/mount_table.h"

namespace halyard {
namespace {

struct NetworkType {
  std::string_view fsType;
  std::uint32_t media;
};

constexpr std::array<NetworkType, 10> kNetworkTypes{{
    {"nfs", fourCharCode("nfs ")},
    {"nfs4", fourCharCode("nfs ")},
    {"cifs", fourCharCode("smbf")},
    {"smb3", fourCharCode("smbf")},
    {"fuse.sshfs", fourCharCode("sshf")},
    {"davfs", fourCharCode("davf")},
    {"9p", fourCharCode("9p  ")},
    {"afs", fourCharCode("afs ")},
    {"ceph", fourCharCode("ceph")},
    {"glusterfs", fourCharCode("glfs")},
}};

const NetworkType* networkType(std::string_view fsType) {
  for (const NetworkType& type : kNetworkTypes) {
    if (type.fsType == fsType) return &type;
  }
  return nullptr;
}

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

void appendHost16(std::string& out, std::uint16_t v) { out.append(reinterpret_cast<const char*>(&v), sizeof v); }

void appendHost32(std::string& out, std::uint32_t v) { out.append(reinterpret_cast<const char*>(&v), sizeof v); }

// "host:/path" (nfs) or "user@host:path" (sshfs) as authority and path.
std::optional<std::pair<std::string, std::string>> splitHostPath(std::string_view source) {
  const std::size_t colon = source.find(':');
  if (colon == std::string_view::npos || colon == 0) return std::nullopt;
  std::string path(source.substr(colon + 1));
  if (path.empty() || path.front() != '/') path.insert(path.begin(), '/');
  return std::make_pair(std::string(source.substr(0, colon)), path);
}

}  // namespace

bool isNetworkFileSystem(std::string_view fsType) { return networkType(fsType) != nullptr; }

MountKind kindOfMount(const MountEntry& mount) {
  if (mount.sourceIsBlockDevice && (mount.fsType == "squashfs" || mount.fsType == "erofs") &&
      startsWith(mount.source, "/dev/loop")) {
    return MountKind::DiskImage;
  }
  if (mount.sourceIsBlockDevice || isNetworkFileSystem(mount.fsType)) return MountKind::Volume;
  return MountKind::PseudoFileSystem;
}

// btrfs names the subvolume a mount shows in its options; a bind mount of a
// folder inside it names the same subvolume with another root.
std::string volumeRootOf(const MountEntry& mount) {
  if (mount.fsType != "btrfs") return "/";
  std::string_view options = mount.options;
  while (!options.empty()) {
    const std::size_t comma = std::min(options.find(','), options.size());
    if (startsWith(options.substr(0, comma), "subvol=")) return std::string(options.substr(7, comma - 7));
    options.remove_prefix(std::min(comma + 1, options.size()));
  }
  return "/";
}

namespace {

bool isSameVolume(const MountEntry& a, const MountEntry& b) {
  return a.device == b.device && volumeRootOf(a) == volumeRootOf(b);
}

}  // namespace

const MountEntry& canonicalMount(const std::vector<MountEntry>& table, const MountEntry& mount) {
  const std::string root = volumeRootOf(mount);
  const MountEntry* first = nullptr;
  for (const MountEntry& entry : table) {
    if (!isSameVolume(entry, mount)) continue;
    if (entry.root == root) return entry;
    if (!first) first = &entry;
  }
  return first ? *first : mount;
}

std::vector<MountEntry> localVolumeMounts(const std::vector<MountEntry>& table) {
  const std::vector<MountEntry> reachable = mountsInReach(table);
  std::vector<MountEntry> volumes;
  std::set<std::pair<std::uint64_t, std::string>> seen;
  for (const MountEntry& entry : reachable) {
    if (kindOfMount(entry) != MountKind::Volume) continue;
    if (!seen.emplace(entry.device, volumeRootOf(entry)).second) continue;
    volumes.push_back(canonicalMount(reachable, entry));
  }
  std::stable_partition(volumes.begin(), volumes.end(), [](const MountEntry& e) { return e.mountPoint == "/"; });
  return volumes;
}

std::vector<std::string> mountedLocalVolumePaths(const VolumeQueries& queries) {
  std::vector<std::string> paths;
  for (const MountEntry& entry : localVolumeMounts(queries.mountTable())) paths.push_back(entry.mountPoint);
  return paths;
}

std::vector<MountEntry> newlyMountedVolumes(const std::vector<MountEntry>& previous,
                                            const std::vector<MountEntry>& current) {
  std::vector<MountEntry> appeared;
  for (const MountEntry& entry : current) {
    const bool known =
        std::any_of(previous.begin(), previous.end(), [&](const MountEntry& old) { return isSameVolume(old, entry); });
    if (!known) appeared.push_back(entry);
  }
  return appeared;
}

bool hasMountOption(std::string_view options, std::string_view option) {
  std::size_t start = 0;
  while (start <= options.size()) {
    const std::size_t end = std::min(options.find(',', start), options.size());
    if (options.substr(start, end - start) == option) return true;
    start = end + 1;
  }
  return false;
}

std::optional<std::string> serverMountInfo(const MountEntry& mount) {
  const NetworkType* type = networkType(mount.fsType);
  if (!type) return std::nullopt;
  std::string tail;
  for (const std::string* part : {&mount.source, &mount.fsType, &mount.options}) {
    tail += *part;
    tail.push_back('\0');
  }
  constexpr std::size_t kHeader = 8;
  const std::size_t length = std::min<std::size_t>(kHeader + tail.size(), 0xFFFF);
  std::string block;
  appendHost16(block, static_cast<std::uint16_t>(length));
  appendHost32(block, type->media);
  appendHost16(block, 0);
  block += tail.substr(0, length - kHeader);
  return block;
}

std::optional<std::string> serverURL(const MountEntry& mount) {
  const std::string_view type = mount.fsType;
  const std::string_view source = mount.source;
  if (type == "nfs" || type == "nfs4" || type == "fuse.sshfs") {
    auto parts = splitHostPath(source);
    if (!parts) return std::nullopt;
    return std::string(type == "fuse.sshfs" ? "sftp://" : "nfs://") + parts->first + parts->second;
  }
  if ((type == "cifs" || type == "smb3") && startsWith(source, "//")) return "smb:" + std::string(source);
  if (type == "davfs" && startsWith(source, "https://")) return "davs://" + std::string(source.substr(8));
  if (type == "davfs" && startsWith(source, "http://")) return "dav://" + std::string(source.substr(7));
  return std::nullopt;
}

}  // namespace halyard
