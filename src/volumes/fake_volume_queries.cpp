#include "volumes/fake_volume_queries.h"

#include <cerrno>

#include "volumes/mount_table.h"

namespace halyard {
namespace {

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return "";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

}  // namespace

FakeVolume fakeVolume(const std::string& label, std::uint64_t device, const std::string& mountPoint) {
  FakeVolume v;
  v.mount = {.source = "/dev/sd" + std::to_string(device),
             .mountPoint = mountPoint,
             .fsType = "ext4",
             .options = "rw",
             .root = "/",
             .device = device,
             .sourceIsBlockDevice = true};
  v.stats = {
      .type = 0xEF53, .blockSize = 4096, .nameMax = 255, .totalBlocks = 10, .freeBlocks = 5, .fragmentSize = 4096};
  v.birth = KernelTime{1600000000 + static_cast<std::int64_t>(device), 0};
  v.device.label = label;
  v.device.uuid = "uuid-" + label;
  return v;
}

std::vector<MountEntry> FakeVolumeQueries::mountTable() const {
  ++mountTableReads;
  return table();
}

std::vector<MountEntry> FakeVolumeQueries::table() const {
  std::vector<MountEntry> table;
  for (std::size_t i = 0; i < volumes.size(); ++i) {
    MountEntry entry = volumes[i].mount;
    entry.mountID = mountIDOf(volumes[i]);
    if (entry.parentID == 0) {
      const FakeVolume* parent = lastHolderBefore(i, entry.mountPoint);
      entry.parentID = parent ? mountIDOf(*parent) : 0;
    }
    table.push_back(std::move(entry));
  }
  return table;
}

// A later mount whose mount point holds an earlier one's covers it, so the
// last of the first `end` volumes whose mount point holds a path is the one
// the path leads into.
const FakeVolume* FakeVolumeQueries::lastHolderBefore(std::size_t end, const std::string& path) const {
  for (std::size_t i = end; i-- > 0;) {
    if (isWithinFolder(path, volumes[i].mount.mountPoint)) return &volumes[i];
  }
  return nullptr;
}

std::uint64_t FakeVolumeQueries::mountIDOf(const FakeVolume& volume) const {
  if (volume.mount.mountID != 0) return volume.mount.mountID;
  return 1000 + static_cast<std::uint64_t>(&volume - volumes.data());
}

bool FakeVolumeQueries::exists(const std::string& path) const {
  for (const FakeVolume& volume : volumes) {
    if (volume.mount.mountPoint == path) return true;
  }
  for (const auto& [file, number] : files) {
    if (file == path || parentOf(file) == path) return true;
  }
  return false;
}

const FakeVolume* FakeVolumeQueries::volumeOfDevice(std::uint64_t device) const {
  for (const FakeVolume& volume : volumes) {
    if (volume.mount.device == device) return &volume;
  }
  return nullptr;
}

const FakeVolume* FakeVolumeQueries::holderOf(const std::string& path) const {
  return exists(path) ? lastHolderBefore(volumes.size(), path) : nullptr;
}

std::optional<PathPlace> FakeVolumeQueries::placeOf(const std::string& path) const {
  const FakeVolume* holder = holderOf(path);
  if (!holder) return std::nullopt;
  return PathPlace{mountIDOf(*holder), path};
}

int FakeVolumeQueries::pathStatus(const std::string& path) const { return exists(path) ? 0 : ENOENT; }

std::optional<std::uint64_t> FakeVolumeQueries::deviceOf(const std::string& path) const {
  const FakeVolume* holder = holderOf(path);
  if (!holder) return std::nullopt;
  return holder->pathDevice.value_or(holder->mount.device);
}

std::optional<FileSystemStats> FakeVolumeQueries::fileSystemStats(const std::string& path) const {
  const FakeVolume* holder = holderOf(path);
  if (!holder) return std::nullopt;
  return holder->stats;
}

std::optional<KernelTime> FakeVolumeQueries::birthTime(const std::string& path) const {
  const FakeVolume* holder = holderOf(path);
  if (!holder || holder->mount.mountPoint != path) return std::nullopt;
  return holder->birth;
}

DeviceProperties FakeVolumeQueries::deviceProperties(const MountEntry& mount) const {
  const FakeVolume* volume = volumeOfDevice(mount.device);
  return volume ? volume->device : DeviceProperties{};
}

std::optional<std::vector<std::string>> FakeVolumeQueries::listDirectory(const std::string& path) const {
  if (!exists(path)) return std::nullopt;
  std::vector<std::string> names;
  for (const auto& [file, number] : files) {
    if (parentOf(file) == path) names.push_back(nameOf(file));
  }
  return names;
}

std::optional<std::uint64_t> FakeVolumeQueries::fileNumber(const std::string& path) const {
  const auto found = files.find(path);
  if (found == files.end()) return std::nullopt;
  return found->second;
}

}  // namespace halyard
