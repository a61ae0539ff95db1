#pragma once
// The kernel's mount table as data: /proc/self/mountinfo parsed into
// MountEntry values, and the one rule by which a path is tied to its mount.
// A path's mount is the mount whose ID the kernel gives the path (statx
// STATX_MNT_ID against the table's first field); where the kernel gives no
// ID, the mount with the longest mount point that holds the resolved path.
// Device numbers never decide: btrfs subvolumes and overlayfs give paths
// device numbers that no line of the table shows. A mount that a later mount
// covers (at its own mount point or at a folder above it) is out of reach:
// no path leads into it, so it is no place of any volume.
//
//   auto table = mountsInReach(parseMountTable(*readWholeFile("/proc/self/mountinfo")));
//   const MountEntry* mount = mountHolding(table, *queries.placeOf(path));

#include <string>
#include <string_view>
#include <vector>

#include "volumes/volume_queries.h"

namespace halyard {

// Parses mountinfo text. Lines that do not parse are skipped; the kernel's
// octal escapes (\040 for a space) are decoded. `sourceIsBlockDevice` and
// `sourceDevice` are left for the caller, who can ask the file system.
std::vector<MountEntry> parseMountTable(std::string_view text);

// Decodes the kernel's \ooo escapes of a mountinfo field.
std::string unescapeMountField(std::string_view field);

// The mounts of `table` that paths lead into, in the table's order. A mount
// E is out of reach when another mount F, not one E was mounted on, is
// mounted at E's mount point or at a folder above it, on E itself or on a
// mount E was mounted on (directly or further up): F came later and covers E.
std::vector<MountEntry> mountsInReach(const std::vector<MountEntry>& table);

// The mount that holds a path, null when none does; `table` is in reach
// (mountsInReach), so that without a mount ID no covered mount is taken.
const MountEntry* mountHolding(const std::vector<MountEntry>& table, const PathPlace& place);

// Whether `path` is `folder` or lies below it (both absolute and resolved).
bool isWithinFolder(std::string_view path, std::string_view folder);

}  // namespace halyard
