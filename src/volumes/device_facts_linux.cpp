// Device facts on Linux: the udev database through libudev, the superblock
// through libblkid, the label of a mounted file system through the file
// system itself, and the disk's model, bus and removability through sysfs
// (/sys/dev/block/MAJOR:MINOR leads to the device in the device tree).

#include <blkid/blkid.h>
#include <fcntl.h>
#include <libudev.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "foundation/file_io.h"
#include "foundation/unique_handle.h"
#include "volumes/device_facts.h"

namespace halyard {
namespace {

using UdevPtr = UniqueHandle<CPointer<udev, udev_unref>>;
using UdevDevicePtr = UniqueHandle<CPointer<udev_device, udev_device_unref>>;
using ProbePtr = UniqueHandle<CPointer<blkid_struct_probe, blkid_free_probe>>;

using Properties = std::map<std::string, std::string>;

class LibudevDatabase final : public UdevDatabase {
 public:
  // A device that udev has not processed has no record: its properties are
  // the kernel's uevent ones only, without any of udev's ID_ keys.
  std::optional<Properties> propertiesOf(std::uint64_t device) const override {
    UdevPtr context(udev_new());
    if (!context) return std::nullopt;
    UdevDevicePtr found(udev_device_new_from_devnum(context.get(), 'b', static_cast<dev_t>(device)));
    if (!found || !udev_device_get_is_initialized(found.get())) return std::nullopt;
    Properties properties;
    for (udev_list_entry* entry = udev_device_get_properties_list_entry(found.get()); entry;
         entry = udev_list_entry_get_next(entry)) {
      const char* value = udev_list_entry_get_value(entry);
      properties[udev_list_entry_get_name(entry)] = value ? value : "";
    }
    return properties;
  }
};

std::optional<std::string> nonEmpty(const Properties& properties, const char* key) {
  const auto found = properties.find(key);
  if (found == properties.end() || found->second.empty()) return std::nullopt;
  return found->second;
}

// udev keeps a file system's facts under ID_FS_*; a device it knows without
// them (not yet probed) says nothing about the label.
bool fillFromUdev(const UdevDatabase* udev, std::uint64_t device, DeviceProperties& facts) {
  const auto properties = udev ? udev->propertiesOf(device) : std::nullopt;
  if (!properties || (!nonEmpty(*properties, "ID_FS_UUID") && !nonEmpty(*properties, "ID_FS_TYPE"))) return false;
  if (auto encoded = nonEmpty(*properties, "ID_FS_LABEL_ENC")) facts.label = decodeUdevText(*encoded);
  facts.uuid = nonEmpty(*properties, "ID_FS_UUID");
  return true;
}

void fillFromSuperblock(const std::string& devicePath, DeviceProperties& facts) {
  ProbePtr probe(blkid_new_probe_from_filename(devicePath.c_str()));
  if (!probe) return;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID);
  if (blkid_do_safeprobe(probe.get()) != 0) return;
  const char* value = nullptr;
  if (blkid_probe_lookup_value(probe.get(), "LABEL", &value, nullptr) == 0 && *value) facts.label = value;
  if (blkid_probe_lookup_value(probe.get(), "UUID", &value, nullptr) == 0 && *value) facts.uuid = value;
}

std::optional<std::string> sysfsText(const std::filesystem::path& file) {
  auto text = readWholeFile(file.string());
  if (!text) return std::nullopt;
  std::string trimmed = trimmedText(*text);
  if (trimmed.empty()) return std::nullopt;
  return trimmed;
}

// The subsystems of a device's ancestors, nearest first, up to the root of
// the device tree.
std::vector<std::string> ancestorSubsystems(const std::filesystem::path& device, const std::filesystem::path& top) {
  std::vector<std::string> subsystems;
  std::error_code error;
  for (auto at = device; at.has_relative_path() && at != top; at = at.parent_path()) {
    const auto link = std::filesystem::read_symlink(at / "subsystem", error);
    if (!error) subsystems.push_back(link.filename().string());
  }
  return subsystems;
}

void fillFromSysfs(std::uint64_t device, const std::string& sysfsRoot, DeviceProperties& facts) {
  const dev_t number = static_cast<dev_t>(device);
  const std::string link =
      sysfsRoot + "/dev/block/" + std::to_string(major(number)) + ":" + std::to_string(minor(number));
  std::error_code error;
  auto disk = std::filesystem::canonical(link, error);
  if (error) return;
  if (std::filesystem::exists(disk / "partition", error)) disk = disk.parent_path();
  facts.model = sysfsText(disk / "device" / "model");
  facts.bus = busOfDisk(disk.string(), ancestorSubsystems(disk, std::filesystem::path(sysfsRoot) / "devices"));
  facts.removable = sysfsText(disk / "removable") == "1" || facts.bus == "usb";
}

}  // namespace

std::shared_ptr<const UdevDatabase> systemUdevDatabase() {
  static const auto database = std::make_shared<const LibudevDatabase>();
  return database;
}

std::optional<std::string> labelOfMountedFileSystem(const std::string& folder) {
  const UniqueFd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::array<char, FSLABEL_MAX + 1> label{};
  if (!opened || ::ioctl(opened.get(), FS_IOC_GETFSLABEL, label.data()) != 0 || label[0] == '\0') return std::nullopt;
  return std::string(label.data());
}

DeviceProperties readDeviceFacts(const std::string& devicePath, std::uint64_t device,
                                 const DeviceFactSources& sources) {
  DeviceProperties facts;
  if (!fillFromUdev(sources.udev.get(), device, facts)) fillFromSuperblock(devicePath, facts);
  fillFromSysfs(device, sources.sysfsRoot, facts);
  return facts;
}

}  // namespace halyard
