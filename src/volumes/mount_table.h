#pragma once
// The kernel's mount table as data: /proc/self/mountinfo parsed into
// MountEntry values, and the one rule by which a path is tied to its mount.
// A path's mount is the mount whose ID the kernel gives the path (statx
// STATX_MNT_ID against the table's first field); where the kernel gives no
// ID, the mount with the longest mount point that holds the resolved path.
// Device numbers never decide: btrfs subvolumes and overlayfs give paths
// device numbers that no line of the table shows.
//
//   auto table = parseMountTable(*readWholeFile("/proc/self/mountinfo"));
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

// The mount that holds a path, null when none does.
const MountEntry* mountHolding(const std::vector<MountEntry>& table, const PathPlace& place);

// Whether `path` is `folder` or lies below it (both absolute and resolved).
bool isWithinFolder(std::string_view path, std::string_view folder);

}  // namespace halyard
