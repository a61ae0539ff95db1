// Feeds arbitrary bytes to the mount-table parser and the device-fact
// decoders: every parsed mount is classified, its volume found, and a path
// made of the input tied to a mount; the same bytes are decoded as udev
// text and read as a sysfs path. Nothing may crash or read out of bounds.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "volumes/device_facts.h"
#include "volumes/mount_table.h"
#include "volumes/volume_mounts.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  auto table = halyard::parseMountTable(text);
  for (halyard::MountEntry& mount : table) {
    mount.sourceIsBlockDevice = mount.source.rfind("/dev/", 0) == 0;
    (void)halyard::kindOfMount(mount);
    if (halyard::canonicalMount(table, mount).device != mount.device) std::abort();
  }
  const auto volumes = halyard::localVolumeMounts(table);
  if (volumes.size() > table.size()) std::abort();
  const std::string path = "/" + halyard::unescapeMountField(text.substr(0, 64));
  const halyard::MountEntry* holder = halyard::mountHolding(table, {std::nullopt, path});
  if (holder && !halyard::isWithinFolder(path, holder->mountPoint)) std::abort();
  const std::string decoded = halyard::decodeUdevText(text);
  if (decoded.size() > text.size()) std::abort();
  (void)halyard::busOfDisk(text, {std::string(text.substr(0, 8))});
  (void)halyard::trimmedText(text);
  return 0;
}
