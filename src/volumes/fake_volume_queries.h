#pragma once
// FakeVolumeQueries: a machine's volumes described in data, for the tests of
// the volume logic. Each volume is one mount with its file-system statistics,
// root birth time and device properties; `files` gives the paths that exist
// beside the mount points, with their file numbers (folders are the parents
// of the files listed). The volumes are mounted in the list's order, as the
// kernel mounts: each on the mount its mount point reached then, so that a
// later one at the same point or at a folder above covers it. A path belongs
// to the last volume whose mount point holds it (the one in reach); its
// st_dev can be told to differ from the mount table's device number, as
// btrfs and overlayfs do. Mounts without a mount ID get one from their place
// in the list. It counts how often the mount table is read, so that a test
// can tell whether a check looked at the machine.
//
//   auto machine = std::make_shared<FakeVolumeQueries>();
//   machine->volumes.push_back({.mount = {.source = "/dev/sdb1", .mountPoint = "/media/u/Backup", ...}});

#include <atomic>
#include <map>

#include "volumes/volume_queries.h"

namespace halyard {

// One volume of the fake machine: its mount and what the machine tells of it.
struct FakeVolume {
  MountEntry mount;
  FileSystemStats stats;
  std::optional<KernelTime> birth;
  DeviceProperties device;
  std::optional<std::uint64_t> pathDevice;  // st_dev of its paths, when not the table's number
};

// An ext4 volume on /dev/sd<device>, labelled `label`, mounted at `mountPoint`.
FakeVolume fakeVolume(const std::string& label, std::uint64_t device, const std::string& mountPoint);

class FakeVolumeQueries final : public VolumeQueries {
 public:
  std::vector<FakeVolume> volumes;
  std::map<std::string, std::uint64_t> files;
  std::string home = "/home/user";
  mutable std::atomic<int> mountTableReads{0};

  std::vector<MountEntry> mountTable() const override;
  std::optional<PathPlace> placeOf(const std::string& path) const override;
  int pathStatus(const std::string& path) const override;
  std::optional<std::uint64_t> deviceOf(const std::string& path) const override;
  std::optional<FileSystemStats> fileSystemStats(const std::string& path) const override;
  std::optional<KernelTime> birthTime(const std::string& path) const override;
  DeviceProperties deviceProperties(const MountEntry& mount) const override;
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override;
  std::optional<std::uint64_t> fileNumber(const std::string& path) const override;
  std::string defaultUserPath() const override { return home; }

 private:
  std::vector<MountEntry> table() const;
  bool exists(const std::string& path) const;
  const FakeVolume* volumeOfDevice(std::uint64_t device) const;
  const FakeVolume* holderOf(const std::string& path) const;
  const FakeVolume* lastHolderBefore(std::size_t end, const std::string& path) const;
  std::uint64_t mountIDOf(const FakeVolume& volume) const;
};

}  // namespace halyard
