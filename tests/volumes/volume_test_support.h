#pragma once
// A fake machine for the volume tests: volumes described in data, a file
// manager that reaches them, and records made on it.

#include <memory>
#include <string>
#include <vector>

#include "fileservices/vt_file_manager.h"
#include "volumes/fake_volume_queries.h"
#include "volumes/volume_specifier.h"

namespace halyard::testing {

constexpr std::uint32_t kExt4 = 0xEF53;
constexpr std::uint32_t kVfat = 0x4D44;
constexpr std::uint32_t kHfsPlus = 0x482B;
constexpr std::uint32_t kNfs = 0x6969;

// An ext4 volume on a block device with a label, a UUID and a birth time.
inline FakeVolume diskVolume(std::string mountPoint, std::uint64_t device, std::string label = "Backup") {
  FakeVolume volume = fakeVolume(label, device, mountPoint);
  volume.mount.options = "rw,relatime";
  volume.stats.totalBlocks = 1000;
  volume.stats.freeBlocks = 250;
  volume.birth = KernelTime{1700000000, 0};
  volume.device = {.label = std::move(label), .uuid = "1111-2222", .model = "Disk", .bus = "usb", .removable = false};
  return volume;
}

inline std::shared_ptr<fileservices::VTFileManager> managerFor(std::shared_ptr<const VolumeQueries> machine) {
  auto manager = fileservices::VTFileManager::make();
  manager->setVolumeQueries(std::move(machine));
  return manager;
}

// A machine with the volumes given.
inline std::shared_ptr<FakeVolumeQueries> machineOf(std::vector<FakeVolume> volumes) {
  auto machine = std::make_shared<FakeVolumeQueries>();
  machine->volumes = std::move(volumes);
  return machine;
}

// The record of `path` as a file manager on `machine` makes it.
inline std::shared_ptr<VolumeSpecifier> recordOn(std::shared_ptr<const VolumeQueries> machine,
                                                 const std::string& path) {
  return VolumeSpecifier::volumeSpecifierWithPath(path, managerFor(std::move(machine)));
}

// Turns the debugging switch named on for the life of the object.
class SwitchOn {
 public:
  explicit SwitchOn(std::string key) {
    VolumeSpecifier::setPrivatePropertySource([key = std::move(key)](std::string_view k) { return k == key; });
  }
  ~SwitchOn() { VolumeSpecifier::setPrivatePropertySource(nullptr); }
};

}  // namespace halyard::testing
