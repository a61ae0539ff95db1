#pragma once
// VolumeQueries: what the volume records and the document alias ask of the
// machine. The mount table, where a path is mounted, file-system statistics,
// the birth time of a volume's root folder, the identity facts of a block
// device, and the two small file queries of the case test. The Linux answer
// (volume_queries_linux.cpp) reads /proc/self/mountinfo, statx,
// statfs/statvfs, libblkid, sysfs and the udev database; FakeVolumeQueries
// describes a machine in data for the logic tests.
//
// This interface and its Linux answer are the machine layer
// (halyard_volume_machine): it depends on nothing above foundation, so the
// file services use it for the document alias, and the file manager carries a
// VolumeQueries so that the volume records reach the machine through it.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace halyard {

// One mount of the kernel's mount table.
struct MountEntry {
  std::string source;        // "/dev/sda1", "server:/export", "tmpfs"
  std::string mountPoint;    // where it is mounted
  std::string fsType;        // "ext4", "nfs4", "tmpfs"
  std::string options;       // the mount's and the file system's options, comma-separated
  std::string root;          // folder of the file system mounted there ("/" unless a bind of a subfolder)
  std::uint64_t device = 0;  // the file system's device number in the table (not always a path's st_dev)
  bool sourceIsBlockDevice = false;
  std::uint64_t mountID = 0;       // the table's first field; statx STATX_MNT_ID of the paths under it
  std::uint64_t parentID = 0;      // the mount it was mounted on (the table's second field)
  std::uint64_t sourceDevice = 0;  // the source block device's own number (st_rdev), 0 when none
};

// Where an existing path is mounted: the mount ID the kernel gives it
// (absent on kernels without STATX_MNT_ID), and the path with links and dots
// resolved, for finding its mount by the longest mount-point prefix.
struct PathPlace {
  std::optional<std::uint64_t> mountID;
  std::string resolvedPath;
};

// What statfs and statvfs tell of the file system that holds a path.
struct FileSystemStats {
  std::uint32_t type = 0;       // statfs f_type
  std::uint32_t blockSize = 0;  // f_bsize
  std::uint32_t nameMax = 0;    // f_namemax
  std::uint64_t totalBlocks = 0;
  std::uint64_t freeBlocks = 0;
  std::uint64_t fragmentSize = 0;  // f_frsize: the unit of the block counts
  bool readOnly = false;           // ST_RDONLY
  bool noSuid = false;             // ST_NOSUID
};

// An instant as the kernel gives it: seconds and nanoseconds since 1970.
struct KernelTime {
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;
};

// The identity facts of a block device, the same whether or not a udev
// database exists; every field is absent when unknown.
struct DeviceProperties {
  std::optional<std::string> label;  // the raw label ("My Backup"), never udev's mangled ID_FS_LABEL
  std::optional<std::string> uuid;   // the file system's UUID
  std::optional<std::string> model;  // the disk's model, from sysfs
  std::optional<std::string> bus;    // "usb", "ata", "nvme", "scsi", ... from the disk's sysfs ancestry
  bool removable = false;            // sysfs "removable" of the disk, or bus usb
  bool operator==(const DeviceProperties&) const = default;
};

class VolumeQueries {
 public:
  virtual ~VolumeQueries() = default;

  // The mount table in the kernel's order (parents before children).
  virtual std::vector<MountEntry> mountTable() const = 0;
  // Where an existing path is mounted; absent when it does not exist.
  virtual std::optional<PathPlace> placeOf(const std::string& path) const = 0;
  // 0 when a path can be reached, else the errno stat(2) answers for it
  // (ENOENT, EACCES, EIO, ...): the status a failed volume call reports.
  virtual int pathStatus(const std::string& path) const = 0;
  // st_dev of an existing path. On btrfs and overlayfs it is not the mount
  // table's device number, so it never tells which mount holds a path.
  virtual std::optional<std::uint64_t> deviceOf(const std::string& path) const = 0;
  virtual std::optional<FileSystemStats> fileSystemStats(const std::string& path) const = 0;
  // The birth time of a folder, when the file system records it.
  virtual std::optional<KernelTime> birthTime(const std::string& path) const = 0;
  // The identity facts of the mount's source device (none unless it is a
  // block device).
  virtual DeviceProperties deviceProperties(const MountEntry& mount) const = 0;
  // The names in a folder (without "." and ".."), absent when it cannot be read.
  virtual std::optional<std::vector<std::string>> listDirectory(const std::string& path) const = 0;
  // The file number (inode) of a path, links not followed.
  virtual std::optional<std::uint64_t> fileNumber(const std::string& path) const = 0;
  // The user's home folder.
  virtual std::string defaultUserPath() const = 0;
};

// The machine's own queries (volume_queries_linux.cpp).
std::shared_ptr<const VolumeQueries> linuxVolumeQueries();

}  // namespace halyard
