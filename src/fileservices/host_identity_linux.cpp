// The machine's identity sources on Linux: /etc/machine-info, the DMI serial
// number, the interfaces under /sys/class/net, and gethostname.

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "fileservices/host_identity.h"

namespace halyard::fileservices {

namespace {

std::optional<std::string> firstLineOf(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::string line;
  if (!in || !std::getline(in, line)) return std::nullopt;
  while (!line.empty() && (line.back() == ' ' || line.back() == '\n')) line.pop_back();
  return line;
}

// A value of an os-release style file: KEY=value or KEY="value".
std::optional<std::string> shellVariable(const std::filesystem::path& path, std::string_view key) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.size() <= key.size() || line.compare(0, key.size(), key) != 0 || line[key.size()] != '=') continue;
    std::string value = line.substr(key.size() + 1);
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    return value;
  }
  return std::nullopt;
}

std::optional<std::array<std::uint8_t, 6>> parseAddress(const std::string& text) {
  std::array<unsigned, 6> parts{};
  if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &parts[0], &parts[1], &parts[2], &parts[3], &parts[4],
                  &parts[5]) != 6) {
    return std::nullopt;
  }
  std::array<std::uint8_t, 6> mac{};
  bool allZero = true;
  for (int i = 0; i < 6; ++i) {
    mac[i] = static_cast<std::uint8_t>(parts[i]);
    allZero = allZero && mac[i] == 0;
  }
  if (allZero) return std::nullopt;
  return mac;
}

class LinuxHostIdentity final : public HostIdentitySource {
 public:
  std::optional<std::string> computerName() const override {
    return shellVariable("/etc/machine-info", "PRETTY_HOSTNAME");
  }
  std::optional<std::string> platformSerialNumber() const override {
    return firstLineOf("/sys/class/dmi/id/product_serial");
  }
  std::optional<std::array<std::uint8_t, 6>> primaryEthernetAddress() const override {
    return primaryEthernetAddressIn("/sys/class/net");
  }
  std::optional<std::string> processHostName() const override {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0) return std::nullopt;
    return std::string(name);
  }
};

}  // namespace

std::optional<std::array<std::uint8_t, 6>> primaryEthernetAddressIn(const std::string& netFolder) {
  // Type 1 is ARPHRD_ETHER (loopback is 772); only an interface on a device
  // has a "device" entry.
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<fs::path> interfaces;
  for (const auto& entry : fs::directory_iterator(netFolder, ec)) interfaces.push_back(entry.path());
  std::sort(interfaces.begin(), interfaces.end());
  for (const auto& interface : interfaces) {
    if (firstLineOf(interface / "type") != "1" || !fs::exists(interface / "device", ec)) continue;
    if (auto address = firstLineOf(interface / "address")) {
      if (auto mac = parseAddress(*address)) return mac;
    }
  }
  return std::nullopt;
}

std::shared_ptr<const HostIdentitySource> makeLinuxHostIdentitySource() {
  return std::make_shared<LinuxHostIdentity>();
}

}  // namespace halyard::fileservices
