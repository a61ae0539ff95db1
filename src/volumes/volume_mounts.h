#pragma once
// The mount table read as volumes: which mounts are volumes a user would call
// mounted (block devices and network file systems, never pseudo file systems
// or the read-only images that packaging systems loop-mount), which mount
// stands for a volume that is mounted at several places (bind mounts are one
// volume; a btrfs subvolume mounted on its own is a volume of its own), and
// what a network mount looks like as a mount-info block and a URL. Pure
// functions over MountEntry lists.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "volumes/volume_queries.h"

namespace halyard {

bool isNetworkFileSystem(std::string_view fsType);

// Why a mount is or is not a volume.
enum class MountKind {
  Volume,            // a block device or a network file system
  PseudoFileSystem,  // proc, tmpfs, overlay, ...: no device behind it
  DiskImage,         // a squashfs or erofs image on a loop device (snaps, app images)
};
MountKind kindOfMount(const MountEntry& mount);

// The folder of the file system that the mount's volume is: "/" for a whole
// file system, the subvolume for a btrfs subvolume ("subvol=/@home").
std::string volumeRootOf(const MountEntry& mount);

// The mounts that are volumes, each volume once (at its first mount point
// in reach), the root folder first, then in the table's order. Mounts that a
// later mount covers are left out (mountsInReach).
std::vector<MountEntry> localVolumeMounts(const std::vector<MountEntry>& table);

// The mount points of localVolumeMounts.
std::vector<std::string> mountedLocalVolumePaths(const VolumeQueries& queries);

// The mount that stands for the volume `mount` shows: the volume's first
// mount of its whole root, else its first mount (`mount` itself when the
// table does not hold it). `table` is in reach (mountsInReach): a covered
// mount of the volume shows another volume at its mount point.
const MountEntry& canonicalMount(const std::vector<MountEntry>& table, const MountEntry& mount);

// The volumes of `current` that were mounted nowhere in `previous`, both
// lists of localVolumeMounts. A volume is told by its device and subvolume,
// never by its mount point: one of its mounts going away, or moving, leaves
// it mounted; a mount point that now holds another file system is new.
std::vector<MountEntry> newlyMountedVolumes(const std::vector<MountEntry>& previous,
                                            const std::vector<MountEntry>& current);

// Whether a comma-separated option list holds `option` exactly.
bool hasMountOption(std::string_view options, std::string_view option);

// Four-character codes as 32-bit numbers ('afpm' = 0x6166706D).
constexpr std::uint32_t fourCharCode(const char (&code)[5]) {
  return (static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) << 24) |
         (static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 16) |
         (static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 8) |
         static_cast<std::uint32_t>(static_cast<unsigned char>(code[3]));
}

// The mount-info block of a network mount, in host byte order: a 16-bit
// length, the 32-bit media type ('nfs ', 'smbf', 'sshf', 'davf', ...), a
// 16-bit flags word (0), then the source, type and options, each followed by
// a NUL. Absent for a file system that is not a network one.
std::optional<std::string> serverMountInfo(const MountEntry& mount);

// The URL a network mount was made from (nfs://, smb://, sftp://, davs://),
// absent when the source does not say.
std::optional<std::string> serverURL(const MountEntry& mount);

}  // namespace halyard
