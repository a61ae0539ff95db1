// The machine's volumes: the mount table from libmount, file-system
// statistics from statfs/statvfs, the root folder's birth time from statx,
// and the device's identity from udev, with libblkid probing the device for
// its label and UUID where udev keeps nothing (no udev daemon, loop devices).

#include <blkid/blkid.h>
#include <dirent.h>
#include <fcntl.h>
#include <libmount/libmount.h>
#include <libudev.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "volumes/volume_queries.h"

namespace halyard {
namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const {
    if (p) Free(p);
  }
};

void unrefUdev(udev* u) { udev_unref(u); }
void unrefUdevDevice(udev_device* d) { udev_device_unref(d); }
using UdevPtr = std::unique_ptr<udev, Deleter<udev, unrefUdev>>;
using UdevDevicePtr = std::unique_ptr<udev_device, Deleter<udev_device, unrefUdevDevice>>;
using TablePtr = std::unique_ptr<libmnt_table, Deleter<libmnt_table, mnt_unref_table>>;
using IterPtr = std::unique_ptr<libmnt_iter, Deleter<libmnt_iter, mnt_free_iter>>;
using ProbePtr = std::unique_ptr<blkid_struct_probe, Deleter<blkid_struct_probe, blkid_free_probe>>;

std::string textOr(const char* text, const char* fallback = "") { return text ? text : fallback; }

std::optional<std::string> property(udev_device* device, const char* key) {
  const char* value = udev_device_get_property_value(device, key);
  if (!value || !*value) return std::nullopt;
  return std::string(value);
}

bool isBlockDevice(const std::string& source) {
  struct stat info {};
  return !source.empty() && source.front() == '/' && ::stat(source.c_str(), &info) == 0 && S_ISBLK(info.st_mode);
}

// The disk that holds a device (the device itself when it is a whole disk).
bool diskIsRemovable(udev_device* device) {
  udev_device* disk = device;
  const char* type = udev_device_get_devtype(device);
  if (!type || std::string(type) != "disk") {
    disk = udev_device_get_parent_with_subsystem_devtype(device, "block", "disk");
  }
  if (!disk) return false;
  const char* removable = udev_device_get_sysattr_value(disk, "removable");
  return removable && std::string(removable) == "1";
}

void fillFromUdev(const MountEntry& mount, DeviceProperties& properties) {
  UdevPtr context(udev_new());
  if (!context) return;
  UdevDevicePtr device(udev_device_new_from_devnum(context.get(), 'b', static_cast<dev_t>(mount.device)));
  if (!device) return;
  properties.label = property(device.get(), "ID_FS_LABEL");
  properties.uuid = property(device.get(), "ID_FS_UUID");
  properties.model = property(device.get(), "ID_MODEL");
  properties.bus = property(device.get(), "ID_BUS");
  properties.removable = diskIsRemovable(device.get()) || properties.bus == "usb";
}

// The label and UUID written in the file system's superblock.
void fillFromBlkid(const MountEntry& mount, DeviceProperties& properties) {
  ProbePtr probe(blkid_new_probe_from_filename(mount.source.c_str()));
  if (!probe) return;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID);
  if (blkid_do_safeprobe(probe.get()) != 0) return;
  const char* value = nullptr;
  if (!properties.label && blkid_probe_lookup_value(probe.get(), "LABEL", &value, nullptr) == 0) {
    properties.label = value;
  }
  if (!properties.uuid && blkid_probe_lookup_value(probe.get(), "UUID", &value, nullptr) == 0) {
    properties.uuid = value;
  }
}

class LinuxVolumeQueries final : public VolumeQueries {
 public:
  std::vector<MountEntry> mountTable() const override {
    std::vector<MountEntry> entries;
    TablePtr table(mnt_new_table_from_file("/proc/self/mountinfo"));
    IterPtr iter(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iter) return entries;
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table.get(), iter.get(), &fs) == 0) {
      MountEntry entry;
      entry.source = textOr(mnt_fs_get_source(fs));
      entry.mountPoint = textOr(mnt_fs_get_target(fs));
      entry.fsType = textOr(mnt_fs_get_fstype(fs));
      entry.options = textOr(mnt_fs_get_options(fs));
      entry.root = textOr(mnt_fs_get_root(fs), "/");
      entry.device = mnt_fs_get_devno(fs);
      entry.sourceIsBlockDevice = isBlockDevice(entry.source);
      entries.push_back(std::move(entry));
    }
    return entries;
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

  DeviceProperties deviceProperties(const MountEntry& mount) const override {
    DeviceProperties properties;
    if (!mount.sourceIsBlockDevice) return properties;
    fillFromUdev(mount, properties);
    if (!properties.label || !properties.uuid) fillFromBlkid(mount, properties);
    return properties;
  }

  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override {
    DIR* folder = ::opendir(path.c_str());
    if (!folder) return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(folder)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(folder);
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
};

}  // namespace

std::shared_ptr<const VolumeQueries> linuxVolumeQueries() {
  static const auto queries = std::make_shared<const LinuxVolumeQueries>();
  return queries;
}

}  // namespace halyard
