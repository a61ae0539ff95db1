// The Linux file system as a document alias sees it: inodes from stat(2),
// a path's mount from its mount ID, and file-system UUIDs from the device
// facts of the volume machine layer (udev's record, else the superblock).

#include <sys/stat.h>

#include <map>

#include "fileservices/alias_file_system.h"
#include "volumes/mount_table.h"
#include "volumes/volume_mounts.h"

namespace halyard::fileservices {
namespace {

std::string withoutLeadingSlash(std::string path) {
  if (!path.empty() && path[0] == '/') path.erase(0, 1);
  return path;
}

std::string joinBelow(const std::string& folder, const std::string& below) {
  if (below.empty()) return folder;
  return folder == "/" ? "/" + below : folder + "/" + below;
}

// Pseudo file systems and network shares have no UUID to find them by.
std::optional<std::string> uuidOf(const VolumeQueries& machine, const MountEntry& mount) {
  if (!mount.sourceIsBlockDevice || kindOfMount(mount) != MountKind::Volume) return std::nullopt;
  return machine.deviceProperties(mount).uuid;
}

class LinuxAliasFileSystem final : public AliasFileSystem {
 public:
  std::optional<std::uint64_t> inodeOf(const std::string& path) const override {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(info.st_ino);
  }

  std::optional<AliasVolume> volumeOf(const std::string& path) const override {
    const auto place = machine_->placeOf(path);
    if (!place) return std::nullopt;
    const auto table = mountsInReach(machine_->mountTable());
    const MountEntry* mount = mountHolding(table, *place);
    if (!mount) return std::nullopt;
    const std::string below = withoutLeadingSlash(place->resolvedPath.substr(
        std::min(place->resolvedPath.size(), mount->mountPoint == "/" ? 0 : mount->mountPoint.size())));
    return AliasVolume{mount->mountPoint, uuidOf(*machine_, *mount),
                       withoutLeadingSlash(joinBelow(mount->root, below))};
  }

  std::optional<std::string> pathOnVolume(const std::string& uuid, const std::string& relativePath) const override {
    const std::string onTop = "/" + relativePath;
    std::map<std::uint64_t, std::optional<std::string>> uuids;
    for (const MountEntry& mount : mountsInReach(machine_->mountTable())) {
      if (!isWithinFolder(onTop, mount.root)) continue;
      auto known = uuids.find(mount.sourceDevice);
      if (known == uuids.end()) known = uuids.emplace(mount.sourceDevice, uuidOf(*machine_, mount)).first;
      if (known->second != uuid) continue;
      return joinBelow(mount.mountPoint, withoutLeadingSlash(onTop.substr(mount.root == "/" ? 0 : mount.root.size())));
    }
    return std::nullopt;
  }

 private:
  std::shared_ptr<const VolumeQueries> machine_ = linuxVolumeQueries();
};

}  // namespace

const AliasFileSystem& systemAliasFileSystem() {
  static const LinuxAliasFileSystem fileSystem;
  return fileSystem;
}

}  // namespace halyard::fileservices
