// The machine's volumes: the mount table from /proc/self/mountinfo, where
// a path is mounted from statx (STATX_MNT_ID), file-system statistics from
// statfs/statvfs, the root folder's birth time from statx, and the device's
// identity facts from udev, libblkid, the mounted file system and sysfs
// (device_facts_linux.cpp).

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

#include "foundation/file_io.h"
#include "foundation/unique_handle.h"
#include "volumes/device_facts.h"
#include "volumes/mount_table.h"

namespace halyard {
namespace {

// The device number of a block-device source; 0 for any other source
// ("tmpfs", "server:/export", a file).
std::uint64_t blockDeviceOf(const std::string& source) {
  struct stat info {};
  if (source.empty() || source.front() != '/' || ::stat(source.c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) {
    return 0;
  }
  return static_cast<std::uint64_t>(info.st_rdev);
}

class LinuxVolumeQueries final : public VolumeQueries {
 public:
  explicit LinuxVolumeQueries(DeviceFactSources sources) : sources_(std::move(sources)) {}

  std::vector<MountEntry> mountTable() const override {
    auto text = readWholeFile("/proc/self/mountinfo");
    if (!text) return {};
    std::vector<MountEntry> entries = parseMountTable(*text);
    for (MountEntry& entry : entries) {
      entry.sourceDevice = blockDeviceOf(entry.source);
      entry.sourceIsBlockDevice = entry.sourceDevice != 0;
    }
    return entries;
  }

  std::optional<PathPlace> placeOf(const std::string& path) const override {
    char resolved[PATH_MAX];
    if (!::realpath(path.c_str(), resolved)) return std::nullopt;
    PathPlace place{std::nullopt, resolved};
    struct statx info {};
    if (::statx(AT_FDCWD, resolved, 0, STATX_MNT_ID, &info) == 0 && (info.stx_mask & STATX_MNT_ID)) {
      place.mountID = info.stx_mnt_id;
    }
    return place;
  }

  int pathStatus(const std::string& path) const override {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? 0 : errno;
  }

  std::optional<std::uint64_t> deviceOf(const std::string& path) const override {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(info.st_dev);
  }

  std::optional<FileSystemStats> fileSystemStats(const std::string& path) const override {
    struct statfs fs {};
    struct statvfs vfs {};
    if (::statfs(path.c_str(), &fs) != 0 || ::statvfs(path.c_str(), &vfs) != 0) return std::nullopt;
    FileSystemStats stats;
    stats.type = static_cast<std::uint32_t>(fs.f_type);
    stats.blockSize = static_cast<std::uint32_t>(vfs.f_bsize);
    stats.nameMax = static_cast<std::uint32_t>(vfs.f_namemax);
    stats.totalBlocks = vfs.f_blocks;
    stats.freeBlocks = vfs.f_bfree;
    stats.fragmentSize = vfs.f_frsize;
    stats.readOnly = (vfs.f_flag & ST_RDONLY) != 0;
    stats.noSuid = (vfs.f_flag & ST_NOSUID) != 0;
    return stats;
  }

  std::optional<KernelTime> birthTime(const std::string& path) const override {
    struct statx info {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &info) != 0 || !(info.stx_mask & STATX_BTIME)) {
      return std::nullopt;
    }
    // Some file systems report the epoch itself when they keep no birth time.
    if (info.stx_btime.tv_sec == 0 && info.stx_btime.tv_nsec == 0) return std::nullopt;
    return KernelTime{info.stx_btime.tv_sec, info.stx_btime.tv_nsec};
  }

  // Without udev's record the superblock is read from the device node, which
  // only root may read; the mounted file system tells anyone its label.
  DeviceProperties deviceProperties(const MountEntry& mount) const override {
    if (!mount.sourceIsBlockDevice) return {};
    DeviceProperties facts = readDeviceFacts(mount.source, mount.sourceDevice, sources_);
    if (!facts.label) facts.label = labelOfMountedFileSystem(mount.mountPoint);
    return facts;
  }

  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override {
    const UniqueHandle<CPointer<DIR, ::closedir>> folder(::opendir(path.c_str()));
    if (!folder) return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(folder.get())) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    return names;
  }

  std::optional<std::uint64_t> fileNumber(const std::string& path) const override {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(info.st_ino);
  }

  std::string defaultUserPath() const override {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    const passwd* user = ::getpwuid(::getuid());
    return user && user->pw_dir ? user->pw_dir : "/";
  }

 private:
  DeviceFactSources sources_;
};

}  // namespace

std::shared_ptr<const VolumeQueries> linuxVolumeQueries() {
  static const auto queries = linuxVolumeQueriesWith({systemUdevDatabase()});
  return queries;
}

std::shared_ptr<const VolumeQueries> linuxVolumeQueriesWith(DeviceFactSources sources) {
  return std::make_shared<const LinuxVolumeQueries>(std::move(sources));
}

}  // namespace halyard
