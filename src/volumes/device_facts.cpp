#include "volumes/device_facts.h"

#include <algorithm>
#include <array>

namespace halyard {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "ata3": the ATA port a SATA disk hangs on.
bool isAtaPort(std::string_view component) {
  return component.size() > 3 && component.substr(0, 3) == "ata" &&
         std::all_of(component.begin() + 3, component.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool hasAtaPort(std::string_view path) {
  while (!path.empty()) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    if (isAtaPort(path.substr(0, slash))) return true;
    path.remove_prefix(std::min(slash + 1, path.size()));
  }
  return false;
}

}  // namespace

std::string decodeUdevText(std::string_view encoded) {
  std::string out;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] == '\\' && i + 3 < encoded.size() && encoded[i + 1] == 'x') {
      const int high = hexDigit(encoded[i + 2]);
      const int low = hexDigit(encoded[i + 3]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>((high << 4) | low));
        i += 3;
        continue;
      }
    }
    out.push_back(encoded[i]);
  }
  return out;
}

// The disk's own transport wins over the ones it is reached through: a USB
// stick shows a SCSI host below its USB device, a SATA disk an ATA port.
std::optional<std::string> busOfDisk(std::string_view sysfsPath, const std::vector<std::string>& ancestorSubsystems) {
  const auto has = [&](std::string_view subsystem) {
    return std::find(ancestorSubsystems.begin(), ancestorSubsystems.end(), subsystem) != ancestorSubsystems.end();
  };
  if (has("usb")) return "usb";
  if (has("firewire") || has("ieee1394")) return "ieee1394";
  if (hasAtaPort(sysfsPath)) return "ata";
  constexpr std::array<std::string_view, 4> kOthers{"nvme", "mmc", "virtio", "scsi"};
  for (std::string_view bus : kOthers) {
    if (has(bus)) return std::string(bus);
  }
  return std::nullopt;
}

std::string trimmedText(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\n");
  if (start == std::string_view::npos) return "";
  const std::size_t end = text.find_last_not_of(" \t\n");
  return std::string(text.substr(start, end - start + 1));
}

}  // namespace halyard
