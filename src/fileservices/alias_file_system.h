#pragma once
// AliasFileSystem: what a document alias needs to know of the file system:
// a file's inode, the volume that holds it (mount point and UUID), and where
// a volume is mounted now. The Linux answer reads /proc/self/mountinfo and
// /dev/disk/by-uuid (alias_file_system_linux.cpp); tests give a fake.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard {

// The volume that holds a path, and the path (links resolved) below its
// mount point, without a leading slash.
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
  // Where the volume with this UUID is mounted now, if it is.
  virtual std::optional<std::string> mountPointOf(const std::string& uuid) const = 0;
};

// The machine's own file system.
const AliasFileSystem& systemAliasFileSystem();

// One line of /proc/self/mountinfo: the device, the folder of the file system
// that is mounted (its root), and where it is mounted.
struct MountInfoEntry {
  unsigned major = 0;
  unsigned minor = 0;
  std::string root;
  std::string mountPoint;
};

// Parses mountinfo text; lines that do not parse are skipped, and the octal
// escapes of the kernel (\040 for a space) are decoded.
std::vector<MountInfoEntry> parseMountInfo(std::string_view text);

}  // namespace halyard
