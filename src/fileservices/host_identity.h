#pragma once
// The machine's identity, as the file manager's `hostName` builds it: the
// first of the computer name, the platform serial number, the primary
// Ethernet address, the host name, and "local". The sources sit behind a
// small interface so the fallback order is tested with a fake machine.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace halyard::fileservices {

class HostIdentitySource {
 public:
  virtual ~HostIdentitySource() = default;
  // PRETTY_HOSTNAME of /etc/machine-info.
  virtual std::optional<std::string> computerName() const = 0;
  // /sys/class/dmi/id/product_serial.
  virtual std::optional<std::string> platformSerialNumber() const = 0;
  // The first non-loopback Ethernet interface's address.
  virtual std::optional<std::array<std::uint8_t, 6>> primaryEthernetAddress() const = 0;
  // gethostname.
  virtual std::optional<std::string> processHostName() const = 0;
};

// The identity in the fallback order; an empty text counts as absent.
std::string hostNameFrom(const HostIdentitySource& source);

// The sources of this machine (host_identity_linux.cpp).
std::shared_ptr<const HostIdentitySource> makeLinuxHostIdentitySource();

// The address of the first Ethernet interface, in name order, of a folder
// laid out as /sys/class/net that sits on a device: virtual interfaces
// (bridges, veth, docker0) get new addresses as they come and go.
std::optional<std::array<std::uint8_t, 6>> primaryEthernetAddressIn(const std::string& netFolder);

}  // namespace halyard::fileservices
