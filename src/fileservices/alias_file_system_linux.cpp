// The Linux file system as a document alias sees it: inodes from stat(2),
// volumes from /proc/self/mountinfo, UUIDs from the udev links in
// /dev/disk/by-uuid (each names a block device by its file-system UUID).

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <climits>
#include <cstdlib>

#include "fileservices/alias_file_system.h"
#include "foundation/file_io.h"

namespace halyard {
namespace {

constexpr const char* kByUUID = "/dev/disk/by-uuid";

bool isUnder(const std::string& path, const std::string& folder) {
  if (folder == "/") return true;
  return path.compare(0, folder.size(), folder) == 0 && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::vector<MountInfoEntry> mountTable() {
  auto text = readWholeFile("/proc/self/mountinfo");
  return text ? parseMountInfo(*text) : std::vector<MountInfoEntry>();
}

std::optional<std::string> uuidOfDevice(dev_t device) {
  DIR* folder = ::opendir(kByUUID);
  if (!folder) return std::nullopt;
  std::optional<std::string> uuid;
  while (const dirent* entry = ::readdir(folder)) {
    struct stat info {};
    const std::string link = std::string(kByUUID) + "/" + entry->d_name;
    if (entry->d_name[0] != '.' && ::stat(link.c_str(), &info) == 0 && S_ISBLK(info.st_mode) &&
        info.st_rdev == device) {
      uuid = entry->d_name;
      break;
    }
  }
  ::closedir(folder);
  return uuid;
}

class LinuxAliasFileSystem final : public AliasFileSystem {
 public:
  std::optional<std::uint64_t> inodeOf(const std::string& path) const override {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(info.st_ino);
  }

  // The mount of the path's device whose mount point holds the path most
  // closely (bind mounts repeat a device at several places).
  std::optional<AliasVolume> volumeOf(const std::string& path) const override {
    char resolved[PATH_MAX];
    struct stat info {};
    if (!::realpath(path.c_str(), resolved) || ::stat(resolved, &info) != 0) return std::nullopt;
    const std::string real(resolved);
    const MountInfoEntry* best = nullptr;
    const auto table = mountTable();
    for (const MountInfoEntry& entry : table) {
      if (makedev(entry.major, entry.minor) != info.st_dev || !isUnder(real, entry.mountPoint)) continue;
      if (!best || entry.mountPoint.size() > best->mountPoint.size()) best = &entry;
    }
    if (!best) return std::nullopt;
    std::string relative = real.substr(std::min(real.size(), best->mountPoint.size()));
    if (!relative.empty() && relative[0] == '/') relative.erase(0, 1);
    return AliasVolume{best->mountPoint, uuidOfDevice(info.st_dev), relative};
  }

  std::optional<std::string> mountPointOf(const std::string& uuid) const override {
    struct stat info {};
    const std::string link = std::string(kByUUID) + "/" + uuid;
    if (::stat(link.c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) return std::nullopt;
    for (const MountInfoEntry& entry : mountTable()) {
      if (makedev(entry.major, entry.minor) == info.st_rdev && entry.root == "/") return entry.mountPoint;
    }
    return std::nullopt;
  }
};

}  // namespace

const AliasFileSystem& systemAliasFileSystem() {
  static const LinuxAliasFileSystem fileSystem;
  return fileSystem;
}

}  // namespace halyard
