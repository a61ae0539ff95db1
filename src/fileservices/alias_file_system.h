#pragma once
// AliasFileSystem: what a document alias needs to know of the file system:
// a file's inode, the volume that holds it (its mount and UUID), and where a
// volume is reachable now. The Linux answer reads the machine through the
// volume machine layer (alias_file_system_linux.cpp), which ties a path to
// its mount by mount ID; tests give a fake.

#include <cstdint>
#include <optional>
#include <string>

namespace halyard::fileservices {

// The volume that holds a path: its mount point, its file system's UUID,
// and the path (links resolved) below the top of that file system, without
// a leading slash. Below the top, not below the mount point: a bind mount of
// a folder or a btrfs subvolume shows only part of its file system.
struct AliasVolume {
  std::string mountPoint;
  std::optional<std::string> uuid;
  std::string relativePath;
};

class AliasFileSystem {
 public:
  virtual ~AliasFileSystem() = default;
  // The inode of an existing file or folder (links followed), else absent.
  virtual std::optional<std::uint64_t> inodeOf(const std::string& path) const = 0;
  // The volume that holds an existing absolute path, else absent.
  virtual std::optional<AliasVolume> volumeOf(const std::string& path) const = 0;
  // Where `relativePath` below the top of the file system with this UUID is
  // reachable now (the item itself may be missing), absent when no mount of
  // that file system shows it.
  virtual std::optional<std::string> pathOnVolume(const std::string& uuid, const std::string& relativePath) const = 0;
};

// The machine's own file system.
const AliasFileSystem& systemAliasFileSystem();

}  // namespace halyard::fileservices
